#!/usr/bin/env bash
# Installs the Debian 12 packages scancode needs, only those missing.
#   scripts/setup.sh test   build, tests, benchmarks
#   scripts/setup.sh run    the command-line tool with the reference adapter
#   scripts/setup.sh eval   the detection evaluation: its pictures, OpenCV's QR detector, JSON, plots
#   scripts/setup.sh arm64  cross build for Linux aarch64, tests under qemu
#   scripts/setup.sh train  training and evaluating the detector (model/)
#   scripts/setup.sh fuzz   libFuzzer targets (clang) and the soak run under valgrind
set -euo pipefail

build=(cmake make g++ binutils libopencv-core-dev libopencv-imgproc-dev)
# clang-format is pinned to one version: another formats differently.
# The Python module builds against Debian's interpreter with its pybind11 and numpy.
test=(libgtest-dev libgmock-dev libbenchmark-dev libyuv-dev libqrencode-dev libzxing-dev pkg-config
      libjpeg62-turbo-dev qemu-user black flake8 clang-format-14 libdnnl-dev python3-pybind11
      python3-dev python3-numpy)
run=(libopencv-dnn-dev libxnnpack-dev libpthreadpool-dev libonnx-dev libprotobuf-dev
     libopencv-imgcodecs-dev libopencv-videoio-dev libzxing-dev nlohmann-json3-dev)
eval=(python3-skimage gnome-backgrounds libopencv-objdetect-dev python3-matplotlib)
arm64=(g++-aarch64-linux-gnu qemu-user libopencv-core-dev:arm64 libopencv-imgproc-dev:arm64
       libgtest-dev:arm64 libgmock-dev:arm64 libyuv-dev:arm64 libqrencode-dev:arm64
       libzxing-dev:arm64 libjpeg62-turbo-dev:arm64)
# MATE's and UKUI's wallpapers are the natural photos training composites codes onto.
train=(python3-torch python3-opencv python3-numpy python3-segno python3-onnx mate-backgrounds ukui-wallpapers)
fuzz=(clang-14 libclang-rt-14-dev valgrind)

want=("${build[@]}")
for group in "$@"; do
  case "$group" in
    test) want+=("${test[@]}" "${run[@]}") ;;
    run) want+=("${run[@]}") ;;
    eval) want+=("${eval[@]}") ;;
    fuzz) want+=("${fuzz[@]}") ;;
    arm64)
      # arm64 packages install beside the native ones (multiarch).
      dpkg --print-foreign-architectures | grep -qx arm64 || dpkg --add-architecture arm64
      want+=("${arm64[@]}") ;;
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
