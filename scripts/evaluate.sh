#!/usr/bin/env bash
# Where the detector finds codes and where it fails: the library run as a user
# runs it (reference adapter and a model file), scored with zxing-cpp and
# OpenCV's detector on the same frames. Sets up the machine, builds, runs
# tools/evaluate and plots recall against size.
#   scripts/evaluate.sh [--quick] [--model FILE] [--json FILE] [--photos DIR]
# Quick: about 2 minutes on 2 cores, for use between training runs; full:
# about 8.5. --model sets SCANCODE_MODEL_PATH for the library before Init.
# Outputs in out/eval/: recall_vs_size.csv/.png, worst_cases.png, false_boxes.png.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh test run eval
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release > /dev/null
nice -n 5 cmake --build build -j"$(nproc)" --target evaluate scanref_adapter
# QR-free pictures: scikit-image's samples and GNOME's wallpapers (never the
# training backgrounds).
sk=/usr/lib/python3/dist-packages/skimage/data
negatives=()
for name in astronaut brick camera cell chelsea chessboard_RGB clock_motion coffee coins grass \
            gravel ihc moon motorcycle_left motorcycle_right page rocket text; do
  for f in "$sk/$name".png "$sk/$name".jpg; do [ -f "$f" ] && negatives+=("$f"); done
done
negatives+=("$sk"/hubble_deep_field.jpg "$sk"/retina.jpg /usr/share/backgrounds/gnome/*.webp)
build/tools/evaluate/evaluate --out out/eval "$@" --negatives "${negatives[@]}"
/usr/bin/python3 tools/evaluate/plot_recall.py out/eval/recall_vs_size.csv out/eval/recall_vs_size.png
