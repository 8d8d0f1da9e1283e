# Front door: `make demo` runs the example daemon for three ticks, `make test`
# builds and runs the test suite, `make asan` does the same under the address
# and undefined-behaviour sanitizers, `make tsan` under the thread sanitizer
# (stress tests included; tools/tsan.supp lists the races the library accepts),
# `make bench` measures the library against its peers and prints the table
# (see BENCHMARKS.md). `make fuzz` runs every fuzz harness for 60 s over its
# corpus and `make fuzz-smoke` for 20 s, as CI does (see fuzz/README.md).
# `make abi-check` compares the library's binary interface with the committed
# baseline (abi/libovkit.so.1.abi), and `make abi-baseline` records the current
# one there. `make package` builds the Debian packages libovkit1 and
# libovkit-dev into build/default/packages and checks them with lintian
# (errors fail). `make docs` writes the API reference, from the headers' ///
# comments, to build/docs/html (any Doxygen warning fails it).
.PHONY: all deps build test asan tsan demo bench fuzz-build fuzz fuzz-smoke abi-check abi-baseline package docs clean
VERSION := $(shell sed -n 's/^project.ovkit VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)

all: build

deps:
	@tools/install-deps

build: deps
	cmake --preset default
	cmake --build --preset default

test: build
	ctest --preset default

asan: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

demo: build
	cd build/default && ./examples/tickd/ovkit-tickd -c ../../examples/tickd/tickd.properties -n 3

bench:
	@tools/install-deps python3 libpcre2-dev libspdlog-dev libpoco-dev
	cmake --preset bench
	cmake --build --preset bench
	python3 bench/report.py --build-dir build/bench

package: build
	@tools/install-deps lintian
	rm -rf build/default/packages
	cd build/default && cpack --config CPackConfig.cmake
	lintian --fail-on error --display-info build/default/packages/*.deb

docs:
	@tools/install-deps doxygen graphviz
	rm -rf build/docs
	OVKIT_VERSION=$(VERSION) doxygen docs/Doxyfile
	@echo "ovkit: API reference in build/docs/html/index.html"

abi-check: build
	tools/abi-check build/default

abi-baseline: build
	tools/abi-check --update build/default

fuzz-build: deps
	cmake --preset fuzz
	cmake --build --preset fuzz

# New corpus entries stay in build/fuzz: fuzz/corpus changes only on purpose
# (tools/fuzz-run --update-corpus).
fuzz: fuzz-build
	tools/fuzz-run 60

fuzz-smoke: fuzz-build
	tools/fuzz-run --work build/fuzz/smoke --fresh 20

clean:
	rm -rf build
