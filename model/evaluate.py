"""Measure a model file the way the library uses it.

    /usr/bin/python3 model/evaluate.py --model model/codeDetect_quantized.bin [--frames 300] [--photos DIR]
        [--shifts 0,0.5,1]

The graph runs in OpenCV's dnn (2 threads), its outputs are turned into 8-bit codes
as the reference adapter does and dequantized as the library does; boxes are decoded
with the library's threshold, sort, touch-suppression, mapping back to the frame and
80-pixel edge band. Reports, on held-out synthetic frames, recall at IoU >= 0.5 and
false boxes per frame; and on real photos placed in a preview frame, how often one
box lands on the code.
"""
import argparse
import glob
import math
import os
import sys
import time

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import export  # noqa: E402
import qrdata  # noqa: E402

THRESHOLD = -0.8473
GRIDS = [80, 40, 20, 10, 5]
STRIDES = [8, 16, 32, 64, 128]
EDGE = 80


class Detector:
    def __init__(self, path, threads=2):
        cv2.setNumThreads(threads)
        with open(path, "rb") as fh:
            self.input_name, self.input_form, self.outputs, onnx = export.unpack(fh.read())
        self.net = cv2.dnn.readNetFromONNX(np.frombuffer(onnx, np.uint8))
        self.names = [o[0] for o in self.outputs]

    def forward(self, inp):
        self.net.setInput(export.input_blob(inp, self.input_form), self.input_name, export.INPUT_SCALE)
        return self.net.forward(self.names)

    def maps(self, inp):
        """Dequantized maps, as the library's detector hands them on."""
        res = []
        for y, (_, scale, zp) in zip(self.forward(inp), self.outputs):
            q = np.clip(np.rint(y.astype(np.float64) / np.float64(np.float32(scale))) - zp, 0, 255)
            res.append(((q + zp) * np.float32(scale)).astype(np.float32).reshape(-1, 6))
        return res


def overlap(a, b):
    iw = max(0.0, min(a[2], b[2]) - max(a[0], b[0]) + 1.0)
    ih = max(0.0, min(a[3], b[3]) - max(a[1], b[1]) + 1.0)
    inter = iw * ih
    union = (a[2] - a[0] + 1) * (a[3] - a[1] + 1) + (b[2] - b[0] + 1) * (b[3] - b[1] + 1) - inter
    return inter / union if union > 0 else 0.0


def decode(maps, shift=0.0):
    """Candidates above the threshold, sorted by score, every one touching a better one
    removed. Boxes as x0, y0, x1, y1 in input pixels. `shift` raises the threshold, as
    lowering every score by that much at export would (up to one quantization step)."""
    boxes, scores = [], []
    for m, g, stride in zip(maps, GRIDS, STRIDES):
        half = stride // 2
        keep = np.nonzero(~(m[:, 4].astype(np.float64) < THRESHOLD + shift))[0]
        for k in keep:
            r, c = divmod(int(k), g)
            cx, cy = half + c * stride, half + r * stride
            v = m[k]
            e0, e1 = math.exp(v[0]), math.exp(v[1])
            boxes.append((cx - e0, cy - e1, cx + math.exp(v[2]), cy + math.exp(v[3])))
            scores.append(float(v[4]))
    order = np.argsort(-np.array(scores), kind="stable")[:1000]
    kept = []
    for i in order:
        if all(overlap(boxes[i], boxes[j]) <= 0.0 for j in kept):
            kept.append(i)
    return [boxes[i] for i in kept], [scores[i] for i in kept]


def to_frame(boxes, cols, rows):
    """Map back to frame pixels and clip; returns (all boxes, those clear of the edge band)."""
    ratio = qrdata.letterbox_scale(cols, rows)
    allb, listed = [], []
    for x0, y0, x1, y1 in boxes:
        x, y = max(x0 / ratio, 0.0), max(y0 / ratio, 0.0)
        w, h = (x1 - x0) / ratio, (y1 - y0) / ratio
        w = cols - x if x + w > cols else w
        h = rows - y if y + h > rows else h
        b = (x, y, x + w, y + h)
        allb.append(b)
        if x >= EDGE and y >= EDGE and x + w <= cols - EDGE and y + h <= rows - EDGE:
            listed.append(b)
    return allb, listed


def iou(a, b):
    iw = max(0.0, min(a[2], b[2]) - max(a[0], b[0]))
    ih = max(0.0, min(a[3], b[3]) - max(a[1], b[1]))
    inter = iw * ih
    return inter / ((a[2] - a[0]) * (a[3] - a[1]) + (b[2] - b[0]) * (b[3] - b[1]) - inter + 1e-9)


def pairs(gt, pred, thr=0.5):
    """Greedy matching, each code to its best unused box: [(code index, box index)]."""
    used, out = set(), []
    for i, g in enumerate(gt):
        best, bj = thr, -1
        for j, p in enumerate(pred):
            if j not in used and iou(g, p) >= best:
                best, bj = iou(g, p), j
        if bj >= 0:
            used.add(bj)
            out.append((i, bj))
    return out


def match(gt, pred, thr=0.5):
    """-> (codes found, boxes left over)"""
    found = pairs(gt, pred, thr)
    return len(found), len(pred) - len(found)


