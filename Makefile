# The two commands of the project: `make demo` and `make test`. Both set up a
# fresh Debian 12 machine first (installing what is missing) and build.
JOBS ?= 2
RELEASE := build
TESTBUILD := build-asan
BUILD32 := build32
SANITIZER_ENV := ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$(CURDIR)/tools/lsan.supp
FUZZBUILD := build-fuzz
FUZZ_TARGETS := binary_string memoryblock call_sequence
FUZZ_SECONDS ?= 600
FUZZ_TEST_SECONDS ?= 20
FUZZ_FRESH ?= 0

# What the tests add to the build's packages: GoogleTest, and clang with its
# sanitizer and libFuzzer runtime for the fuzz targets.
TEST_PACKAGES := libgtest-dev clang libclang-rt-14-dev

# The demo's photograph: "seeding" by Clemens Engelhardt (CC0-1.0), from the
# Ubuntu Touch wallpapers packaged by Debian, scaled to 640 x 360 by
# picturehost itself before the gallery runs on it.
DEMO_PACKAGES := lomiri-wallpapers-16.04
DEMO_PHOTO := /usr/share/backgrounds/seeding_by_Clements_Engelhardt.jpg

.PHONY: all setup setup-test setup-demo release demo test check build32 test32 clean fuzz-build fuzz memcheck bench test-plain \
  coverage mutants

all: release

setup:
	@tools/setup.sh

setup-test:
	@tools/setup.sh $(TEST_PACKAGES)

setup-demo:
	@tools/setup.sh $(DEMO_PACKAGES)

release: setup
	cmake -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release -DPICTURE_TESTS=OFF
	cmake --build $(RELEASE) -j$(JOBS)

demo: setup-demo release
	$(RELEASE)/picturehost demo --out-dir out/demo
	$(RELEASE)/picturehost call --on $(DEMO_PHOTO) ScaleQVT 640 360 false --out out/photo-640x360.png
	$(RELEASE)/picturehost demo --on out/photo-640x360.png --out-dir out/demo-photo

# The 64-bit suite, then the 32-bit one; both decide the result, they must
# count the same tests, and the digests of every method's output must agree
# between the two builds.
test: setup-test
	cmake -S . -B $(TESTBUILD) -DCMAKE_BUILD_TYPE=Debug -DPICTURE_SANITIZE=ON
	cmake --build $(TESTBUILD) -j$(JOBS)
	@status=0; \
	$(SANITIZER_ENV) tools/with-xvfb.sh ctest --test-dir $(TESTBUILD) --output-on-failure --no-tests=error -j$(JOBS) || status=1; \
	echo "the suite again on the plain reference kernels (PICTURE_PLAIN_KERNELS=1)"; \
	PICTURE_PLAIN_KERNELS=1 $(SANITIZER_ENV) tools/with-xvfb.sh ctest --test-dir $(TESTBUILD) --output-on-failure --no-tests=error -j$(JOBS) || status=1; \
	$(MAKE) --no-print-directory test32 || status=1; \
	{ $(SANITIZER_ENV) tools/digests.sh $(TESTBUILD)/picturehost $(TESTBUILD)/digests.txt && \
	  tools/digests.sh --compare $(TESTBUILD)/digests.txt $(BUILD32)/digests.txt; } || status=1; \
	tools/count-tests.sh $(TESTBUILD) $(BUILD32) || status=1; \
	$(MAKE) --no-print-directory fuzz FUZZ_SECONDS=$(FUZZ_TEST_SECONDS) FUZZ_FRESH=1 || status=1; \
	exit $$status

# The 64-bit sanitizer suite alone, for working on the code: no 32-bit
# stage, no fuzzing, no root needed once the packages are there.
check:
	cmake -S . -B $(TESTBUILD) -DCMAKE_BUILD_TYPE=Debug -DPICTURE_SANITIZE=ON
	cmake --build $(TESTBUILD) -j$(JOBS)
	$(SANITIZER_ENV) tools/with-xvfb.sh ctest --test-dir $(TESTBUILD) --output-on-failure --no-tests=error -j$(JOBS)

