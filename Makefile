# The front door. Every target works from a fresh clone on a bare Debian 12 machine.
#
#   make run      build, then show the system at work on this machine's own package data
#   make test     build, then run all tests
#   make asan, make tsan    the tests under the sanitizers
#   make bench    build and run the benchmarks; prints ratios against their limits
#   make fuzz     build the fuzz targets and run each for FUZZ_SECONDS seconds
#   make install  install under PREFIX (default /usr/local)
#   make clean    remove every build

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 20
TEST_FLAGS ?=

.PHONY: all run test asan tsan bench fuzz install clean bootstrap

all: build-release

bootstrap:
	@tools/bootstrap build

build-%: bootstrap
	@[ -f build/$*/build.ninja ] || cmake --preset $* >/dev/null
	@cmake --build --preset $* -j $(JOBS)

run: build-release
	@tools/run-example build/release

test: build-release
	@ctest --test-dir build/release --output-on-failure -j $(JOBS) $(TEST_FLAGS)

asan tsan: %: build-%
	@ctest --test-dir build/$* --output-on-failure -j $(JOBS) $(TEST_FLAGS)

bench:
	@tools/bootstrap build bench
	@[ -f build/bench/build.ninja ] || cmake --preset bench >/dev/null
	@cmake --build --preset bench -j $(JOBS)
	@tools/run-benchmarks build/bench

fuzz:
	@tools/bootstrap build fuzz
	@[ -f build/fuzz/build.ninja ] || cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz -j $(JOBS)
	@tools/run-fuzzers build/fuzz $(FUZZ_SECONDS)

install: build-release
	@cmake --install build/release --prefix $(PREFIX)

clean:
	@rm -rf build
