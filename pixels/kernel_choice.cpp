#include "pixels/kernel_choice.h"

#include <cstdlib>

namespace {

// -1: not decided yet; 0: fast kernels; 1: plain kernels. Written on the
// host's thread only, like the rest of the library's state.
int gPlain = -1;

}  // namespace

bool PlainKernels() {
  if (gPlain < 0) {
    const char* value = std::getenv("PICTURE_PLAIN_KERNELS");
    gPlain = value && value[0] && !(value[0] == '0' && value[1] == 0) ? 1 : 0;
  }
  return gPlain == 1;
}

void SetPlainKernels(bool plain) { gPlain = plain ? 1 : 0; }
