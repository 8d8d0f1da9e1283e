# Front door: `make demo` runs the example daemon for three ticks, `make test`
# builds and runs the test suite, `make asan` does the same under the address
# and undefined-behaviour sanitizers, `make tsan` under the thread sanitizer
# (stress tests included; tools/tsan.supp lists the races the library accepts),
# `make bench` measures the library against its peers and prints the table
# (see BENCHMARKS.md).
.PHONY: all deps build test asan tsan demo bench clean

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

clean:
	rm -rf build
