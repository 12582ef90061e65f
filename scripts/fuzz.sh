#!/usr/bin/env bash
# Builds the libFuzzer targets with clang in build-fuzz/ and runs each for a
# bounded time (default 30 s), keeping a corpus per target in
# build-fuzz/corpus/<target>. Findings are written to build-fuzz/findings/.
#   scripts/fuzz.sh [seconds per target] [target...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift || true
targets=("$@")
((${#targets[@]})) || targets=(nv21_fuzz postprocess_fuzz lines_fuzz rectify_fuzz process_fuzz frame_source_fuzz)
jobs=${JOBS:-$(nproc)}

bash scripts/setup.sh test fuzz
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DSCANCODE_BUILD_FUZZ=ON -DSCANCODE_BUILD_TESTS=OFF -DSCANCODE_BUILD_BENCH=OFF \
  -DSCANCODE_BUILD_TOOLS=OFF >/dev/null
cmake --build build-fuzz -j"$jobs" --target "${targets[@]}"

mkdir -p build-fuzz/findings
for t in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$t"
  rm -f build-fuzz/findings/"$t"-*
  echo "== $t: ${seconds}s"
  # rss_limit covers the frame path under ASan; malloc_limit stays at its
  # default (the rss limit) so that a huge allocation is a finding, and an
  # input running for two minutes is one too.
  (cd build-fuzz && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
     "./fuzz/$t" -max_total_time="$seconds" -rss_limit_mb=4096 -max_len=8192 -timeout=120 \
     -artifact_prefix="findings/$t-" -print_final_stats=1 "corpus/$t" 2>&1 |
     grep -E '^(#[0-9]+ +DONE|stat::number_of_executed_units|stat::peak_rss|==[0-9]+==ERROR|SUMMARY|artifact_prefix|Test unit written)' || true)
  # A crash leaves its input behind; fail the run then.
  if compgen -G "build-fuzz/findings/$t-*" >/dev/null; then
    echo "fuzz.sh: $t found a failing input:" build-fuzz/findings/"$t"-* >&2
    exit 1
  fi
done