# The 32-bit x86 library, host and tests in build32/, run inside a Debian
# i386 root (tools/i386-root.sh; the first use sets the root up). Machines
# that cannot run 32-bit programs take the emulated route; the route, why,
# and the time the stage took are printed. PICTURE_I386_EMULATE=1 forces the
# emulated route. The entries that start an X server of another depth
# (*_16bit) run in the 64-bit suite only: the root has no X server of its
# own, its tests use the one outside.
build32:
	JOBS=$(JOBS) tools/i386-root.sh build

test32:
	@tools/i386-root.sh route --check
	@start=$$(date +%s); status=0; \
	JOBS=$(JOBS) tools/i386-root.sh build || status=1; \
	rm -f $(BUILD32)/digests.txt; \
	if [ $$status = 0 ]; then \
	  tools/with-xvfb.sh tools/i386-root.sh run ctest --test-dir $(BUILD32) --output-on-failure --no-tests=error -j$(JOBS) \
	    -E '_16bit$$' || status=1; \
	  PICTUREHOST_RUNNER="$(CURDIR)/tools/i386-root.sh run" tools/with-xvfb.sh \
	    tools/digests.sh $(BUILD32)/picturehost $(BUILD32)/digests.txt || status=1; \
	fi; \
	echo "32-bit stage: $$(tools/i386-root.sh route | sed 's/^32-bit route: //'); $$(( $$(date +%s) - start )) s, exit $$status"; \
	exit $$status

# The libFuzzer targets (clang, AddressSanitizer and UndefinedBehaviorSanitizer),
# each run for FUZZ_SECONDS (or until FUZZ_RUNS executions, when that is
# given and comes first); `make test` runs each for FUZZ_TEST_SECONDS.
fuzz-build: setup-test
	cmake -S . -B $(FUZZBUILD) -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPICTURE_FUZZ=ON -DPICTURE_TESTS=OFF
	cmake --build $(FUZZBUILD) -j$(JOBS) --target $(addprefix fuzz_,$(FUZZ_TARGETS))

fuzz: fuzz-build
	FUZZ_FRESH=$(FUZZ_FRESH) tools/fuzz.sh $(FUZZBUILD) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# The demo job of the release build under valgrind memcheck (tools/memcheck.sh):
# fails on any error not covered by tools/valgrind.supp.
memcheck: release
	@tools/setup.sh valgrind
	tools/memcheck.sh $(RELEASE)/picturehost out/memcheck

# Benchmarks (Release, with OpenCV beside our kernels): the fast kernels are
# checked against the plain ones first, then every kernel and every handler
# is timed (5 repetitions, every repetition kept in the JSON so that the
# tables show min and max beside the median), each scaling method and size
# runs in a fresh process with its own Xvfb (fewer calls at 48 MP), and
# docs/performance.md is written from the results, with the load average
# taken before and after each run.
BENCHBUILD := build-bench
BENCH_FLAGS := --benchmark_repetitions=5 --benchmark_report_aggregates_only=false \
  --benchmark_display_aggregates_only=true --benchmark_out_format=json
