"""Synthetic training frames for the QR detector.

Every frame goes through the same path a real preview frame takes inside the
library: an RGB picture of a preview size is encoded to NV21 the way a camera
does (BT.601 limited range, 2x2 chroma), decoded with the library's own 16-bit
decoder arithmetic (wrap-around and chroma pairing included), then letterboxed
to 640 x 640 anchored at the top-left with black padding. The network therefore
sees exactly the input distribution it meets at run time.
"""
import glob
import math
import os
import string

import cv2
import numpy as np
import segno

from model import layout

FRAME_SIZES = [(1280, 720)] * 5 + [(1920, 1080)] * 3 + [(1280, 960), (720, 1280), (1440, 1080)]
EC_LEVELS = ["l", "m", "q", "h"]
ALPHABET = string.ascii_letters + string.digits + "/:.-_?=&%"


# --- colour path ------------------------------------------------------------


def rgb_to_nv21(rgb):
    """Camera-side encoder: BT.601 limited range, chroma averaged over 2x2, V before U."""
    h, w, _ = rgb.shape
    f = rgb.astype(np.int32)
    r, g, b = f[..., 0], f[..., 1], f[..., 2]
    y = np.clip(16 + ((66 * r + 129 * g + 25 * b + 128) >> 8), 0, 255).astype(np.uint8)
    f16 = rgb.astype(np.uint16)
    sub = (f16[0::2, 0::2] + f16[0::2, 1::2] + f16[1::2, 0::2] + f16[1::2, 1::2] + 2) >> 2
    sub = sub.astype(np.int32)
    r, g, b = sub[..., 0], sub[..., 1], sub[..., 2]
    v = np.clip(128 + ((112 * r - 94 * g - 18 * b + 128) >> 8), 0, 255)
    u = np.clip(128 + ((-38 * r - 74 * g + 112 * b + 128) >> 8), 0, 255)
    vu = np.stack([v, u], axis=-1).reshape(h // 2, w).astype(np.uint8)
    return np.concatenate([y.reshape(-1), vu.reshape(-1)])


def _wrap16(x):
    return ((x + 32768) & 0xFFFF) - 32768


def decode_nv21(nv21, w, h):
    """The library's decoder, byte for byte: 16-bit lanes, wrapping products, first
    chroma byte of a pair (V) to channel 0 with gain 455, the second (U) to channel 2."""
    y = nv21[: w * h].reshape(h, w).astype(np.int32)
    chroma = nv21[w * h :].reshape(-1, w)[np.arange(h) // 2].astype(np.int32)
    c0 = np.repeat(chroma[:, 0::2] - 128, 2, axis=1)
    c1 = np.repeat(chroma[:, 1::2] - 128, 2, axis=1)
    ch0 = y + (_wrap16(455 * c0) >> 8)
    ch1 = y - (_wrap16(_wrap16(88 * c0) + _wrap16(184 * c1)) >> 8)
    ch2 = y + (_wrap16(360 * c1) >> 8)
    return np.clip(np.stack([ch0, ch1, ch2], axis=-1), 0, 255).astype(np.uint8)


def letterbox_scale(w, h):
    return float(min(np.float32(layout.INPUT_SIDE) / np.float32(w), np.float32(layout.INPUT_SIDE) / np.float32(h)))


def letterbox(img):
    """Resize by min(640/w, 640/h) (single precision, sizes truncated) and pad
    bottom and right with black, as the library prepares its input."""
    h, w = img.shape[:2]
    s = np.float32(letterbox_scale(w, h))
    nw, nh = int(s * np.float32(w)), int(s * np.float32(h))
    small = cv2.resize(img, (nw, nh), interpolation=cv2.INTER_LINEAR)
    out = np.zeros((layout.INPUT_SIDE, layout.INPUT_SIDE, 3), np.uint8)
    out[:nh, :nw] = small
    return out, float(s)


def frame_to_input(rgb):
    """RGB preview frame -> the library's 640 x 640 uint8 network input."""
    h, w = rgb.shape[:2]
    return letterbox(decode_nv21(rgb_to_nv21(rgb), w, h))


# --- geometry -----------------------------------------------------------------


def tilted_square(rng, max_tilt_deg):
    """Corners of a unit square seen by a pinhole camera after a random 3-D rotation."""
    tilt = math.radians(rng.uniform(0, max_tilt_deg))
    axis = rng.uniform(0, 2 * math.pi)
    rx, ry = tilt * math.cos(axis), tilt * math.sin(axis)
    rz = rng.uniform(-math.pi, math.pi)
    cx, sx, cy, sy, cz, sz = math.cos(rx), math.sin(rx), math.cos(ry), math.sin(ry), math.cos(rz), math.sin(rz)
    rmx = np.array([[1, 0, 0], [0, cx, -sx], [0, sx, cx]])
    rmy = np.array([[cy, 0, sy], [0, 1, 0], [-sy, 0, cy]])
    rmz = np.array([[cz, -sz, 0], [sz, cz, 0], [0, 0, 1]])
    pts = np.array([[-0.5, -0.5, 0], [0.5, -0.5, 0], [0.5, 0.5, 0], [-0.5, 0.5, 0]])
    dist = rng.uniform(1.6, 4.0)
    p = pts @ (rmy @ rmx @ rmz).T + np.array([0, 0, dist])
    q = p[:, :2] / p[:, 2:3]
    return q - q.mean(axis=0)


def paste_warped(frame, src, src_quad, dst_quad, mask=None):
    """Warp `src` so that `src_quad` lands on `dst_quad` and blend it into `frame`
    (only the destination's bounding region is touched). Returns the homography."""
    hm = cv2.getPerspectiveTransform(src_quad.astype(np.float32), dst_quad.astype(np.float32))
    sh, sw = src.shape[:2]
    corners = np.array([[0, 0], [sw, 0], [sw, sh], [0, sh]], np.float32).reshape(-1, 1, 2)
    pc = cv2.perspectiveTransform(corners, hm).reshape(-1, 2)
    fh, fw = frame.shape[:2]
    x0, y0 = max(int(math.floor(pc[:, 0].min())) - 1, 0), max(int(math.floor(pc[:, 1].min())) - 1, 0)
    x1, y1 = min(int(math.ceil(pc[:, 0].max())) + 1, fw), min(int(math.ceil(pc[:, 1].max())) + 1, fh)
    if x1 <= x0 or y1 <= y0:
        return hm
    shift = np.array([[1, 0, -x0], [0, 1, -y0], [0, 0, 1]], np.float64)
    hs = shift @ hm
    size = (x1 - x0, y1 - y0)
    warped = cv2.warpPerspective(src, hs, size, flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_CONSTANT)
    alpha_src = np.full((sh, sw), 255, np.uint8) if mask is None else mask
    alpha = cv2.warpPerspective(alpha_src, hs, size, flags=cv2.INTER_LINEAR).astype(np.float32) / 255.0
    roi = frame[y0:y1, x0:x1].astype(np.float32)
    if warped.ndim == 2:
        warped = warped[..., None]
    frame[y0:y1, x0:x1] = (roi * (1 - alpha[..., None]) + warped * alpha[..., None]).astype(np.uint8)
    return hm


# --- content --------------------------------------------------------------------


def random_text(rng, lo, hi):
    n = int(rng.integers(lo, hi + 1))
    return "".join(rng.choice(list(ALPHABET), n))


def qr_matrix(rng):
    n = int(rng.choice([4, 8, 16, 30, 60, 120, 250]) * rng.uniform(0.5, 1.5)) + 1
    data = ("https://" if rng.random() < 0.5 else "") + random_text(rng, n, n)
    try:
        code = segno.make(data, error=str(rng.choice(EC_LEVELS)), micro=False, boost_error=False)
    except Exception:
        code = segno.make(data[:20], error="l", micro=False)
    return np.array(code.matrix, np.uint8)


def ink_and_paper(rng):
    if rng.random() < 0.8:
        ink = np.full(3, rng.uniform(0, 90))
    else:
        ink = rng.uniform(0, 120, 3)
    paper = rng.uniform(165, 255) - rng.uniform(0, 25, 3)
    if rng.random() < 0.04:
        ink, paper = paper, ink
    return ink, paper


def render_modules(matrix, module_px, ink, paper, quiet):
    """Module matrix -> RGB picture with `quiet` modules of paper around it."""
    m = np.pad(matrix, quiet, constant_values=0)
    big = np.kron(m, np.ones((module_px, module_px), np.uint8)).astype(np.float32)[..., None]
    img = paper * (1 - big) + ink * big
    return img.clip(0, 255).astype(np.uint8)


# Natural photos from Debian's MATE and UKUI wallpaper packages. GNOME's wallpapers
# and scikit-image's samples are kept apart: the evaluation uses them as QR-free
# pictures, so the detector must never have seen them.
PHOTO_GLOBS = [
    "/usr/share/backgrounds/mate/*/*.jpg",
    "/usr/share/backgrounds/mate/*/*.png",
    "/usr/share/backgrounds/*.jpg",
    "/usr/share/backgrounds/*.png",
]
_photos = None


def photo_paths():
    return sorted(
        p
        for p in {p for g in PHOTO_GLOBS for p in glob.glob(g)}
        if "/gnome/" not in p and os.path.getsize(p) <= 12 << 20
    )


def photos():
    """The wallpaper pictures, decoded once per process and kept at most 1600 px wide."""
    global _photos
    if _photos is None:
        _photos = []
        for path in photo_paths():
            img = cv2.imread(path, cv2.IMREAD_COLOR)
            if img is None:
                continue
            f = min(1.0, 1600.0 / max(img.shape[:2]))
            if f < 1.0:
                img = cv2.resize(img, None, fx=f, fy=f, interpolation=cv2.INTER_AREA)
            _photos.append(img[..., ::-1].copy())
    return _photos


def photo_background(rng, w, h):
    """A random crop of a wallpaper photo, scaled, flipped and colour-shifted."""
    pool = photos()
    if not pool:
        return None
    img = pool[int(rng.integers(len(pool)))]
    if rng.random() < 0.5:
        img = img[:, ::-1]
    if rng.random() < 0.3:
        img = np.rot90(img)
    ih, iw = img.shape[:2]
    zoom = rng.uniform(0.25, 1.0)
    cw, ch = max(16, int(iw * zoom)), max(16, int(iw * zoom * h / w))
    if ch > ih:
        ch, cw = ih, max(16, int(ih * w / h))
    x, y = int(rng.integers(0, iw - cw + 1)), int(rng.integers(0, ih - ch + 1))
    out = cv2.resize(np.ascontiguousarray(img[y : y + ch, x : x + cw]), (w, h), interpolation=cv2.INTER_LINEAR)
    gain = rng.uniform(0.6, 1.3) * rng.uniform(0.85, 1.15, 3)
    return (out.astype(np.float32) * gain + rng.uniform(-30, 30)).clip(0, 255).astype(np.uint8)


def _two_colours(rng):
    a, b = rng.uniform(0, 255, 3), rng.uniform(0, 255, 3)
    if rng.random() < 0.5:  # often strong contrast, as the hard cases are
        dark = np.full(3, rng.uniform(0, 80)) + rng.uniform(0, 40, 3)
        light = np.full(3, rng.uniform(170, 255)) - rng.uniform(0, 40, 3)
        a, b = dark, light
    return a, b


def pattern(rng, w, h):
    """Regular man-made textures that fool a detector of square module patterns:
    truchet and pixel-art tilings, identicon-like symmetric blocks, coins, bricks,
    halftone dots and pages of text."""
    a, b = _two_colours(rng)
    kind = int(rng.integers(7))
    cell = int(rng.integers(6, 64))
    gw, gh = w // cell + 2, h // cell + 2
    if kind == 0:  # truchet: quarter arcs or half-filled squares in random orientations
        tile = np.zeros((cell, cell), np.uint8)
        if rng.random() < 0.5:
            th = max(1, cell // int(rng.integers(3, 8)))
            cv2.circle(tile, (0, 0), cell // 2, 1, th)
            cv2.circle(tile, (cell, cell), cell // 2, 1, th)
        else:
            tile = np.tri(cell, cell, dtype=np.uint8)
        tiles = [np.rot90(tile, k) for k in range(4)]
        pick = rng.integers(0, 4, (gh, gw))
        mask = np.block([[tiles[k] for k in row] for row in pick])
    elif kind == 1:  # pixel art: a coarse random grid of a few colours
        n = int(rng.integers(2, 7))
        pal = rng.uniform(0, 255, (n, 3))
        idx = rng.integers(0, n, (gh, gw))
        img = pal[idx].astype(np.float32)
        img = cv2.resize(img, (gw * cell, gh * cell), interpolation=cv2.INTER_NEAREST)
        return img[:h, :w].clip(0, 255).astype(np.uint8)
    elif kind == 2:  # identicons: mirrored 5x5 blocks spaced on a grid
        k = int(rng.integers(4, 9))
        mask = np.zeros((gh * k, gw * k), np.uint8)
        for r in range(0, gh * k, k + 1):
            for c in range(0, gw * k, k + 1):
                half = rng.random((k, (k + 1) // 2)) < 0.5
                block = np.concatenate([half, half[:, : k // 2][:, ::-1]], axis=1)
                mask[r : r + k, c : c + k] = block[: mask.shape[0] - r, : mask.shape[1] - c]
        mask = cv2.resize(mask, (gw * cell, gh * cell), interpolation=cv2.INTER_NEAREST)
    elif kind == 3:  # coins
        img = np.empty((h, w, 3), np.float32)
        img[:] = a
        for _ in range(int(rng.integers(3, 40))):
            r = int(rng.uniform(0.02, 0.2) * min(w, h))
            cx, cy = int(rng.integers(0, w)), int(rng.integers(0, h))
            col = tuple(float(v) for v in b * rng.uniform(0.6, 1.1))
            cv2.circle(img, (cx, cy), r, col, -1, cv2.LINE_AA)
            cv2.circle(
                img,
                (cx, cy),
                int(r * rng.uniform(0.75, 0.92)),
                tuple(v * 0.8 for v in col),
                max(1, r // 12),
                cv2.LINE_AA,
            )
            for _ in range(int(rng.integers(0, 6))):  # embossed marks
                px, py = cx + int(rng.uniform(-0.5, 0.5) * r), cy + int(rng.uniform(-0.5, 0.5) * r)
                cv2.rectangle(
                    img, (px, py), (px + max(1, r // 6), py + max(1, r // 6)), tuple(v * 0.6 for v in col), -1
                )
        img += rng.normal(0, 6, (h, w, 1)).astype(np.float32)
        return img.clip(0, 255).astype(np.uint8)
    elif kind == 4:  # bricks or tiles with mortar
        mask = np.ones((gh * cell, gw * cell), np.uint8)
        bw = cell * int(rng.integers(1, 4))
        mortar = max(1, cell // int(rng.integers(4, 12)))
        for r in range(gh):
            mask[r * cell : r * cell + mortar] = 0
            off = (bw // 2) * (r % 2) if rng.random() < 0.7 else 0
            for x in range(-off, gw * cell, bw):
                mask[r * cell : (r + 1) * cell, max(x, 0) : max(x, 0) + mortar] = 0
    elif kind == 5:  # halftone dots
        mask = np.zeros((gh * cell, gw * cell), np.uint8)
        rad = rng.uniform(0.15, 0.5, (gh, gw)) * cell
        for r in range(gh):
            for c in range(gw):
                cv2.circle(mask, (c * cell + cell // 2, r * cell + cell // 2), int(rad[r, c]), 1, -1)
    else:  # a page of text
        img = np.empty((h, w, 3), np.uint8)
        img[:] = b
        scale = rng.uniform(0.3, 1.2)
        step = max(8, int(30 * scale))
        for y in range(step, h, step):
            cv2.putText(
                img,
                random_text(rng, 20, 120),
                (int(rng.integers(-20, 20)), y),
                int(rng.integers(0, 8)),
                scale,
                tuple(float(v) for v in a),
                max(1, int(scale * 2)),
            )
        return img
    mask = mask[:h, :w].astype(np.float32)[..., None]
    return (a * mask + b * (1 - mask)).clip(0, 255).astype(np.uint8)


def sprite(rng, size):
    """Pixel art: a mirrored blob of a few flat colours with a dark outline, now and
    then drawn as an isometric tile, as icons and game sprites are."""
    n = int(rng.integers(5, 17))
    half = rng.random((n, (n + 1) // 2)) < rng.uniform(0.4, 0.8)
    shape = np.concatenate([half, half[:, : n // 2][:, ::-1]], axis=1).astype(np.uint8)
    pal = rng.uniform(0, 255, (int(rng.integers(2, 6)), 3))
    colours = pal[rng.integers(0, len(pal), (n, n))]
    if rng.random() < 0.5:  # symmetric colouring too
        colours[:, n - n // 2 :] = colours[:, : n // 2][:, ::-1]
    shape = np.pad(shape, 1)
    colours = np.pad(colours, ((1, 1), (1, 1), (0, 0)))
    outline = cv2.dilate(shape, np.ones((3, 3), np.uint8)) - shape
    img = np.where(shape[..., None] > 0, colours, 0.0)
    img = np.where(outline[..., None] > 0, rng.uniform(0, 60), img).astype(np.float32)
    mask = ((shape + outline) > 0).astype(np.uint8) * 255
    big = int(max(size, n + 2))
    img = cv2.resize(img, (big, big), interpolation=cv2.INTER_NEAREST)
    mask = cv2.resize(mask, (big, big), interpolation=cv2.INTER_NEAREST)
    if rng.random() < 0.4:  # isometric: turned 45 degrees and squashed to half height
        m = cv2.getRotationMatrix2D((big / 2, big / 2), 45, 0.7)
        m[1] *= 0.55
        m[1, 2] += big * 0.2
        img = cv2.warpAffine(img, m, (big, big), flags=cv2.INTER_NEAREST)
        mask = cv2.warpAffine(mask, m, (big, big), flags=cv2.INTER_NEAREST)
    return img.clip(0, 255).astype(np.uint8), mask


def coin(rng, size):
    """A coin seen from above: a metal disc with a rim and relief, the relief taken from
    the edges of a photo so that it has a picture's irregular detail."""
    size = int(max(size, 8))
    tone = rng.uniform(90, 230) * rng.uniform(0.85, 1.1, 3)
    img = np.empty((size, size, 3), np.float32)
    img[:] = tone
    src = photo_background(rng, size, size)
    if src is not None:
        g = cv2.cvtColor(src, cv2.COLOR_RGB2GRAY).astype(np.float32)
        relief = g - cv2.GaussianBlur(g, (0, 0), max(1.0, size / 20))
        img += rng.uniform(1.0, 3.0) * relief[..., None]
    c, r = size / 2, size / 2 - 1
    yy, xx = np.mgrid[0:size, 0:size].astype(np.float32)
    d = np.hypot(xx - c + 0.5, yy - c + 0.5)
    img *= (1 - 0.35 * (np.abs(d - r * 0.88) < max(1.0, size / 25)))[..., None]  # the rim's groove
    img *= (1.15 - 0.3 * (xx + yy) / (2 * size))[..., None]  # light from one side
    mask = (np.clip(r - d + 0.5, 0, 1) * 255).astype(np.uint8)
    return img.clip(0, 255).astype(np.uint8), mask


def scatter(rng, w, h):
    """Many small things on a plain surface: sprites, coins, photo thumbnails and
    glyphs of 12 to 90 input pixels. A lone small square of detail on a quiet
    background is what a small code looks like, so these are the look-alikes a
    detector must learn to refuse."""
    surface = np.empty((h, w, 3), np.uint8)
    surface[:] = rng.uniform(0, 255) + rng.uniform(-40, 40, 3)
    if rng.random() < 0.4:
        surface = cv2.addWeighted(surface, 0.5, procedural_background(rng, w, h), 0.5, 0)
    s = letterbox_scale(w, h)
    kind_odds = rng.dirichlet(np.ones(4))
    for _ in range(int(rng.integers(8, 60))):
        size = int(math.exp(rng.uniform(math.log(12), math.log(90))) / s)
        kind = int(rng.choice(4, p=kind_odds))
        if kind == 0:
            img, mask = sprite(rng, size)
        elif kind == 1:
            img, mask = coin(rng, size)
        elif kind == 2:
            img = photo_background(rng, size, size)
            if img is None:
                continue
            mask = None
        else:
            img = np.empty((size, size, 3), np.uint8)
            img[:] = rng.uniform(0, 255, 3)
            cv2.putText(
                img,
                random_text(rng, 1, 2),
                (int(size * 0.1), int(size * 0.85)),
                int(rng.integers(0, 8)),
                size / 30.0,
                tuple(float(v) for v in rng.uniform(0, 255, 3)),
                max(1, size // 12),
            )
            mask = None
        sh, sw = img.shape[:2]
        q = tilted_square(rng, 30)
        quad = q * (max(sw, sh) / (q.max(axis=0) - q.min(axis=0)).max()) + [rng.uniform(0, w), rng.uniform(0, h)]
        paste_warped(surface, img, np.array([[0, 0], [sw, 0], [sw, sh], [0, sh]], np.float32), quad, mask)
    return surface


# Shares of the backgrounds: natural photos, small things scattered on a surface,
# man-made patterns; the rest is smooth procedural clutter.
BACKGROUND_SHARES = (0.45, 0.15, 0.2)


def background(rng, w, h, shares=BACKGROUND_SHARES):
    """Natural photos, small things scattered on a surface, man-made patterns warped
    like a surface seen at an angle, or smooth procedural clutter, in `shares`."""
    photo, scattered, patterns = shares
    kind = rng.random()
    if kind < photo:
        img = photo_background(rng, w, h)
        if img is not None:
            return img
    if kind < photo + scattered:
        return scatter(rng, w, h)
    if kind < photo + scattered + patterns:
        img = pattern(rng, w, h)
        if rng.random() < 0.5:
            q = tilted_square(rng, 50)
            quad = q / (q.max(axis=0) - q.min(axis=0)).max() * max(w, h) * rng.uniform(1.2, 2.0) + [w / 2, h / 2]
            src = np.array([[0, 0], [w, 0], [w, h], [0, h]], np.float32)
            img = cv2.warpPerspective(
                img, cv2.getPerspectiveTransform(src, quad.astype(np.float32)), (w, h), borderMode=cv2.BORDER_REFLECT
            )
        return img
    return procedural_background(rng, w, h)


def procedural_background(rng, w, h):
    kind = rng.random()
    # real scenes are rarely saturated: colours are pulled towards grey
    grey = rng.uniform(0, 255)
    base = grey + rng.uniform(0, 0.6) * (rng.uniform(0, 255, 3) - grey)
    img = np.empty((h, w, 3), np.float32)
    img[:] = base
    # smooth variation from a few octaves of upsampled noise, mostly in brightness
    for octave in range(int(rng.integers(1, 4))):
        cells = int(rng.integers(2, 40))
        shape = (cells, max(2, cells * w // h))
        amp = rng.uniform(5, 60)
        noise = rng.normal(0, amp, shape + (1,)) + rng.normal(0, amp * rng.uniform(0, 0.4), shape + (3,))
        img += cv2.resize(noise.astype(np.float32), (w, h), interpolation=cv2.INTER_CUBIC)
    if kind < 0.3:  # fine grain / fabric-like texture
        tex = rng.normal(0, rng.uniform(5, 40), (h // 4 + 1, w // 4 + 1, 1)).astype(np.float32)
        interpolation = cv2.INTER_NEAREST if rng.random() < 0.5 else cv2.INTER_LINEAR
        img += cv2.resize(tex, (w, h), interpolation=interpolation)[..., None]
    img = img.clip(0, 255).astype(np.uint8)
    # clutter: shapes and lines
    for _ in range(int(rng.integers(0, 25))):
        g = rng.uniform(0, 255)
        col = tuple(float(g + 0.5 * (c - g)) for c in rng.uniform(0, 255, 3))
        t = rng.random()
        x, y = int(rng.integers(0, w)), int(rng.integers(0, h))
        if t < 0.35:
            cv2.rectangle(
                img,
                (x, y),
                (x + int(rng.integers(5, w // 3)), y + int(rng.integers(5, h // 3))),
                col,
                -1 if rng.random() < 0.6 else int(rng.integers(1, 8)),
            )
        elif t < 0.6:
            cv2.circle(
                img, (x, y), int(rng.integers(3, h // 4)), col, -1 if rng.random() < 0.5 else int(rng.integers(1, 6))
            )
        else:
            cv2.line(img, (x, y), (int(rng.integers(0, w)), int(rng.integers(0, h))), col, int(rng.integers(1, 10)))
    return img


def distractor(rng, size):
    """A square-ish picture that is not a QR code: text, 1-D barcode, checkerboard,
    random module grid without finder patterns, a lone finder-like target, data matrix-like."""
    ink, paper = ink_and_paper(rng)
    t = rng.random()
    if t < 0.3:  # a patch of a hard pattern: coins, tiles, identicons, dots
        return pattern(rng, size, size)
    t = (t - 0.3) / 0.7
    if t < 0.25:
        img = np.empty((size, size, 3), np.uint8)
        img[:] = paper
        lines = int(rng.integers(1, 8))
        for i in range(lines):
            scale = size / 260.0 * rng.uniform(0.6, 1.6)
            cv2.putText(
                img,
                random_text(rng, 4, 14),
                (int(size * 0.03), int((i + 1) * size / (lines + 0.5))),
                int(rng.integers(0, 8)),
                scale,
                tuple(float(c) for c in ink),
                max(1, int(scale * 2)),
            )
        return img
    if t < 0.45:  # 1-D barcode
        bars = rng.integers(1, 5, int(rng.integers(30, 90)))
        row = np.repeat(np.arange(len(bars)) % 2, bars)
        mod = np.tile(row, (max(8, len(row) // 2), 1)).astype(np.uint8)
        img = render_modules(mod, max(1, size // len(row)), ink, paper, 4)
        return cv2.resize(img, (size, int(size * rng.uniform(0.3, 0.8))))
    if t < 0.6:  # checkerboard
        n = int(rng.integers(3, 14))
        mod = (np.add.outer(np.arange(n), np.arange(n)) % 2).astype(np.uint8)
        return cv2.resize(render_modules(mod, 8, ink, paper, 1), (size, size), interpolation=cv2.INTER_NEAREST)
    if t < 0.8:  # random module grid (no finder patterns), optionally with a solid border like a data matrix
        n = int(rng.integers(10, 50))
        mod = (rng.random((n, n)) < rng.uniform(0.3, 0.6)).astype(np.uint8)
        if rng.random() < 0.4:
            mod[:, 0] = 1
            mod[-1, :] = 1
            mod[0, ::2] = 1
            mod[::2, -1] = 1
        return cv2.resize(render_modules(mod, 4, ink, paper, 2), (size, size), interpolation=cv2.INTER_NEAREST)
    # a lone concentric square target, or a pattern of nested frames
    n = 7 * int(rng.integers(1, 3))
    mod = np.zeros((n, n), np.uint8)
    for k in range(n // 2 + 1):
        mod[k : n - k, k : n - k] = (k + 1) % 2 if k != n // 2 else 1
    return cv2.resize(render_modules(mod, 8, ink, paper, 2), (size, size), interpolation=cv2.INTER_NEAREST)


def lighting(rng, img):
    """Gain gradient, soft shadow edge and glare, all smooth: computed on a coarse
    grid and resized to the frame."""
    fh, fw = img.shape[:2]
    h, w = fh // 8, fw // 8
    gain = np.ones((h, w), np.float32)
    glare = np.zeros((h, w), np.float32)
    yy, xx = np.mgrid[0:h, 0:w].astype(np.float32)
    if rng.random() < 0.7:  # gain gradient
        ang = rng.uniform(0, 2 * math.pi)
        ramp = (xx * math.cos(ang) + yy * math.sin(ang)) / max(w, h)
        ramp -= ramp.min()
        lo, hi = rng.uniform(0.35, 1.0), rng.uniform(0.9, 1.35)
        gain *= lo + (hi - lo) * ramp / max(ramp.max(), 1e-6)
    if rng.random() < 0.3:  # soft shadow edge
        ang = rng.uniform(0, 2 * math.pi)
        d = (xx - rng.uniform(0, w)) * math.cos(ang) + (yy - rng.uniform(0, h)) * math.sin(ang)
        s = 1 / (1 + np.exp(np.clip(-d / rng.uniform(0.3, 8), -50, 50)))
        gain *= 1 - rng.uniform(0.2, 0.6) * s
    if rng.random() < 0.35:  # glare
        for _ in range(int(rng.integers(1, 3))):
            cx, cy = rng.uniform(0, w), rng.uniform(0, h)
            r = rng.uniform(0.03, 0.3) * max(w, h)
            glare += rng.uniform(60, 230) * np.exp(-((xx - cx) ** 2 + (yy - cy) ** 2) / (2 * r * r))
    gain = cv2.resize(gain, (fw, fh), interpolation=cv2.INTER_LINEAR)
    glare = cv2.resize(glare, (fw, fh), interpolation=cv2.INTER_LINEAR)
    f = img.astype(np.float32) * gain[..., None] + glare[..., None]
    return f.clip(0, 255).astype(np.uint8)


def degrade(rng, img):
    if rng.random() < 0.6:
        s = rng.uniform(0.3, 2.5)
        img = cv2.GaussianBlur(img, (0, 0), s)
    if rng.random() < 0.15:  # motion blur
        k = int(rng.integers(3, 15))
        kern = np.zeros((k, k), np.float32)
        kern[k // 2] = 1.0 / k
        rot = cv2.getRotationMatrix2D((k / 2 - 0.5, k / 2 - 0.5), rng.uniform(0, 180), 1)
        kern = cv2.warpAffine(kern, rot, (k, k))
        img = cv2.filter2D(img, -1, kern / max(kern.sum(), 1e-6))
    if rng.random() < 0.7:
        noise = rng.normal(0, rng.uniform(1, 12), img.shape[:2] + (1,)).astype(np.float32)
        img = (img.astype(np.float32) + noise).clip(0, 255).astype(np.uint8)
    if rng.random() < 0.5:
        ok, buf = cv2.imencode(".jpg", img, [cv2.IMWRITE_JPEG_QUALITY, int(rng.integers(30, 95))])
        img = cv2.imdecode(buf, cv2.IMREAD_UNCHANGED)
    return img


# --- frames ---------------------------------------------------------------------


def _place(rng, taken, bw, bh, w, h, gap):
    for _ in range(30):
        x = rng.uniform(0, max(w - bw, 1))
        y = rng.uniform(0, max(h - bh, 1))
        box = (x - gap, y - gap, x + bw + gap, y + bh + gap)
        if all(box[2] < t[0] or t[2] < box[0] or box[3] < t[1] or t[3] < box[1] for t in taken):
            taken.append(box)
            return x, y
    return None


# one frame in five has no code at all: false boxes are as costly as missed codes
NCODE_P = np.array([0.2, 0.45, 0.17, 0.1, 0.08])


def code_count_odds(no_code_share):
    """NCODE_P with the share of code-free frames replaced, the rest in proportion."""
    p = NCODE_P.copy()
    p[1:] *= (1 - no_code_share) / p[1:].sum()
    p[0] = no_code_share
    return p


def code_picture(rng, size_f):
    """One code as it is printed or shown: (picture, corners of the symbol in it,
    opacity mask or None). Module size follows the size the code will be seen at,
    so warping it down never aliases away whole modules."""
    mat = qr_matrix(rng)
    n = mat.shape[0]
    module_px = int(np.clip(round(1.3 * size_f / n), 2, 14))
    quiet = int(rng.integers(1, 5))
    margin = int(rng.integers(0, 6)) if rng.random() < 0.7 else 0
    ink, paper = ink_and_paper(rng)
    img = render_modules(mat, module_px, ink, paper, quiet + margin)
    o = (quiet + margin) * module_px
    e = o + n * module_px
    corners = np.array([[o, o], [e, o], [e, e], [o, e]], np.float32)
    mask = None
    if margin == 0 and rng.random() < 0.5:  # printed straight onto the surface: only the modules are opaque
        mask = np.zeros(img.shape[:2], np.uint8)
        mask[
            o - quiet * module_px // 2 : e + quiet * module_px // 2,
            o - quiet * module_px // 2 : e + quiet * module_px // 2,
        ] = 255
    elif rng.random() < 0.12:  # shown on a screen: a grid of pixels that the camera turns into moire
        pitch = int(rng.integers(2, 5))
        grid = np.ones(img.shape[:2], np.float32)
        grid[::pitch] *= rng.uniform(0.4, 0.8)
        grid[:, ::pitch] *= rng.uniform(0.4, 0.8)
        img = (img.astype(np.float32) * grid[..., None]).clip(0, 255).astype(np.uint8)
    return img, corners, mask


def bend_maps(w, h, rng):
    """Remap tables that wrap a w x h label round a can or bottle: the picture
    squeezed towards its sides as a cylinder seen from the front, its top and
    bottom edges bowed."""
    r = w / rng.uniform(1.0, 2.6)  # cylinder radius: smaller bends harder
    bow = rng.uniform(-0.08, 0.08)
    xo = np.arange(w, dtype=np.float32) - w / 2
    # output column -> point on the cylinder -> source column
    src_x = r * np.arcsin(np.clip(xo / (w / 2) * math.sin(w / 2 / r), -1, 1)) + w / 2
    k = 1 + bow * (1 - (xo / (w / 2)) ** 2)
    yo = np.arange(h, dtype=np.float32) - h / 2
    map_x = np.ascontiguousarray(np.broadcast_to(src_x[None], (h, w))).astype(np.float32)
    map_y = (yo[:, None] / k[None] + h / 2).astype(np.float32)
    return map_x, map_y


def bent_code(img, corners, mask, rng):
    """The code picture bent round a cylinder: (picture, opacity mask, outline of
    the symbol in the bent picture as points)."""
    h, w = img.shape[:2]
    map_x, map_y = bend_maps(w, h, rng)
    alpha = np.full((h, w), 255, np.uint8) if mask is None else mask
    sym = np.zeros((h, w), np.uint8)
    o, e = int(corners[0, 0]), int(corners[2, 0])
    sym[o:e, o:e] = 255
    img = cv2.remap(img, map_x, map_y, cv2.INTER_LINEAR, borderMode=cv2.BORDER_REPLICATE)
    alpha = cv2.remap(alpha, map_x, map_y, cv2.INTER_LINEAR, borderMode=cv2.BORDER_CONSTANT)
    sym = cv2.remap(sym, map_x, map_y, cv2.INTER_LINEAR, borderMode=cv2.BORDER_CONSTANT)
    contours, _ = cv2.findContours((sym >= 128).astype(np.uint8), cv2.RETR_EXTERNAL, cv2.CHAIN_APPROX_NONE)
    outline = np.concatenate(contours).reshape(-1, 2).astype(np.float32) + 0.5
    return img, alpha, outline


def code_size_range(w, h, size_range):
    """Sizes at input scale, log-uniform from the smallest the network is asked to
    find up to the largest that still fits the frame (edge band ignored: the
    network must measure codes of every size, the library decides what to keep)."""
    s = letterbox_scale(w, h)
    return size_range[0], min(size_range[1], 0.9 * min(w, h) * s)


def make_frame(
    rng, frame_size=None, max_codes=4, size_range=(20.0, 600.0), ncode_p=NCODE_P, backgrounds=BACKGROUND_SHARES
):
    """One synthetic preview frame. Returns (rgb frame, list of code boxes x0,y0,x1,y1 in
    frame pixels, list of code corner quads in frame pixels; a bent label's quad is
    that of its unbent corners)."""
    w, h = frame_size or FRAME_SIZES[int(rng.integers(len(FRAME_SIZES)))]
    s = letterbox_scale(w, h)
    frame = background(rng, w, h, backgrounds)
    taken = []
    for _ in range(int(rng.integers(0, 6))):
        size = int(math.exp(rng.uniform(math.log(30), math.log(0.5 * min(w, h)))))
        src = distractor(rng, size)
        sh, sw = src.shape[:2]
        quad = tilted_square(rng, 55) * size
        quad[:, 1] *= sh / sw
        dx, dy = rng.uniform(0, w), rng.uniform(0, h)
        paste_warped(frame, src, np.array([[0, 0], [sw, 0], [sw, sh], [0, sh]], np.float32), quad + [dx, dy])
    boxes, quads = [], []
    n_codes = int(rng.choice(np.arange(max_codes + 1), p=ncode_p[: max_codes + 1] / np.sum(ncode_p[: max_codes + 1])))
    lo, hi = code_size_range(w, h, size_range)
    # a sheet of labels: codes of one size side by side with small gaps, which the
    # library keeps apart only when every box is tight
    sheet = n_codes >= 1 and rng.random() < 0.2
    if sheet:
        n_codes = int(rng.integers(2, 7))
        size_in = math.exp(rng.uniform(math.log(lo), math.log(max(lo, min(hi, 0.5 * hi)))))
        q_sheet = tilted_square(rng, 35)
        gap = rng.uniform(0.1, 1.0)
        cols = n_codes if rng.random() < 0.5 else int(math.ceil(n_codes / 2))
    for i in range(n_codes):
        if sheet:
            size_f = size_in / s
            q = q_sheet
            ext = q.max(axis=0) - q.min(axis=0)
            q = q * (size_f / ext.max())
            r, c = divmod(i, cols)
            if i == 0:
                x0 = rng.uniform(0, max(w - cols * size_f * (1 + gap), 1))
                y0 = rng.uniform(0, max(h - (n_codes // cols + 1) * size_f * (1 + gap), 1))
            pos = (x0 + c * size_f * (1 + gap), y0 + r * size_f * (1 + gap))
            if pos[0] + size_f > w or pos[1] + size_f > h:
                continue
        else:
            size_in = math.exp(rng.uniform(math.log(lo), math.log(hi)))
            size_f = size_in / s
            tilt = 65 if rng.random() < 0.3 else 40
            q = tilted_square(rng, tilt)
            ext = q.max(axis=0) - q.min(axis=0)
            q = q * (size_f / ext.max())
            bw, bh = q[:, 0].max() - q[:, 0].min(), q[:, 1].max() - q[:, 1].min()
            pos = _place(rng, taken, bw, bh, w, h, gap=max(12.0, 0.15 * size_f))
            if pos is None:
                continue
        quad = (q - q.min(axis=0) + np.array(pos)).astype(np.float32)
        img, corners, mask = code_picture(rng, size_f)
        outline = corners
        if not sheet and rng.random() < 0.1:
            img, mask, outline = bent_code(img, corners, mask, rng)
        hm = paste_warped(frame, img, corners, quad, mask)
        q = cv2.perspectiveTransform(outline.reshape(-1, 1, 2), hm).reshape(-1, 2)
        box = (q[:, 0].min(), q[:, 1].min(), q[:, 0].max(), q[:, 1].max())
        boxes.append(box)
        quads.append(quad)
    frame = lighting(rng, frame)
    frame = degrade(rng, frame)
    return frame, np.array(boxes, np.float32).reshape(-1, 4), quads


def make_sample(rng, **kw):
    """Network input (640 x 640 x 3 uint8) and code boxes in input pixels."""
    frame, boxes, _ = make_frame(rng, **kw)
    inp, s = frame_to_input(frame)
    return inp, boxes * s
