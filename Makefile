# Front door: `make demo` runs the example daemon for three ticks, `make test`
# builds and runs the test suite, `make asan` does the same under the address
# and undefined-behaviour sanitizers, `make bench` measures the library against
# its peers and prints the table (see BENCHMARKS.md). `make abi-check` compares
# the library's binary interface with the committed baseline
# (abi/libovkit.so.1.abi), and `make abi-baseline` records the current one there.
# `make package` builds the Debian packages libovkit1 and libovkit-dev into
# build/default/packages and checks them with lintian (errors fail).
.PHONY: all deps build test asan demo bench abi-check abi-baseline package clean

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

abi-check: build
	tools/abi-check build/default

abi-baseline: build
	tools/abi-check --update build/default

clean:
	rm -rf build
