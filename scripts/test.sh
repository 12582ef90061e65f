#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine, builds scancode and runs every test:
# once in an optimised build, once under AddressSanitizer + UBSan, the
# multi-threaded lifecycle under ThreadSanitizer, a short run of each fuzz
# target, and the whole suite cross-built for aarch64 under qemu.
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

# ThreadSanitizer where the library runs on several threads: users opening
# and closing it concurrently, and the network's lock. Only the two test
# programs that hold those tests are built.
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSCANCODE_SANITIZE=thread \
      -DSCANCODE_BUILD_BENCH=OFF -DSCANCODE_BUILD_TOOLS=OFF -DSCANCODE_BUILD_SOAK=OFF
cmake --build build-tsan -j"$jobs" --target e2e_tests inference_tests
(cd build-tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j"$jobs" --timeout 600 \
   -R '^(Lifecycle|NetLock)\.|^NpuNetwork\.SetupHoldsTheLockUntilTeardown$')

# Every fuzz target for a short while; scripts/fuzz.sh <seconds> runs longer.
bash scripts/fuzz.sh 30

JOBS=$jobs bash scripts/test-arm64.sh
