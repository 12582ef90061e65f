#!/usr/bin/env bash
# Cross-builds scancode for Linux aarch64 (NEON paths compiled in) and runs the
# whole test suite under qemu-aarch64.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh test arm64
cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
      -DCMAKE_BUILD_TYPE=Release -DSCANCODE_BUILD_BENCH=OFF
cmake --build build-arm64 -j"$(nproc)"
(cd build-arm64 && ctest --output-on-failure -j"$(nproc)" --timeout 900)