def synthetic(det, frames, seed, shifts=(0.0,)):
    """Recall and false boxes on held-out synthetic frames, for each score shift."""
    rng = np.random.default_rng(seed)
    n_gt, empty = 0, 0
    hits, false, false_empty = [0] * len(shifts), [0] * len(shifts), [0] * len(shifts)
    by_size = {}
    found_scores, false_scores = [], []  # unshifted: large codes found, false boxes on code-free frames
    for _ in range(frames):
        frame, gt, _ = qrdata.make_frame(rng)
        inp, s = qrdata.frame_to_input(frame)
        maps = det.maps(inp)
        gt = [tuple(g) for g in gt]
        sizes = [max(g[2] - g[0], g[3] - g[1]) * s for g in gt]  # at input scale
        n_gt += len(gt)
        empty += not gt
        for i, shift in enumerate(shifts):
            boxes, scores = decode(maps, shift)
            allb, _ = to_frame(boxes, frame.shape[1], frame.shape[0])
            found = pairs(gt, allb)
            hits[i] += len(found)
            false[i] += len(allb) - len(found)
            false_empty[i] += 0 if gt else len(allb)
            if i == 0:
                found_scores += [scores[j] for k, j in found if sizes[k] >= 56]
                if not gt:
                    false_scores += scores
                for g, size in zip(gt, sizes):
                    key = "20-56" if size < 56 else "56-120" if size < 120 else "120-240" if size < 240 else "240+"
                    a = by_size.setdefault(key, [0, 0])
                    a[0] += match([g], allb)[0]
                    a[1] += 1
    print(f"synthetic: {frames} frames ({empty} without a code), {n_gt} codes")
    for i, shift in enumerate(shifts):
        print(f"  score shift {shift:.2f}: recall@0.5 {hits[i] / max(n_gt, 1):.3f}, false boxes/frame "
              f"{false[i] / frames:.3f}, on code-free frames {false_empty[i] / max(empty, 1):.3f}")
    for k in ["20-56", "56-120", "120-240", "240+"]:
        if k in by_size:
            print(f"  codes {k} px at input scale: recall {by_size[k][0] / by_size[k][1]:.3f} (n={by_size[k][1]})")
    # How far apart the two kinds of box score: a threshold can only separate
    # what these ranges do not share.
    if found_scores:
        q = np.percentile(found_scores, [10, 50, 90])
        print(f"  score logits, found codes of 56 px and more: p10 {q[0]:.2f}, median {q[1]:.2f}, p90 {q[2]:.2f}")
    if false_scores:
        print(f"  score logits, false boxes on code-free frames: median {np.median(false_scores):.2f}, "
              f"max {max(false_scores):.2f} (n={len(false_scores)})")


def photos(det, root):
    qd = cv2.QRCodeDetector()
    files = sorted(glob.glob(os.path.join(root, "*", "*.png")))
    one = some = gt_n = gt_hit = 0
    for path in files:
        img = cv2.cvtColor(cv2.imread(path), cv2.COLOR_BGR2RGB)
        big = cv2.resize(img, (480, 480), interpolation=cv2.INTER_LINEAR)
        frame = np.full((720, 1280, 3), 128, np.uint8)
        ox, oy = (1280 - 480) // 2, (720 - 480) // 2
        frame[oy:oy + 480, ox:ox + 480] = big
        inp, _ = qrdata.frame_to_input(frame)
        boxes, _ = decode(det.maps(inp))
        _, listed = to_frame(boxes, 1280, 720)
        some += bool(listed)
        one += len(listed) == 1
        ok, pts = qd.detect(cv2.cvtColor(big, cv2.COLOR_RGB2BGR))
        if ok and pts is not None:
            p = pts.reshape(-1, 2) + [ox, oy]
            g = (p[:, 0].min(), p[:, 1].min(), p[:, 0].max(), p[:, 1].max())
            gt_n += 1
            gt_hit += match([g], listed)[0]
    n = len(files)
    print(f"photos: {n} frames, >=1 box {some}/{n}, exactly 1 box {one}/{n}; "
          f"where OpenCV's QR detector finds the code ({gt_n}), box at IoU>=0.5: {gt_hit}/{gt_n}")


def timing(det, runs=30):
    x = np.random.default_rng(0).integers(0, 256, (640, 640, 3), dtype=np.uint8)
    det.forward(x)
    ts = []
    for _ in range(runs):
        t = time.perf_counter()
        det.forward(x)
        ts.append(time.perf_counter() - t)
    print(f"forward (OpenCV dnn, {cv2.getNumThreads()} threads): median {1000 * np.median(ts):.1f} ms, "
          f"min {1000 * min(ts):.1f} ms")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--model", required=True)
    ap.add_argument("--frames", type=int, default=300)
    ap.add_argument("--seed", type=int, default=987654)
    ap.add_argument("--photos", default="")
    ap.add_argument("--no-timing", action="store_true")
    ap.add_argument("--shifts", default="0", help="comma-separated score shifts to compare (synthetic only)")
    args = ap.parse_args()
    det = Detector(args.model)
    if not args.no_timing:
        timing(det)
    if args.frames:
        synthetic(det, args.frames, args.seed, [float(v) for v in args.shifts.split(",")])
    if args.photos:
        photos(det, args.photos)


if __name__ == "__main__":
    main()
