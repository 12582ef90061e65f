#!/usr/bin/env bash
# Installs the Debian 12 packages scancode needs, only those missing.
#   scripts/setup.sh test   build, tests, benchmarks
#   scripts/setup.sh run    the command-line tool with the reference adapter
#   scripts/setup.sh train  training and evaluating the detector (model/)
set -euo pipefail

build=(cmake make g++ binutils libopencv-core-dev libopencv-imgproc-dev)
test=(libgtest-dev libgmock-dev libbenchmark-dev libyuv-dev libqrencode-dev libzxing-dev)
run=(libopencv-dnn-dev libopencv-imgcodecs-dev libopencv-videoio-dev)
train=(python3-torch python3-opencv python3-numpy python3-segno)

want=("${build[@]}")
for group in "$@"; do
  case "$group" in
    test) want+=("${test[@]}" "${run[@]}") ;;
    run) want+=("${run[@]}") ;;
    train) want+=("${train[@]}") ;;
    *) echo "setup.sh: unknown group '$group'" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup.sh: installing ${missing[*]}"
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
