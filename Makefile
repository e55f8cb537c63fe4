# The two set-up commands: `make run` and `make test`.
.PHONY: run test bench deps native win64 test-native test-win64 fuzz cli exe clean

deps:
	@tools/install-deps

native: deps
	@cmake --preset native >/dev/null
	@cmake --build --preset native

win64: deps
	@tools/build-libwebp-mingw
	@cmake --preset win64 >/dev/null
	@cmake --build --preset win64

test-native: native
	@ctest --preset native

test-win64: win64
	@status=0; ctest --preset win64 || status=$$?; tools/wine-run --shutdown; exit $$status

# Every reader of outside data under libFuzzer for a short while
# (FUZZ_SECONDS each, 20 by default); a crash fails and keeps its input.
fuzz: deps
	@CXX=clang++ cmake -S fuzz -B build/fuzz -G Ninja >/dev/null
	@cmake --build build/fuzz
	@tools/run-fuzzers

test: test-native test-win64 fuzz

run: win64
	@tools/run-tavora build/win64/bin/tavora.exe

bench: deps win64
	@cmake --preset native-release >/dev/null
	@cmake --build --preset native-release
	@tools/run-benchmarks build/native-release/bin
	@echo "== codec_open_bench (tavora.exe's codecs, under Wine)"
	@tools/wine-run build/win64/bin/codec_open_bench.exe; tools/wine-run --shutdown

# tavora.exe, also left at build/bin/tavora.exe.
exe: win64
	@mkdir -p build/bin && cp build/win64/bin/tavora.exe build/bin/tavora.exe
	@echo build/bin/tavora.exe

# The native tavora-cli, optimised, at build/bin/tavora-cli for scripts.
cli: deps
	@cmake --preset native-release >/dev/null
	@cmake --build --preset native-release --target tavora-cli
	@mkdir -p build/bin && cp build/native-release/bin/tavora-cli build/bin/tavora-cli
	@echo "build/bin/tavora-cli"

clean:
	rm -rf build
