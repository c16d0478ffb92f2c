#!/bin/sh
# Formats every C++ source of the project in place.
cd "$(dirname "$0")/.." || exit 1
find src tests bench fuzz -name '*.cpp' -o -name '*.h' | xargs clang-format -i
