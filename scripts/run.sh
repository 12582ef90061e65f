#!/usr/bin/env bash
# The library's main job on a host: sets up a fresh Debian 12 machine, builds
# the library, the reference adapter and the command-line tool, and runs the
# sample frames through Init/Process/DeInit with our trained detector,
# printing each frame's result and writing annotated pictures to out/samples.
#   scripts/run.sh [INPUT...]    (default: samples/)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh run
cmake -S . -B build-run -DCMAKE_BUILD_TYPE=Release -DSCANCODE_BUILD_TESTS=OFF \
      -DSCANCODE_BUILD_BENCH=OFF > /dev/null
cmake --build build-run -j"$(nproc)" --target scancode_cli scanref_adapter
inputs=("$@")
[ ${#inputs[@]} -gt 0 ] || inputs=(samples)
build-run/tools/scancode --out out/samples "${inputs[@]}"
echo "annotated pictures: out/samples/"
