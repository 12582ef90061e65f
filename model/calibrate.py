"""Choose the score shift a model file is exported with, on held-out synthetic frames.

    /usr/bin/python3 -m model.calibrate --model FILE [--frames 300]     # prints the shift

The score is trained to say how well a cell's box fits its code, so a found code
scores well above the library's fixed threshold while look-alikes (tilings, coins,
letters) hover just above it. Lowering every score logit by a shift at export trades
a little recall for far fewer false boxes. Each head gets its own shift: a large code
scores far above any look-alike, a small one barely above the tiles and letters of
its size. The shifts are chosen here, on frames of the training distribution that
training never sees (their own seed), never on the evaluation's pictures: head by
head from the coarsest, the largest shift that keeps recall of codes of 24 input px
and more within a quarter point more of the unshifted recall, one point in all.

The graph runs in OpenCV's dnn as the reference adapter runs it; its outputs are
turned into 8-bit codes and back as the adapter and library do, and decoded with the
library's threshold, score sort and touch suppression. Rendered frames are kept in
model/cache/ so a second calibration costs only the network's passes.
"""
import argparse
import math
import os
import sys

import cv2
import numpy as np

from model import export, layout
from model import net as netmod
from model import qrdata

HERE = os.path.dirname(os.path.abspath(__file__))
THRESHOLD = layout.SCORE_THRESHOLD_LOGIT
HELD_OUT_SEED = 999983  # never a training seed
SHIFTS = [round(0.1 * k, 1) for k in range(31)]
MIN_SIZE = 24.0  # input px: recall of codes at least this large is what a shift may not cost
RECALL_SLACK = 0.01


def held_out(frames, cache):
    """(luma input, code boxes in input px) of held-out frame 0 .. frames-1."""
    os.makedirs(cache, exist_ok=True)
    out = []
    for i in range(frames):
        path = os.path.join(cache, f"heldout-{HELD_OUT_SEED}-{i:05d}.npz")
        if not os.path.exists(path):
            inp, boxes = qrdata.make_sample(np.random.default_rng([HELD_OUT_SEED, i]))
            np.savez(path, img=netmod.luma(inp)[..., 0], boxes=boxes.astype(np.float32))
        with np.load(path) as z:
            out.append((z["img"], z["boxes"]))
    return out


class Detector:
    def __init__(self, path):
        cv2.setNumThreads(2)
        with open(path, "rb") as fh:
            self.input_name, self.input_form, _, self.outputs, onnx = export.unpack(fh.read())
        assert self.input_form == export.INPUT_LUMA
        self.net = cv2.dnn.readNetFromONNX(np.frombuffer(onnx, np.uint8))

    def maps(self, luma):
        """The dequantized maps the library decodes, one row of six values per cell."""
        self.net.setInput(luma[None, None], self.input_name, export.INPUT_SCALE)
        res = []
        for y, (_, scale, zp) in zip(self.net.forward([o[0] for o in self.outputs]), self.outputs):
            q = np.clip(np.rint(y.astype(np.float64) / np.float64(np.float32(scale))) - zp, 0, 255)
            res.append(((q + zp) * np.float32(scale)).astype(np.float32).reshape(-1, layout.VALUES_PER_CELL))
        return res


def touches(a, b):
    """The library's overlap test at its threshold of 0: inclusive pixel boxes meet."""
    return min(a[2], b[2]) - max(a[0], b[0]) + 1.0 > 0 and min(a[3], b[3]) - max(a[1], b[1]) + 1.0 > 0


def decode(maps, shifts):
    """Boxes (x0, y0, x1, y1, input px) the library keeps when each trained head's
    logits are its shift lower (up to one quantization step): threshold, score sort,
    touch suppression."""
    boxes, scores = [], []
    for m, stride, g, shift in zip(maps, layout.STRIDES, layout.GRIDS, list(shifts) + [0.0]):
        for k in np.nonzero(m[:, 4].astype(np.float64) >= THRESHOLD + shift)[0]:
            r, c = divmod(int(k), g)
            cx, cy = stride // 2 + c * stride, stride // 2 + r * stride
            v = m[k]
            boxes.append((cx - math.exp(v[0]), cy - math.exp(v[1]), cx + math.exp(v[2]), cy + math.exp(v[3])))
            scores.append(float(v[4]))
    kept = []
    for i in np.argsort(-np.array(scores), kind="stable")[:1000]:
        if not any(touches(boxes[i], boxes[j]) for j in kept):
            kept.append(i)
    return [boxes[i] for i in kept]


def iou(a, b):
    iw = max(0.0, min(a[2], b[2]) - max(a[0], b[0]))
    ih = max(0.0, min(a[3], b[3]) - max(a[1], b[1]))
    inter = iw * ih
    return inter / ((a[2] - a[0]) * (a[3] - a[1]) + (b[2] - b[0]) * (b[3] - b[1]) - inter + 1e-9)


def tally(all_maps, truths, shifts):
    """(recall of codes >= MIN_SIZE, false boxes per frame) with these head shifts."""
    found = codes = false = 0
    for maps, truth in zip(all_maps, truths):
        boxes = decode(maps, shifts)
        used = set()
        for t in truth:
            big = max(t[2] - t[0], t[3] - t[1]) >= MIN_SIZE
            codes += big
            best = max(((iou(t, b), j) for j, b in enumerate(boxes) if j not in used), default=(0.0, -1))
            if best[0] >= 0.5:
                used.add(best[1])
                found += big
        false += len(boxes) - len(used)
    return found / max(codes, 1), false / max(len(truths), 1)


def choose(all_maps, truths, log=sys.stderr):
    """Per-head shifts, coarsest head first, each the largest that keeps recall within
    its share of the slack."""
    shifts = [0.0] * 4
    base, false = tally(all_maps, truths, shifts)
    print(f"unshifted: recall >= {MIN_SIZE:.0f} px {base:.3f}, false boxes per frame {false:.3f}", file=log)
    for n, h in enumerate(reversed(range(4))):
        floor = base - RECALL_SLACK * (n + 1) / 4
        for shift in SHIFTS[1:]:
            trial = shifts[:h] + [shift] + shifts[h + 1 :]
            recall, false_t = tally(all_maps, truths, trial)
            if recall < floor:
                break
            shifts, false = trial, false_t
        print(
            f"head {h}: shift {shifts[h]:.1f}, recall {tally(all_maps, truths, shifts)[0]:.3f}, "
            f"false boxes per frame {false:.3f}",
            file=log,
        )
    return shifts


def main(argv=None):
    ap = argparse.ArgumentParser()
    ap.add_argument("--model", required=True)
    ap.add_argument("--frames", type=int, default=300)
    ap.add_argument("--cache", default=os.path.join(HERE, "cache"))
    args = ap.parse_args(argv)
    det = Detector(args.model)
    frames = held_out(args.frames, args.cache)
    shifts = choose([det.maps(luma) for luma, _ in frames], [truth for _, truth in frames])
    print(",".join(f"{s:.1f}" for s in shifts))


if __name__ == "__main__":
    main()
