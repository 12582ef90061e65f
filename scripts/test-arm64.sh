#!/usr/bin/env bash
# Cross-builds scancode for Linux aarch64 (NEON paths compiled in) and runs the
# whole test suite under qemu-aarch64. The command-line tool needs OpenCV
# readers that are not installed for arm64, and the soak run measures the
# host's memory, which under emulation is qemu's: both are left out.
#   JOBS=<n> scripts/test-arm64.sh   (default: all cores)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh test arm64
cmake -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
      -DCMAKE_BUILD_TYPE=Release -DSCANCODE_BUILD_BENCH=OFF -DSCANCODE_BUILD_TOOLS=OFF \
      -DSCANCODE_BUILD_SOAK=OFF
cmake --build build-arm64 -j"${JOBS:-$(nproc)}"
(cd build-arm64 && ctest --output-on-failure -j"${JOBS:-$(nproc)}" --timeout 900)