SCALING_METHODS := RotateQVT(30) ScaleQVT(half) ScaleQVT(double) InvertQVT PictureConvolutionQVT.Run
SCALING_SIZES := 1000x1000:5 4000x3000:5 8000x6000:3
bench:
	@tools/setup.sh libbenchmark-dev libopencv-dev libxext-dev python3 $(TEST_PACKAGES)
	cmake -S . -B $(BENCHBUILD) -DCMAKE_BUILD_TYPE=Release -DPICTURE_BENCH=ON
	cmake --build $(BENCHBUILD) -j$(JOBS) --target picture_kernel_bench picture_bench fast_kernel_tests
	$(BENCHBUILD)/tests/pixels/fast_kernel_tests --gtest_brief=1
	echo "kernels-start $$(cat /proc/loadavg)" > $(BENCHBUILD)/load.txt
	$(BENCHBUILD)/bench/picture_kernel_bench $(BENCH_FLAGS) --benchmark_out=$(BENCHBUILD)/kernels.json
	echo "kernels-end $$(cat /proc/loadavg)" >> $(BENCHBUILD)/load.txt
	echo "end-to-end-start $$(cat /proc/loadavg)" >> $(BENCHBUILD)/load.txt
	tools/with-xvfb.sh $(BENCHBUILD)/bench/picture_bench $(BENCH_FLAGS) --benchmark_out=$(BENCHBUILD)/end_to_end.json
	echo "end-to-end-end $$(cat /proc/loadavg)" >> $(BENCHBUILD)/load.txt
	echo "scaling-start $$(cat /proc/loadavg)" >> $(BENCHBUILD)/load.txt
	rm -f $(BENCHBUILD)/scaling.jsonl
	for method in $(foreach m,$(SCALING_METHODS),'$(m)'); do \
	  for size in $(SCALING_SIZES); do \
	    env -u DISPLAY tools/with-xvfb.sh $(BENCHBUILD)/bench/picture_bench --scaling "$$method" $${size%:*} $${size#*:} \
	      >> $(BENCHBUILD)/scaling.jsonl || echo "scaling run $$method $$size failed" >&2; \
	  done; \
	done
	echo "scaling-end $$(cat /proc/loadavg)" >> $(BENCHBUILD)/load.txt
	python3 tools/perf_table.py $(BENCHBUILD)/kernels.json $(BENCHBUILD)/end_to_end.json \
	  bench/performance_notes.md --scaling $(BENCHBUILD)/scaling.jsonl --load $(BENCHBUILD)/load.txt > docs/performance.md

# The 64-bit suite once more on the plain reference kernels only.
test-plain: setup-test
	cmake -S . -B $(TESTBUILD) -DCMAKE_BUILD_TYPE=Debug -DPICTURE_SANITIZE=ON
	cmake --build $(TESTBUILD) -j$(JOBS)
	PICTURE_PLAIN_KERNELS=1 $(SANITIZER_ENV) tools/with-xvfb.sh ctest --test-dir $(TESTBUILD) --output-on-failure --no-tests=error -j$(JOBS)

# Which lines of the library the 64-bit suite runs: a table per file
# (build-cov/coverage.txt) and the total.
COVBUILD := build-cov
LIBRARY_DIRS := plugin pixels geometry tone filters exchange
coverage: setup-test
	@tools/setup.sh gcovr
	cmake -S . -B $(COVBUILD) -DCMAKE_BUILD_TYPE=Debug -DPICTURE_COVERAGE=ON
	cmake --build $(COVBUILD) -j$(JOBS)
	find $(COVBUILD) -name '*.gcda' -delete
	tools/with-xvfb.sh ctest --test-dir $(COVBUILD) --output-on-failure --no-tests=error -j$(JOBS)
	gcovr --root . --object-directory $(COVBUILD) $(addprefix --filter ,$(addsuffix /,$(LIBRARY_DIRS))) \
	  --txt $(COVBUILD)/coverage.txt --print-summary
	@cat $(COVBUILD)/coverage.txt

# Plants each fault of tools/mutants.txt alone in a scratch copy and runs the
# 64-bit suite on it; prints caught or missed per fault and the score. Takes
# about half an hour; not part of `make test`.
mutants: setup-test
	@tools/setup.sh python3
	python3 tools/mutants.py

clean:
	rm -rf $(RELEASE) $(TESTBUILD) $(BUILD32) $(FUZZBUILD) $(BENCHBUILD) $(COVBUILD) build-mutants out
