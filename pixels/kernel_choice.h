// Choosing between the plain and the fast variant of a row kernel.
//
// A row kernel with a fast variant keeps its plain version beside it: the
// plain one (no suffix) is the readable reference, the fast one (suffix Fast)
// gives the very same bytes for every input, faster. A frame picks one of the
// two once per call with ChooseKernel. Setting PICTURE_PLAIN_KERNELS=1 in the
// environment makes every frame use the plain kernels, so that the whole test
// suite can run on either set; tests and benchmarks can switch in between.
#pragma once

// True when the plain kernels are forced: PICTURE_PLAIN_KERNELS is set to a
// value other than "0" or empty (read once), or SetPlainKernels(true).
bool PlainKernels();
void SetPlainKernels(bool plain);

template <typename Kernel>
Kernel ChooseKernel(Kernel plain, Kernel fast) {
  return PlainKernels() ? plain : fast;
}

// The hot row kernels' fast variants are compiled twice, for AVX2 and for the
// baseline instruction set, and the loader picks the one the processor can
// run: wider vectors where there are some, and a library that still runs on
// any x86 processor. Both are the same C++ and give the same bytes.
#if defined(__GNUC__) && !defined(__clang__) && (defined(__x86_64__) || defined(__i386__))
#define PICTURE_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define PICTURE_VECTOR_CLONES
#endif
