# Astrivelle: the two commands a new machine needs are `make demo` and `make test`.
.PHONY: all deps build test test-asan test-tsan demo bench clean format

JOBS ?= $(shell nproc)
CTEST_JOBS ?= $(JOBS)

all: build

deps:
	@bash scripts/install-deps.sh

build: deps
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

test: build
	ctest --preset release -j $(CTEST_JOBS)

test-asan: deps
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan -j $(CTEST_JOBS)

test-tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan -j $(CTEST_JOBS)

demo: build
	@bash scripts/demo.sh build/release

bench: build
	@bash scripts/bench.sh build/release

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build demo-output bench-output
