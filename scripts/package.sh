#!/bin/sh
# Builds zephyrlake in Release and makes a .deb for this machine's architecture (amd64 on a PC,
# arm64 on a 64-bit Raspberry Pi OS), with its library dependencies found by dpkg-shlibdeps.
# The package lands in build-release/.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DZL_BUILD_TESTS=OFF
cmake --build build-release -j "$(nproc)"
(cd build-release && cpack -G DEB)
ls build-release/zephyrlake_*.deb
