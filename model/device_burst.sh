#!/usr/bin/env bash
# A burst of detector training on a lent accelerator machine: one GPU, 16 cores,
# Python with numpy, torch and OpenCV, but none of this project's Debian packages
# and no network. One command of at most 9 minutes.
#
#   bash model/device_burst.sh --prepare        # here, first: fills .burst/ (ignored by git)
#   OUT=DIR bash model/device_burst.sh [MINUTES (7.5)]   # there: trains, leaves the state in DIR
#
# --prepare copies what the machine lacks into .burst/: segno's pure-Python source
# from its Debian package, and the wallpaper photos the frames are composed on,
# decoded and scaled to 1600 px at most as qrdata.photos() does it, stored as JPEG
# and numbered in the order qrdata picks them by. Carry .burst/ with the command; the model package
# and model/ckpt/train_state.pt travel with the working tree.
#
# The burst goes on with the run model/ckpt/train_state.pt belongs to when that run
# is unfinished, and otherwise begins the next run from its weights (the settings
# below, run 8). Frames are rendered by 16 workers; training stops after MINUTES
# (or at a SIGTERM a minute later) and saves its state, with the log, into $OUT:
# 7.5 minutes leave the whole command under 9 with the start-up and the margin.
# WORKERS, THREADS and PY override the worker count, the trainer's CPU threads and
# the interpreter (the first python3 with torch otherwise); BURST_ARGS is added to
# train.py's arguments (a dry run on two cores: "--first-frames 16").
set -euo pipefail
cd "$(dirname "$0")/.."
burst=.burst

if [ "${1:-}" = --prepare ]; then
  rm -rf "$burst"
  mkdir -p "$burst/py" "$burst/photos"
  cp -r /usr/lib/python3/dist-packages/segno "$burst/py/"
  find "$burst/py" -name __pycache__ -prune -exec rm -rf {} +
  # the pictures photos() would hold, so the frames differ from this machine's by
  # JPEG's loss only (and the other machine's library versions)
  /usr/bin/python3 - "$burst/photos" <<'EOF'
import sys

import cv2

from model import qrdata

for i, path in enumerate(p for p in qrdata.photo_paths() if cv2.imread(p, cv2.IMREAD_COLOR) is not None):
    img = cv2.imread(path, cv2.IMREAD_COLOR)
    f = min(1.0, 1600.0 / max(img.shape[:2]))
    if f < 1.0:
        img = cv2.resize(img, None, fx=f, fy=f, interpolation=cv2.INTER_AREA)
    cv2.imwrite(f"{sys.argv[1]}/{i:03d}.jpg", img, [cv2.IMWRITE_JPEG_QUALITY, 95])
EOF
  size=$(du -sm "$burst" | cut -f1)
  echo "device_burst: $burst holds $(find "$burst/photos" -name '*.jpg' | wc -l) photos and segno, $size MiB"
  ((size <= 60)) || { echo "device_burst: more than the 64 MiB a command carries" >&2; exit 1; }
  exit 0
fi

minutes=${1:-7.5}
out=${OUT:?OUT must name the folder the state goes to}
[ -d "$burst/py/segno" ] || { echo "device_burst: run --prepare first and carry $burst" >&2; exit 1; }
py=${PY:-}
if [ -z "$py" ]; then
  for p in python3 /usr/bin/python3; do
    if "$p" -c "import torch, cv2, numpy" 2>/dev/null; then py=$p && break; fi
  done
fi
export PYTHONPATH="$PWD/$burst/py${PYTHONPATH:+:$PYTHONPATH}"
export QRDATA_PHOTOS="$PWD/$burst/photos"
mkdir -p "$out"
log=$out/burst.log
start=model/ckpt/train_state.pt
"$py" -c "import sys, torch, cv2, numpy; print(sys.version.split()[0], 'torch', torch.__version__, 'cuda',
torch.cuda.is_available(), 'opencv', cv2.__version__, 'numpy', numpy.__version__)" | tee "$log"
if "$py" -c "import sys, torch; s = torch.load('$start', map_location='cpu', weights_only=False); sys.exit(s['step'] >= s['args']['total_steps'])"; then
  run=(--resume "$start")
else
  # run 8: run 7's network and data once more, on new frames and at a lower peak
  run=(--init "$start" --seed 8 --depths 3,3,2,4 --total-steps 14000 --batch 32 --rate 1 --window 1000
    --first-frames 500 --lr 2e-4 --no-code-share 0.4 --backgrounds "0.3,0.4,0.18" --hard-negatives 0.4
    --big-codes 0.3 --grids 0.15 --neg-weight 3)
fi
echo "device_burst: ${run[*]}, $minutes min" | tee -a "$log"
read -ra extra <<<"${BURST_ARGS:-}"
limit=$("$py" -c "print(int(float('$minutes') * 60) + 60)")
# train.py stops by itself MINUTES after its loop starts (torch's and the GPU's
# start-up come before); the SIGTERM is for a step or a wait that overruns, and goes
# to the trainer alone (--foreground), which ends its step, stops its workers and
# saves; the KILL is for a save that hangs
timeout --foreground -s TERM -k 15 "$limit" "$py" -m model.train "${run[@]}" --state "$out/train_state.pt" \
  --minutes "$minutes" --workers "${WORKERS:-16}" --threads "${THREADS:-4}" \
  --cache "${TMPDIR:-/tmp}/scancode-burst-cache" "${extra[@]}" 2>&1 | tee -a "$log"
ls -l "$out"
