#!/bin/sh
# Builds the libFuzzer targets with clang and runs each for the given number of seconds.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DZL_BUILD_FUZZ=ON -DZL_BUILD_TESTS=OFF
cmake --build build-fuzz -j "$(nproc)"
for target in build-fuzz/fuzz/fuzz_*; do
    [ -f "$target" ] && [ -x "$target" ] || continue
    name=$(basename "$target")
    corpus="build-fuzz/corpus/$name"
    mkdir -p "$corpus"
    echo "== $name for ${seconds}s"
    ASAN_OPTIONS=detect_leaks=0 "$target" -max_total_time="$seconds" -print_final_stats=1 "$corpus" fuzz/seeds/"$name"
done
