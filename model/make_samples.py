"""Renders the sample frames the run command shows: QR codes seen at an angle
on the generator's textured backgrounds, clear of the frame edges the library
ignores. Deterministic; writes samples/*.jpg.

    /usr/bin/python3 -m model.make_samples [--out samples]
"""
import argparse
import os

import cv2
import numpy as np

from model import qrdata

# (file, frame size, codes as (centre x, centre y, side px, tilt degrees), seed)
SAMPLES = [
    ("tilted_label_720p", (1280, 720), [(640, 360, 300, 55)], 11),
    ("headon_code_1080p", (1920, 1080), [(900, 520, 260, 8)], 12),
    ("two_codes_720p", (1280, 720), [(420, 330, 200, 35), (880, 400, 180, 30)], 21),
    ("steep_tilt_1080p", (1920, 1080), [(1000, 560, 420, 65)], 14),
    ("foreshortened_label_720p", (1280, 720), [(640, 370, 330, 50)], 37),
]


def render(size, codes, seed):
    rng = np.random.default_rng(seed)
    w, h = size
    frame = qrdata.background(rng, w, h)
    for cx, cy, side, tilt in codes:
        mat = qrdata.qr_matrix(rng)
        n = mat.shape[0]
        quad = qrdata.tilted_square(rng, tilt)
        ext = quad.max(axis=0) - quad.min(axis=0)
        quad = quad * (side / ext.max())
        quad = quad - quad.mean(axis=0) + np.array([cx, cy])
        module_px = int(np.clip(round(1.3 * side / n), 2, 14))
        quiet = 3
        img = qrdata.render_modules(mat, module_px, (20, 20, 20), (235, 235, 230), quiet + 2)
        o = (quiet + 2) * module_px
        e = o + n * module_px
        src = np.array([[o, o], [e, o], [e, e], [o, e]], np.float32)
        qrdata.paste_warped(frame, img, src, quad.astype(np.float32))
    return qrdata.degrade(rng, qrdata.lighting(rng, frame))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--out", default="samples")
    args = ap.parse_args()
    os.makedirs(args.out, exist_ok=True)
    for name, size, codes, seed in SAMPLES:
        rgb = render(size, codes, seed)
        path = os.path.join(args.out, name + ".jpg")
        cv2.imwrite(path, cv2.cvtColor(rgb, cv2.COLOR_RGB2BGR), [cv2.IMWRITE_JPEG_QUALITY, 92])
        print("wrote", path)


if __name__ == "__main__":
    main()
