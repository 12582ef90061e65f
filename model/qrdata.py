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


def low_version_matrix(rng, versions):
    """A code of a version in `versions` (first, last), holding as much random text as
    that version takes at a random error-correction level."""
    version = int(rng.integers(versions[0], versions[1] + 1))
    error = str(rng.choice(EC_LEVELS))
    data = random_text(rng, 1, 60)
    while True:
        try:
            code = segno.make(data, error=error, version=version, micro=False, boost_error=False)
            return np.array(code.matrix, np.uint8)
        except segno.DataOverflowError:
            data = data[: len(data) // 2]


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
    """The wallpapers, in a fixed order: a frame picks one by its number. Where
    QRDATA_PHOTOS names a folder (a machine without the packages), the same pictures
    prepared smaller, named in that order."""
    folder = os.environ.get("QRDATA_PHOTOS")
    if folder:
        return sorted(glob.glob(os.path.join(folder, "*.jpg")))
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


# --- hard negatives -------------------------------------------------------------
#
# Textured things that are not codes, drawn procedurally by kind: where the detector
# still draws boxes (trays of coins, pixel-art icons, fruit cut open, textured blobs)
# and what else a camera pointed at a code sees beside it. Sizes are chosen in input
# pixels (divided by the letterbox scale `s`), since what matters is how large a
# thing is next to the codes the network has learnt.


def _paste(frame, img, mask, x, y):
    """Blend `img` (with opacity `mask`, or opaque) into `frame` with its top-left
    at integer (x, y), clipped at the frame's edges: things seen from straight above
    need no warp, which keeps scenes of hundreds of them cheap."""
    fh, fw = frame.shape[:2]
    sh, sw = img.shape[:2]
    x0, y0, x1, y1 = max(x, 0), max(y, 0), min(x + sw, fw), min(y + sh, fh)
    if x1 <= x0 or y1 <= y0:
        return
    src = img[y0 - y : y1 - y, x0 - x : x1 - x].astype(np.float32)
    if mask is None:
        frame[y0:y1, x0:x1] = src.astype(np.uint8)
        return
    a = mask[y0 - y : y1 - y, x0 - x : x1 - x].astype(np.float32)[..., None] / 255.0
    frame[y0:y1, x0:x1] = (frame[y0:y1, x0:x1] * (1 - a) + src * a).astype(np.uint8)


def _disc(size, wobble=None):
    """Polar coordinates over a size x size picture and an anti-aliased round mask
    whose radius follows `wobble` (a function of the angle) when given."""
    yy, xx = np.mgrid[0:size, 0:size].astype(np.float32)
    c = (size - 1) / 2
    rr, th = np.hypot(xx - c, yy - c), np.arctan2(yy - c, xx - c)
    r = size / 2 - 1 if wobble is None else (size / 2 - 1) * wobble(th)
    mask = (np.clip(r - rr + 0.5, 0, 1) * 255).astype(np.uint8)
    return rr / (size / 2), th, mask


def _wobble(rng, amount):
    """A radius that varies smoothly with the angle, for things that are only roughly round."""
    k = rng.integers(2, 6, 3)
    a = rng.uniform(0, amount, 3)
    p = rng.uniform(0, 2 * math.pi, 3)
    return lambda th: (1 - a.sum()) + sum(a[i] * np.cos(k[i] * th + p[i]) for i in range(3))


def metal_coin(rng, size):
    """A coin from above: a metal disc whose relief (raised rim, beads, numerals,
    strokes of a figure) is lit from one side, as the shading of embossed metal is."""
    size = int(max(size, 8))
    rr, th, mask = _disc(size)
    height = np.zeros((size, size), np.float32)
    height += rr > rng.uniform(0.8, 0.92)  # raised rim
    if rng.random() < 0.5:  # a ring of beads inside the rim
        nb = int(rng.integers(20, 60))
        for a in np.linspace(0, 2 * math.pi, nb, endpoint=False):
            p = (int(size / 2 + 0.76 * size / 2 * math.cos(a)), int(size / 2 + 0.76 * size / 2 * math.sin(a)))
            cv2.circle(height, p, max(1, size // 40), 1.0, -1)
    for _ in range(int(rng.integers(1, 4))):  # numerals and letters
        scale = size / rng.uniform(40, 90)
        org = (int(size * rng.uniform(0.15, 0.45)), int(size * rng.uniform(0.4, 0.8)))
        text = "".join(rng.choice(list(string.digits + string.ascii_uppercase), int(rng.integers(1, 5))))
        cv2.putText(height, text, org, int(rng.integers(0, 8)), scale, 1.0, max(1, size // 30))
    for _ in range(int(rng.integers(0, 8))):  # strokes of a figure or a building
        p0 = (int(rng.uniform(0.25, 0.75) * size), int(rng.uniform(0.25, 0.75) * size))
        p1 = (p0[0] + int(rng.uniform(-0.25, 0.25) * size), p0[1] + int(rng.uniform(-0.25, 0.25) * size))
        cv2.line(height, p0, p1, 0.8, max(1, size // int(rng.integers(12, 30))))
    height = cv2.GaussianBlur(height, (0, 0), max(0.5, size / 80))
    ang = rng.uniform(0, 2 * math.pi)
    light = cv2.Sobel(height, cv2.CV_32F, 1, 0) * math.cos(ang) + cv2.Sobel(height, cv2.CV_32F, 0, 1) * math.sin(ang)
    metal = [(205, 170, 90), (190, 190, 196), (180, 105, 70), (150, 150, 140)][int(rng.integers(4))]
    tone = np.array(metal, np.float32) * rng.uniform(0.55, 1.15)
    img = tone * (0.85 + rng.uniform(0.5, 1.5) * light[..., None] - 0.2 * rr[..., None] ** 2)
    img += rng.uniform(20, 90) * np.exp(-(((rr - rng.uniform(0, 0.6)) * 3) ** 2))[..., None]  # sheen
    return img.clip(0, 255).astype(np.uint8), mask


def coin_tray(rng, w, h, s):
    """A tray, drawer or table of coins: rows in the wells of a tray or a loose heap,
    all of about one size, 16 to 80 input pixels across."""
    surface = np.empty((h, w, 3), np.float32)
    surface[:] = rng.uniform(10, 160) * rng.uniform(0.6, 1.2, 3)
    surface += rng.normal(0, rng.uniform(2, 12), (h, w, 1))
    frame = surface.clip(0, 255).astype(np.uint8)
    d = math.exp(rng.uniform(math.log(16), math.log(80))) / s
    if rng.random() < 0.6:  # rows in a tray's wells, every few empty
        pitch = d * rng.uniform(1.02, 1.4)
        well = tuple(float(v) for v in frame[0, 0] * rng.uniform(0.4, 0.8))
        hex_rows = rng.random() < 0.5
        for r in range(int(h / pitch) + 1):
            for c in range(int(w / pitch) + 1):
                x = c * pitch + (pitch / 2 if hex_rows and r % 2 else 0)
                y = r * pitch * (0.87 if hex_rows else 1.0)
                cv2.circle(frame, (int(x + pitch / 2), int(y + pitch / 2)), int(pitch * 0.48), well, -1, cv2.LINE_AA)
                if rng.random() < 0.85:
                    size = int(d * rng.uniform(0.9, 1.05))
                    img, mask = metal_coin(rng, size)
                    _paste(frame, img, mask, int(x + (pitch - size) / 2), int(y + (pitch - size) / 2))
    else:  # a heap: overlapping, any number
        for _ in range(int(rng.uniform(0.3, 2.0) * w * h / (d * d))):
            size = int(d * rng.uniform(0.8, 1.2))
            img, mask = metal_coin(rng, size)
            _paste(frame, img, mask, int(rng.uniform(-d / 2, w)), int(rng.uniform(-d / 2, h)))
    return frame


def fruit_half(rng, size):
    """A fruit cut in half: citrus wedges round a pale core, or the radial streaks and
    ring of dark seeds of a kiwi or fig, inside a rind."""
    size = int(max(size, 12))
    rr, th, mask = _disc(size, _wobble(rng, 0.06))
    rind = rng.uniform(0.03, 0.12)
    flesh = np.array(
        [(240, 170, 40), (230, 200, 60), (120, 170, 50), (200, 70, 80), (220, 120, 110)][int(rng.integers(5))],
        np.float32,
    ) * rng.uniform(0.7, 1.1, 3)
    skin = np.array([(220, 120, 20), (90, 60, 40), (90, 40, 90), (60, 110, 40)][int(rng.integers(4))], np.float32)
    streak = 1 + 0.12 * np.sin(th * rng.uniform(40, 120) + rng.normal(0, 1, (size, size)))
    img = flesh * streak[..., None] * (0.8 + 0.25 * rr[..., None])
    if rng.random() < 0.5:  # citrus: wedges parted by pale membranes
        n = int(rng.integers(7, 14))
        edge = np.abs(((th / (2 * math.pi) * n) % 1) - 0.5) > 0.45
        img[edge & (rr > 0.15)] = flesh * 1.2 + 30
    else:  # kiwi or fig: seeds in a ring, oriented along the radius
        for _ in range(int(rng.integers(30, 140))):
            a, r = rng.uniform(0, 2 * math.pi), rng.uniform(0.25, 0.6) * size / 2
            p = (int(size / 2 + r * math.cos(a)), int(size / 2 + r * math.sin(a)))
            ax = (max(1, int(size / rng.uniform(25, 60))), max(1, int(size / rng.uniform(60, 120))))
            cv2.ellipse(img, p, ax, math.degrees(a), 0, 360, tuple(rng.uniform(0, 60, 3)), -1)
    img[rr < rng.uniform(0.1, 0.25)] = flesh * 0.5 + 120  # the core
    img[rr > 1 - rind] = skin * rng.uniform(0.6, 1.1)
    return cv2.GaussianBlur(img, (0, 0), max(0.4, size / 300)).clip(0, 255).astype(np.uint8), mask


def textured_blob(rng, size):
    """A roughly round thing with a busy surface (a sponge, a cookie, bread, cork, a
    pizza): a wobbly disc of pores and crumbs over a darker crust."""
    size = int(max(size, 12))
    rr, _, mask = _disc(size, _wobble(rng, 0.15))
    base = rng.uniform(60, 230) * rng.uniform(0.6, 1.1, 3)
    img = np.empty((size, size, 3), np.float32)
    img[:] = base
    cells = max(2, size // int(rng.integers(3, 12)))
    noise = cv2.resize(rng.normal(0, 1, (cells, cells)).astype(np.float32), (size, size), interpolation=cv2.INTER_CUBIC)
    img *= (1 + rng.uniform(0.1, 0.4) * noise)[..., None]
    for _ in range(int(rng.uniform(0.005, 0.03) * size * size / 4)):  # pores and crumbs
        p = (int(rng.integers(size)), int(rng.integers(size)))
        col = tuple(float(v) for v in base * rng.uniform(0.2, 1.4))
        cv2.circle(img, p, max(1, int(size * rng.uniform(0.005, 0.04))), col, -1)
    img *= (1 - 0.4 * np.clip((rr - 0.8) / 0.2, 0, 1))[..., None]
    return img.clip(0, 255).astype(np.uint8), mask


def pixel_icon(rng, size):
    """A pixel-art icon: a blocky glyph of 8 to 16 pixels a side in a few flat colours
    on a plain or framed tile, as toolbars, app grids and game inventories show them."""
    n = int(rng.integers(8, 17))
    pal = rng.uniform(0, 255, (int(rng.integers(2, 5)), 3))
    grid = pal[rng.integers(0, len(pal), (n, n))]
    shape = rng.random((n, n)) < rng.uniform(0.3, 0.7)
    if rng.random() < 0.6:  # mirrored, as most icons are
        shape[:, n - n // 2 :] = shape[:, : n // 2][:, ::-1]
    tile = rng.uniform(0, 255, 3)
    img = np.where(shape[..., None], grid, tile)
    if rng.random() < 0.5:  # a frame round the tile
        img[[0, -1]] = img[:, [0, -1]] = rng.uniform(0, 80)
    size = int(max(size, n))
    img = cv2.resize(img.astype(np.float32), (size, size), interpolation=cv2.INTER_NEAREST)
    return img.clip(0, 255).astype(np.uint8), None


def pixel_art(rng, w, h, s):
    """Icons and sprites of 20 to 60 input pixels on a plain background, in a tidy
    grid or scattered: the size of a small code, and as blocky."""
    frame = np.empty((h, w, 3), np.uint8)
    frame[:] = rng.uniform(0, 255) + rng.uniform(-20, 20, 3)
    lo, hi = 20 / s, 60 / s
    if rng.random() < 0.5:
        size = rng.uniform(lo, hi)
        pitch = size * rng.uniform(1.15, 2.0)
        for y in np.arange(rng.uniform(0, pitch), h, pitch):
            for x in np.arange(rng.uniform(0, pitch), w, pitch):
                if rng.random() < 0.8:
                    img, mask = (pixel_icon if rng.random() < 0.6 else sprite)(rng, int(size))
                    _paste(frame, img, mask, int(x), int(y))
    else:
        for _ in range(int(rng.integers(10, 80))):
            size = int(math.exp(rng.uniform(math.log(lo), math.log(hi))))
            img, mask = (pixel_icon if rng.random() < 0.6 else sprite)(rng, size)
            _paste(frame, img, mask, int(rng.integers(-size // 2, w)), int(rng.integers(-size // 2, h)))
    return frame


def fabric(rng, w, h, s):
    """Woven cloth: plain weave, twill or houndstooth threads of 2 to 10 input pixels,
    often in a check of coloured stripes, rippled by folds."""
    t = max(2, int(rng.uniform(2, 10) / s))
    kind = int(rng.integers(3))
    if kind == 0:
        weave = np.indices((2, 2)).sum(axis=0) % 2
    elif kind == 1:
        k = int(rng.integers(3, 6))
        weave = (np.add.outer(np.arange(k), np.arange(k)) % k) < k // 2 + 1
    else:
        weave = np.array(
            [[1, 1, 1, 1, 0, 0, 0, 1], [1, 1, 1, 0, 0, 0, 1, 1], [1, 1, 0, 0, 0, 1, 1, 1]] * 2 + [[0] * 8] * 2
        )
        weave = np.roll(weave, 3, axis=0)
    ny, nx = h // t + 2, w // t + 2
    up = np.tile(weave, (ny // weave.shape[0] + 1, nx // weave.shape[1] + 1))[:ny, :nx].astype(bool)
    a, b = _two_colours(rng)
    warp = np.tile(a, (nx, 1))
    weft = np.tile(b, (ny, 1))
    if rng.random() < 0.5:  # coloured stripes make a check
        for cols, n in ((warp, nx), (weft, ny)):
            band = int(rng.integers(3, 20))
            cols[(np.arange(n) // band) % 2 == 1] = rng.uniform(0, 255, 3)
    cells = np.where(up[..., None], warp[None], weft[:, None])
    img = cv2.resize(cells.astype(np.float32), (nx * t, ny * t), interpolation=cv2.INTER_NEAREST)
    shade = 0.75 + 0.25 * np.sin(np.arange(t) / t * math.pi)  # a thread is rounded
    img *= np.where(np.kron(up, np.ones((t, t))) > 0, np.tile(shade, nx)[None], np.tile(shade, ny)[:, None])[..., None]
    img = img[:h, :w]
    cells = int(rng.integers(2, 6))
    fold = cv2.resize(rng.normal(0, 1, (cells, cells)).astype(np.float32), (w, h), interpolation=cv2.INTER_CUBIC)
    dx = fold * rng.uniform(0, 8 * t)
    mx, my = np.meshgrid(np.arange(w, dtype=np.float32), np.arange(h, dtype=np.float32))
    img = cv2.remap(img, mx + dx, my + dx * 0.5, cv2.INTER_LINEAR, borderMode=cv2.BORDER_REFLECT)
    img *= (1 + 0.25 * fold)[..., None]
    return img.clip(0, 255).astype(np.uint8)


def foliage(rng, w, h, s):
    """Leaves of 15 to 120 input pixels piled over a dark ground, each a pointed oval
    in its own green with a paler midrib."""
    frame = np.empty((h, w, 3), np.float32)
    frame[:] = np.array([25, 40, 20]) * rng.uniform(0.5, 1.5)
    size = math.exp(rng.uniform(math.log(15), math.log(120))) / s
    green = np.array([60, 110, 40]) * rng.uniform(0.6, 1.4, 3)
    for _ in range(int(2.5 * w * h / (size * size * 0.4))):
        ln = size * rng.uniform(0.6, 1.3)
        c = np.array([rng.uniform(0, w), rng.uniform(0, h)])
        a = rng.uniform(0, 2 * math.pi)
        u = np.linspace(-1, 1, 16)
        half = ln * 0.22 * rng.uniform(0.6, 1.4) * np.sqrt(1 - u**2) * (1 - 0.3 * u)
        pts = np.concatenate([np.stack([u * ln / 2, half], 1), np.stack([u[::-1] * ln / 2, -half[::-1]], 1)])
        rot = np.array([[math.cos(a), -math.sin(a)], [math.sin(a), math.cos(a)]])
        pts = (pts @ rot.T + c).astype(np.int32)
        col = green * rng.uniform(0.5, 1.5)
        cv2.fillPoly(frame, [pts], tuple(float(v) for v in col), cv2.LINE_AA)
        cv2.line(
            frame,
            tuple(map(int, pts[0])),
            tuple(map(int, pts[15])),
            tuple(float(v) for v in col * 1.3 + 20),
            max(1, int(ln / 40)),
        )
    return frame.clip(0, 255).astype(np.uint8)


def tiles(rng, w, h, s):
    """A mosaic or tiled wall: square tiles of 6 to 40 input pixels in a few colours,
    some laid in figures, with grout between them."""
    t = max(3, int(rng.uniform(6, 40) / s))
    ny, nx = h // t + 1, w // t + 1
    pal = rng.uniform(0, 255, (int(rng.integers(2, 7)), 3))
    idx = rng.integers(0, len(pal), (ny, nx))
    if rng.random() < 0.4:  # a figure of rings or stripes in the tiling
        yy, xx = np.indices((ny, nx))
        idx = ((np.hypot(yy - ny / 2, xx - nx / 2) // rng.uniform(1, 4)) % len(pal)).astype(int)
    img = pal[idx] * rng.uniform(0.85, 1.15, (ny, nx, 1))
    img = cv2.resize(img.astype(np.float32), (nx * t, ny * t), interpolation=cv2.INTER_NEAREST)[:h, :w]
    grout = max(1, int(t * rng.uniform(0.05, 0.2)))
    line = (np.arange(max(h, w)) % t) < grout
    img[line[:h]] = img[:, line[:w]] = rng.uniform(60, 230)
    return img.clip(0, 255).astype(np.uint8)


def text_blocks(rng, w, h, s):
    """A printed page, poster or screen: paragraphs in columns at several sizes, headings
    and ruled tables."""
    ink, paper = ink_and_paper(rng)
    frame = np.empty((h, w, 3), np.uint8)
    frame[:] = paper
    cols = int(rng.integers(1, 4))
    y = int(rng.uniform(0, 40) / s)
    while y < h:
        scale = rng.uniform(0.25, 0.7) / s * (2.0 if rng.random() < 0.15 else 1.0)
        step = max(6, int(28 * scale))
        lines = int(rng.integers(1, 12))
        font = int(rng.integers(0, 8))
        table = rng.random() < 0.2
        for c in range(cols):
            x0 = int(c * w / cols + rng.uniform(5, 30) / s)
            for i in range(lines):
                cv2.putText(
                    frame,
                    random_text(rng, 5, 60),
                    (x0, y + (i + 1) * step),
                    font,
                    scale,
                    tuple(float(v) for v in ink),
                    max(1, int(scale * 1.5)),
                )
                if table:
                    cv2.line(
                        frame,
                        (x0, y + (i + 1) * step + 3),
                        (int(x0 + w / cols * 0.9), y + (i + 1) * step + 3),
                        tuple(float(v) for v in ink),
                        1,
                    )
        y += (lines + 1) * step
    return frame


EAN_L = ["0001101", "0011001", "0010011", "0111101", "0100011", "0110001", "0101111", "0111011", "0110111", "0001011"]


def barcode_label(rng, size):
    """A retail label: an EAN-13-like barcode (guard bars, six left and six right
    digits) with its digits printed beneath."""
    digits = rng.integers(0, 10, 12)
    left = "".join(EAN_L[d] if rng.random() < 0.5 else EAN_L[d][::-1] for d in digits[:6])
    right = "".join("".join("1" if b == "0" else "0" for b in EAN_L[d]) for d in digits[6:])
    bits = np.array([int(b) for b in "101" + left + "01010" + right + "101"], np.uint8)
    ink, paper = ink_and_paper(rng)
    m = max(1, int(size / 110))
    bars = np.tile(np.repeat(bits, m), (int(len(bits) * m * rng.uniform(0.4, 0.75)), 1))
    img = render_modules(bars, 1, ink, paper, 0)
    img = np.pad(img, ((m * 4, m * 16), (m * 9, m * 9), (0, 0)), mode="edge")
    img[:, : m * 9] = img[:, -m * 9 :] = paper.astype(np.uint8)
    img[-m * 16 :] = paper.astype(np.uint8)
    cv2.putText(
        img,
        "".join(map(str, digits)),
        (m * 9, img.shape[0] - m * 3),
        cv2.FONT_HERSHEY_SIMPLEX,
        m * 0.38,
        tuple(float(v) for v in ink),
        max(1, m // 2),
    )
    return img, None


def _object_scene(rng, w, h, s, draw, lo, hi, density):
    """Things of one kind, lo to hi input pixels, scattered at `density` over a plain
    or lightly textured surface."""
    frame = (
        procedural_background(rng, w, h) if rng.random() < 0.3 else np.full((h, w, 3), rng.uniform(0, 255, 3), np.uint8)
    )
    size = math.exp(rng.uniform(math.log(lo), math.log(hi))) / s
    for _ in range(max(1, int(rng.uniform(0.2, 1.0) * density * w * h / (size * size)))):
        k = int(size * rng.uniform(0.8, 1.25))
        img, mask = draw(rng, k)
        _paste(frame, img, mask, int(rng.uniform(-k / 2, w)), int(rng.uniform(-k / 2, h)))
    return frame


def seeds(rng, w, h, s):
    """Seeds, beans or grains strewn on a surface: many small ovals of 3 to 14 input
    pixels in their own shades, each with a highlight."""
    frame = np.full((h, w, 3), rng.uniform(40, 240, 3), np.float32)
    size = math.exp(rng.uniform(math.log(3), math.log(14))) / s
    base = rng.uniform(20, 230, 3)
    for _ in range(int(rng.uniform(0.3, 1.5) * w * h / (size * size))):
        p = (int(rng.integers(w)), int(rng.integers(h)))
        ax = (max(1, int(size * rng.uniform(0.4, 0.6))), max(1, int(size * rng.uniform(0.2, 0.35))))
        col = base * rng.uniform(0.5, 1.3)
        a = rng.uniform(0, 180)
        cv2.ellipse(frame, p, ax, a, 0, 360, tuple(float(v) for v in col), -1, cv2.LINE_AA)
        cv2.ellipse(
            frame, p, (max(1, ax[0] // 2), max(1, ax[1] // 3)), a, 0, 360, tuple(float(v) for v in col * 1.4 + 20), -1
        )
    return frame.clip(0, 255).astype(np.uint8)


# Scenes made of one kind of thing; each fills the frame.
HARD_NEGATIVE_SCENES = {
    "coins": coin_tray,
    "fruit": lambda rng, w, h, s: _object_scene(rng, w, h, s, fruit_half, 60, 350, 0.6),
    "seeds": seeds,
    "blobs": lambda rng, w, h, s: _object_scene(rng, w, h, s, textured_blob, 30, 300, 0.5),
    "pixel art": pixel_art,
    "fabric": fabric,
    "foliage": foliage,
    "tiles": tiles,
    "text": text_blocks,
    "barcodes": lambda rng, w, h, s: _object_scene(rng, w, h, s, barcode_label, 60, 300, 0.4),
}
# Single things that lie beside codes.
HARD_NEGATIVE_THINGS = [metal_coin, fruit_half, textured_blob, pixel_icon, sprite, barcode_label]


def hard_negative_scene(rng, w, h):
    """A frame-filling scene of one kind of hard negative, seen straight on or, half
    the time, as a surface at an angle."""
    s = letterbox_scale(w, h)
    kinds = list(HARD_NEGATIVE_SCENES)
    img = HARD_NEGATIVE_SCENES[kinds[int(rng.integers(len(kinds)))]](rng, w, h, s)
    if rng.random() < 0.5:
        q = tilted_square(rng, 45)
        quad = q / (q.max(axis=0) - q.min(axis=0)).max() * max(w, h) * rng.uniform(1.2, 2.0) + [w / 2, h / 2]
        src = np.array([[0, 0], [w, 0], [w, h], [0, h]], np.float32)
        hm = cv2.getPerspectiveTransform(src, quad.astype(np.float32))
        img = cv2.warpPerspective(img, hm, (w, h), borderMode=cv2.BORDER_REFLECT)
    return img


def hard_negative_thing(rng, size, s):
    """One hard negative of about `size` frame pixels: a thing with its opacity mask,
    or a patch of a texture (cloth, leaves, tiles, text) cut out as a rounded card."""
    k = int(rng.integers(len(HARD_NEGATIVE_THINGS) + 4))
    if k < len(HARD_NEGATIVE_THINGS):
        return HARD_NEGATIVE_THINGS[k](rng, size)
    size = int(max(size, 12))
    draw = [fabric, foliage, tiles, text_blocks][k - len(HARD_NEGATIVE_THINGS)]
    img = draw(rng, size, size, s)
    mask = np.zeros((size, size), np.uint8)
    r = int(size * rng.uniform(0, 0.3))
    cv2.rectangle(mask, (r, 0), (size - 1 - r, size - 1), 255, -1)
    cv2.rectangle(mask, (0, r), (size - 1, size - 1 - r), 255, -1)
    for x, y in ((r, r), (size - 1 - r, r), (r, size - 1 - r), (size - 1 - r, size - 1 - r)):
        cv2.circle(mask, (x, y), r, 255, -1)
    return img, mask


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


# Large codes of low versions (the `extras` share of single codes made so):
# close to the camera their modules are 8 to 16 input pixels, and a finder pattern
# alone is as large as a small code.
BIG_CODE_SIZE = 150.0
BIG_CODE_VERSIONS = (1, 4)
# Shares of frames with hard negatives (a whole scene of them, and single things
# beside the codes, each that often), of single codes made large and of low version,
# and of frames with codes whose codes are a tight grid. Runs before these had none.
NO_EXTRAS = (0.0, 0.0, 0.0)


# one frame in five has no code at all: false boxes are as costly as missed codes
NCODE_P = np.array([0.2, 0.45, 0.17, 0.1, 0.08])


def code_count_odds(no_code_share):
    """NCODE_P with the share of code-free frames replaced, the rest in proportion."""
    p = NCODE_P.copy()
    p[1:] *= (1 - no_code_share) / p[1:].sum()
    p[0] = no_code_share
    return p


def code_picture(rng, size_f, versions=None, max_module_px=14):
    """One code as it is printed or shown: (picture, corners of the symbol in it,
    opacity mask or None). Module size follows the size the code will be seen at,
    so warping it down never aliases away whole modules; `versions` (first, last)
    narrows the versions, and a code of few modules seen large needs a larger
    `max_module_px` to keep its module edges sharp."""
    mat = qr_matrix(rng) if versions is None else low_version_matrix(rng, versions)
    n = mat.shape[0]
    module_px = int(np.clip(round(1.3 * size_f / n), 2, max_module_px))
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
    rng,
    frame_size=None,
    max_codes=4,
    size_range=(20.0, 600.0),
    ncode_p=NCODE_P,
    backgrounds=BACKGROUND_SHARES,
    extras=NO_EXTRAS,
):
    """One synthetic preview frame. Returns (rgb frame, list of code boxes x0,y0,x1,y1 in
    frame pixels, list of code corner quads in frame pixels; a bent label's quad is
    that of its unbent corners). `extras`: the shares of hard negatives, large codes of
    low versions and tight grids (NO_EXTRAS for none); none costs a random draw when 0, so the
    frames of runs made before them are rendered again exactly."""
    hard_negatives, big_codes, grids = extras
    w, h = frame_size or FRAME_SIZES[int(rng.integers(len(FRAME_SIZES)))]
    s = letterbox_scale(w, h)
    if hard_negatives and rng.random() < hard_negatives:
        frame = hard_negative_scene(rng, w, h)
    else:
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
    if hard_negatives and rng.random() < hard_negatives:
        # beside the codes, single things of the sizes of small and mid-sized codes
        for _ in range(int(rng.integers(1, 9))):
            size = int(math.exp(rng.uniform(math.log(16), math.log(160))) / s)
            src, mask = hard_negative_thing(rng, size, s)
            sh, sw = src.shape[:2]
            quad = tilted_square(rng, 40)
            quad = quad * (sw / (quad.max(axis=0) - quad.min(axis=0)).max())
            quad[:, 1] *= sh / sw
            quad += [rng.uniform(0, w), rng.uniform(0, h)]
            paste_warped(frame, src, np.array([[0, 0], [sw, 0], [sw, sh], [0, sh]], np.float32), quad, mask)
    boxes, quads = [], []
    n_codes = int(rng.choice(np.arange(max_codes + 1), p=ncode_p[: max_codes + 1] / np.sum(ncode_p[: max_codes + 1])))
    lo, hi = code_size_range(w, h, size_range)
    if grids and n_codes >= 1 and rng.random() < grids:
        code_grid(rng, frame, lo, hi, boxes, quads)
        n_codes = 0
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
        big = False
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
            big = big_codes and hi > BIG_CODE_SIZE and rng.random() < big_codes
            size_in = math.exp(rng.uniform(math.log(BIG_CODE_SIZE if big else lo), math.log(hi)))
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
        if not sheet and big:
            img, corners, mask = code_picture(rng, size_f, BIG_CODE_VERSIONS, max_module_px=64)
        else:
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


def plane_points(rng, pts, max_tilt_deg, max_roll_deg):
    """Points of a plane (x, y, centred on 0, within a unit square as tilted_square's)
    seen by a pinhole camera after a 3-D tilt of up to `max_tilt_deg` and a turn in
    the picture of up to `max_roll_deg`, at about the plane's scale."""
    tilt = math.radians(rng.uniform(0, max_tilt_deg))
    axis = rng.uniform(0, 2 * math.pi)
    rx, ry = tilt * math.cos(axis), tilt * math.sin(axis)
    rz = math.radians(rng.uniform(-max_roll_deg, max_roll_deg))
    cx, sx, cy, sy, cz, sz = math.cos(rx), math.sin(rx), math.cos(ry), math.sin(ry), math.cos(rz), math.sin(rz)
    rot = np.array([[cy, 0, sy], [0, 1, 0], [-sy, 0, cy]]) @ np.array([[1, 0, 0], [0, cx, -sx], [0, sx, cx]])
    rot = rot @ np.array([[cz, -sz, 0], [sz, cz, 0], [0, 0, 1]])
    p = np.concatenate([pts, np.zeros((len(pts), 1))], axis=1) @ rot.T + np.array([0, 0, rng.uniform(1.6, 4.0)])
    return p[:, :2] / p[:, 2:3] * p[:, 2].mean()


def _apart(boxes):
    """True when no two boxes overlap or touch (a pixel apart at least)."""
    for i, a in enumerate(boxes):
        for b in boxes[:i]:
            if not (a[2] + 1 < b[0] or b[2] + 1 < a[0] or a[3] + 1 < b[1] or b[3] + 1 < a[1]):
                return False
    return True


def code_grid(rng, frame, lo, hi, boxes, quads):
    """Codes printed in a tight 2 x 2 or 3 x 2 grid on one sheet, gaps of 0.05 to 0.25
    code widths between the symbols, seen as one tilted plane. Each code is its own
    truth box, appended to `boxes` (and its corners to `quads`). The library keeps a
    box only when it touches no better one, so the pose is flattened until the
    codes' boxes stand apart, as they must for all of them to be found."""
    fh, fw = frame.shape[:2]
    s = letterbox_scale(fw, fh)
    cols, rows = [(2, 2), (3, 2), (2, 3)][int(rng.integers(3))]
    gap = rng.uniform(0.05, 0.25)
    mats = [qr_matrix(rng) for _ in range(cols * rows)]
    n = max(m.shape[0] for m in mats)
    fit = min(0.9 * fw * s / (cols + (cols - 1) * gap), 0.9 * fh * s / (rows + (rows - 1) * gap))
    size_f = math.exp(rng.uniform(math.log(min(lo, fit)), math.log(min(hi, fit)))) / s
    cw = max(2 * n, int(min(1.3 * size_f, 14 * n)))  # code width on the sheet, in sheet pixels
    step = cw * (1 + gap)
    margin = int(cw * rng.uniform(0.05, 0.3))
    ink, paper = ink_and_paper(rng)
    sheet_w, sheet_h = int(2 * margin + cols * step - cw * gap), int(2 * margin + rows * step - cw * gap)
    sheet = np.empty((sheet_h, sheet_w, 3), np.uint8)
    sheet[:] = paper.clip(0, 255).astype(np.uint8)
    corners = []
    for k, mat in enumerate(mats):
        r, c = divmod(k, cols)
        x, y = int(margin + c * step), int(margin + r * step)
        mp = -(-cw // mat.shape[0])
        img = cv2.resize(render_modules(mat, mp, ink, paper, 0), (cw, cw), interpolation=cv2.INTER_AREA)
        sheet[y : y + cw, x : x + cw] = img
        corners.append(np.array([[x, y], [x + cw, y], [x + cw, y + cw], [x, y + cw]], np.float32))
    src = np.array([[0, 0], [sheet_w, 0], [sheet_w, sheet_h], [0, sheet_h]], np.float32)
    centre = np.array([sheet_w, sheet_h], np.float32) / 2
    tilt, roll = 35.0, 4.0
    for attempt in range(5):
        if attempt == 4:
            tilt = roll = 0.0
        pts = (np.concatenate([src] + corners) - centre) / max(sheet_w, sheet_h)
        proj = plane_points(rng, pts, tilt, roll)
        code_pts = proj[4:].reshape(-1, 4, 2)
        side = max((q.max(axis=0) - q.min(axis=0)).max() for q in code_pts)
        proj *= size_f / side
        code_pts = proj[4:].reshape(-1, 4, 2)
        span = code_pts.reshape(-1, 2).max(axis=0) - code_pts.reshape(-1, 2).min(axis=0)
        shrink = min(1.0, (fw - 4) / span[0], (fh - 4) / span[1])
        proj *= shrink
        code_pts = proj[4:].reshape(-1, 4, 2)
        lo_pt = code_pts.reshape(-1, 2).min(axis=0)
        span = code_pts.reshape(-1, 2).max(axis=0) - lo_pt
        proj += [rng.uniform(2, max(2, fw - 2 - span[0])), rng.uniform(2, max(2, fh - 2 - span[1]))] - lo_pt
        code_pts = proj[4:].reshape(-1, 4, 2)
        grid_boxes = [(q[:, 0].min(), q[:, 1].min(), q[:, 0].max(), q[:, 1].max()) for q in code_pts]
        if _apart(grid_boxes):
            break
        tilt, roll = tilt / 2, roll / 2
    hm = paste_warped(frame, sheet, src, proj[:4])
    for cn in corners:
        q = cv2.perspectiveTransform(cn.reshape(-1, 1, 2), hm).reshape(-1, 2)
        boxes.append((q[:, 0].min(), q[:, 1].min(), q[:, 0].max(), q[:, 1].max()))
        quads.append(q)


def make_sample(rng, **kw):
    """Network input (640 x 640 x 3 uint8) and code boxes in input pixels."""
    frame, boxes, _ = make_frame(rng, **kw)
    inp, s = frame_to_input(frame)
    return inp, boxes * s
