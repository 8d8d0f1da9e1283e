# Front door: `make demo` runs the example daemon for three ticks, `make test`
# builds and runs the test suite, `make asan` does the same under the address
# and undefined-behaviour sanitizers, `make bench` measures the library against
# its peers and prints the table (see BENCHMARKS.md), `make fuzz` runs every
# fuzz harness for 60 s over its corpus and `make fuzz-smoke` for 20 s, as CI
# does (see fuzz/README.md).
.PHONY: all deps build test asan demo bench fuzz-build fuzz fuzz-smoke clean

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
