#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds scancode and runs every test:
# once in an optimised build, once under AddressSanitizer + UBSan.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

bash scripts/setup.sh test

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DSCANCODE_SANITIZE=address,undefined \
      -DSCANCODE_BUILD_BENCH=OFF
cmake --build build-asan -j"$jobs"
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
   ctest --output-on-failure -j"$jobs" --timeout 600)

(cd build && ctest --output-on-failure -j"$jobs" --timeout 600)
