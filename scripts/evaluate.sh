#!/usr/bin/env bash
# Detection quality and speed with the real adapter and our model: recall on
# the real QR photos, false boxes on QR-free pictures from Debian packages,
# decodability of the straightened codes, and Process time against a full
# zxing-cpp read of the same frames.
#   scripts/evaluate.sh [PHOTOS_DIR]    (default: ../shared/data/photos)
set -euo pipefail
cd "$(dirname "$0")/.."
photos=${1:-../shared/data/photos}
bash scripts/setup.sh test run eval
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release > /dev/null
cmake --build build -j"$(nproc)" --target evaluate_detection scanref_adapter
sk=/usr/lib/python3/dist-packages/skimage/data
negatives=()
for name in astronaut brick camera cell chelsea chessboard_RGB clock_motion coffee coins grass \
            gravel ihc moon motorcycle_left motorcycle_right page rocket text; do
  for f in "$sk/$name".png "$sk/$name".jpg; do [ -f "$f" ] && negatives+=("$f"); done
done
negatives+=("$sk"/hubble_deep_field.jpg "$sk"/retina.jpg /usr/share/backgrounds/gnome/*.webp)
build/bench/evaluate_detection "$photos"/*/ --negatives "${negatives[@]}"
