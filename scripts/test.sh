#!/bin/sh
# Installs the dependencies, builds everything with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test (formatting check included).
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh

jobs=$(nproc)
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DZL_SANITIZE=ON -DZL_BUILD_BENCH=ON
cmake --build build-asan -j "$jobs"

# Qt's own allocations at exit are not ours to chase; every other ASan and UBSan finding fails.
export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
ctest --test-dir build-asan --output-on-failure -j "$jobs"

# The threaded suites again, under ThreadSanitizer.
./scripts/tsan.sh

./scripts/fuzz.sh 10

# The .deb: built in Release, its contents and dependencies checked (and installed, in CI).
./scripts/package.sh
./scripts/check-package.sh
