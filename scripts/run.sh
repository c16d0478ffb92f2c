#!/bin/sh
# Installs the dependencies, builds the program and starts it.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZL_BUILD_TESTS=OFF
cmake --build build -j "$(nproc)"
exec ./build/zephyrlake "$@"
