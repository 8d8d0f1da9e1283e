# Front door: `make demo` runs the example daemon for three ticks, `make test`
# builds and runs the test suite, `make asan` does the same under the address
# and undefined-behaviour sanitizers.
.PHONY: all deps build test asan demo clean

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

clean:
	rm -rf build
