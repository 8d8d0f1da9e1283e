# Front door: `make test` builds and runs the test suite, `make asan` does the
# same under the address and undefined-behaviour sanitizers.
.PHONY: all build test asan clean

all: build

build:
	cmake --preset default
	cmake --build --preset default

test: build
	ctest --preset default

asan:
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

clean:
	rm -rf build
