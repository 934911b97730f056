# The project's front door: `make test`, `make demo`, `make bench`.
.PHONY: all deps build sdk dist test test-windows test-native bench demo fuzz format clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake --preset windows
	cmake --build --preset windows

# The SDK for Visual C++ hosts in build/sdk (every Windows build makes it too).
sdk: build
	cmake --build --preset windows --target sdk

# The release files in build/dist: the versioned SDK archive and the NuGet package, each with
# its SHA-256 file.
dist: build
	cmake --build --preset windows --target dist

test-windows: build
	ctest --preset windows

test-native: deps
	cmake --preset native
	cmake --build --preset native
	ctest --preset native

test: test-windows test-native

bench: build
	cmake --build --preset windows --target bench
	scripts/run-benchmarks.sh build

demo: build
	scripts/demo.sh build

# Longer fuzzing: each libFuzzer target for FUZZ_SECONDS (default 10 minutes), growing its
# corpus in fuzz/corpus/<fuzzer>/; reproducers go to fuzz/artifacts/<fuzzer>/. FUZZERS="a b"
# runs only those; scripts/run-fuzzers.sh lists the other settings.
FUZZ_SECONDS ?= 600
fuzz: deps
	cmake --preset native
	cmake --build --preset native --target fuzzers
	FUZZ_SECONDS=$(FUZZ_SECONDS) scripts/run-fuzzers.sh build/native $(FUZZERS)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf build
