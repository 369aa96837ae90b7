# The two commands of the project: `make demo` and `make test`. Both set up a
# fresh Debian 12 machine first (installing what is missing) and build.
JOBS ?= 2
RELEASE := build
TESTBUILD := build-asan

.PHONY: all setup release demo test clean

all: release

setup:
	@tools/setup.sh

release: setup
	cmake -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release -DPICTURE_TESTS=OFF
	cmake --build $(RELEASE) -j$(JOBS)

demo: release
	$(RELEASE)/picturehost demo --out-dir out/demo

test: setup
	cmake -S . -B $(TESTBUILD) -DCMAKE_BUILD_TYPE=Debug -DPICTURE_SANITIZE=ON
	cmake --build $(TESTBUILD) -j$(JOBS)
	ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$(CURDIR)/tools/lsan.supp \
	  tools/with-xvfb.sh ctest --test-dir $(TESTBUILD) --output-on-failure --no-tests=error -j$(JOBS)

clean:
	rm -rf $(RELEASE) $(TESTBUILD) out
