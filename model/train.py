"""Train the QR detector on synthetic frames and write the model file.

    nice -n 5 /usr/bin/python3 model/train.py --minutes 110 --out model/codeDetect_quantized.bin

(model/README.md gives the fine-tune that follows for the committed file.)

Frames are generated on the fly by worker processes into a replay buffer that the
training loop samples from, so a slow generator never stalls the optimiser. The
learning rate follows the wall-clock budget. Checkpoints go to model/ckpt/; at the
end the last weights are exported (see export.py).
"""
import argparse
import math
import multiprocessing as mp
import os
import queue
import sys
import time

import numpy as np
import torch
import torch.nn.functional as F

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import net as netmod  # noqa: E402
import qrdata  # noqa: E402

GRIDS = [80, 40, 20, 10]
# A code goes to exactly one head by its larger box side (input pixels); each head's
# largest log distance (e^4.36, e^5.32, e^5.41, e^6.2 px) covers half its largest size.
SIZE_LIMITS = [56.0, 120.0, 240.0]
SIGMA_CELLS = 0.5


def head_of(size):
    for i, lim in enumerate(SIZE_LIMITS):
        if size < lim:
            return i
    return 3


def build_targets(boxes):
    """Per head: heat (soft score target), pos (the one cell nearest each code
    centre), ignore (no negative loss), reg target (4 log distances) and reg weight."""
    out = []
    for g in GRIDS:
        out.append(dict(heat=np.zeros((g, g), np.float32), pos=np.zeros((g, g), np.float32),
                        ign=np.zeros((g, g), np.float32), reg=np.zeros((4, g, g), np.float32),
                        rw=np.zeros((g, g), np.float32)))
    for x0, y0, x1, y1 in boxes:
        size = max(x1 - x0, y1 - y0)
        hi = head_of(size)
        bx, by = (x0 + x1) / 2, (y0 + y1) / 2
        # codes close to a size boundary may be picked up by the neighbouring head:
        # neither reward nor punish that head near their centre
        near = [h for h, lim in ((hi - 1, SIZE_LIMITS[hi - 1] if hi > 0 else None),
                                 (hi + 1, SIZE_LIMITS[hi] if hi < 3 else None))
                if lim is not None and abs(math.log(size / lim)) < 0.15]
        for h in [hi] + near:
            g, stride = GRIDS[h], netmod.STRIDES[h]
            half = stride // 2
            ccx = int(np.clip(round((bx - half) / stride), 0, g - 1))
            ccy = int(np.clip(round((by - half) / stride), 0, g - 1))
            r0, r1 = max(ccy - 3, 0), min(ccy + 4, g)
            c0, c1 = max(ccx - 3, 0), min(ccx + 4, g)
            ys = (np.arange(r0, r1) * stride + half).astype(np.float32)
            xs = (np.arange(c0, c1) * stride + half).astype(np.float32)
            cx, cy = np.meshgrid(xs, ys)
            if h != hi:
                d2 = ((cx - bx) ** 2 + (cy - by) ** 2) / stride ** 2
                out[h]["ign"][r0:r1, c0:c1] = np.maximum(out[h]["ign"][r0:r1, c0:c1], (d2 <= 2.0))
                continue
            t = out[h]
            d2 = ((cx - bx) ** 2 + (cy - by) ** 2) / stride ** 2
            heat = np.exp(-d2 / (2 * SIGMA_CELLS ** 2))
            t["heat"][r0:r1, c0:c1] = np.maximum(t["heat"][r0:r1, c0:c1], heat)
            t["pos"][ccy, ccx] = 1.0
            t["heat"][ccy, ccx] = 1.0
            dist = np.stack([cx - x0, cy - y0, x1 - cx, y1 - cy])
            inside = (dist > 1.0).all(axis=0) & (heat > 0.05)
            w = np.where(inside, heat, 0).astype(np.float32)
            w[ccy - r0, ccx - c0] = 1.0 if (dist[:, ccy - r0, ccx - c0] > 1.0).all() else 0.0
            sel = w > t["rw"][r0:r1, c0:c1]
            reg = np.log(np.maximum(dist, 1.0))
            t["reg"][:, r0:r1, c0:c1] = np.where(sel[None], reg, t["reg"][:, r0:r1, c0:c1])
            t["rw"][r0:r1, c0:c1] = np.where(sel, w, t["rw"][r0:r1, c0:c1])
    return out


def worker(seed, q, no_code_share):
    os.nice(5)
    import cv2
    cv2.setNumThreads(1)
    torch.set_num_threads(1)
    rng = np.random.default_rng(seed)
    odds = qrdata.code_count_odds(no_code_share)
    while True:
        inp, boxes = qrdata.make_sample(rng, ncode_p=odds)
        q.put((netmod.luma(inp), build_targets(boxes)))


def loss_fn(outs, targets, neg_weight=1.0):
    cls_total, reg_total, npos = 0.0, 0.0, 0.0
    rw_total = 0.0
    for h, o in enumerate(outs):
        t = targets[h]
        score = o[:, 4]
        logp, log1mp = F.logsigmoid(score), F.logsigmoid(-score)
        p = torch.sigmoid(score)
        pos, heat, ign = t["pos"], t["heat"], t["ign"]
        pos_l = -(pos * (1 - p) ** 2 * logp).sum()
        neg_l = -((1 - pos) * (1 - ign) * (1 - heat) ** 4 * p ** 2 * log1mp).sum()
        cls_total = cls_total + pos_l + neg_weight * neg_l
        npos += float(pos.sum())
        rw = t["rw"]
        reg_total = reg_total + (rw[:, None] * (o[:, :4] - t["reg"]).abs()).sum()
        rw_total += float(rw.sum())
    cls = cls_total / max(npos, 1.0)
    reg = reg_total / max(rw_total, 1.0)
    return cls + 2.0 * reg, cls, reg


CROP_STEP = 64  # crops start on the coarsest trained grid so every head's cells stay aligned


def crop_item(item, crop, rng):
    """A crop x crop window of a sample and its targets. The window is put over a
    random code when there is one, otherwise anywhere."""
    inp, tg = item
    hs = [i for i in range(4) if tg[i]["pos"].any()]
    if hs:
        h = hs[int(rng.integers(len(hs)))]
        r, c = np.argwhere(tg[h]["pos"] > 0)[int(rng.integers(int(tg[h]["pos"].sum())))]
        stride = netmod.STRIDES[h]
        cy, cx = r * stride + stride // 2, c * stride + stride // 2
        lo_y, lo_x = max(0, cy - crop + 32), max(0, cx - crop + 32)
        hi_y, hi_x = min(qrdata.INPUT - crop, cy - 32), min(qrdata.INPUT - crop, cx - 32)
        a_y, b_y = -(-lo_y // CROP_STEP), max(hi_y // CROP_STEP, -(-lo_y // CROP_STEP))
        a_x, b_x = -(-lo_x // CROP_STEP), max(hi_x // CROP_STEP, -(-lo_x // CROP_STEP))
        oy = min(int(rng.integers(a_y, b_y + 1)) * CROP_STEP, qrdata.INPUT - crop)
        ox = min(int(rng.integers(a_x, b_x + 1)) * CROP_STEP, qrdata.INPUT - crop)
    else:
        n = (qrdata.INPUT - crop) // CROP_STEP + 1
        oy, ox = int(rng.integers(n)) * CROP_STEP, int(rng.integers(n)) * CROP_STEP
    out = []
    for h, t in enumerate(tg):
        s = netmod.STRIDES[h]
        sl = (slice(oy // s, (oy + crop) // s), slice(ox // s, (ox + crop) // s))
        out.append({k: (v[(slice(None),) + sl] if v.ndim == 3 else v[sl]) for k, v in t.items()})
    return inp[oy:oy + crop, ox:ox + crop], out


def collate(items):
    x = torch.from_numpy(np.stack([i[0] for i in items])).permute(0, 3, 1, 2).float() / 255.0
    tg = []
    for h in range(4):
        d = {}
        for k in ("heat", "pos", "ign", "reg", "rw"):
            d[k] = torch.from_numpy(np.stack([i[1][h][k] for i in items]))
        tg.append(d)
    return x, tg


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--minutes", type=float, default=65.0)
    ap.add_argument("--batch", type=int, default=16)
    ap.add_argument("--lr", type=float, default=3e-3)
    ap.add_argument("--workers", type=int, default=2)
    ap.add_argument("--buffer", type=int, default=1500)
    ap.add_argument("--threads", type=int, default=2)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--ckpt-dir", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "ckpt"))
    ap.add_argument("--resume", default="")
    ap.add_argument("--crop", type=int, default=320, help="window side for most steps (0: always whole frames)")
    ap.add_argument("--out", default="")
    ap.add_argument("--score-shift", type=float, default=0.0, help="at export, lower every score logit by this much")
    ap.add_argument("--no-code-share", type=float, default=float(qrdata.NCODE_P[0]),
                    help="share of generated frames without a code")
    ap.add_argument("--neg-weight", type=float, default=1.0,
                    help="weight of the loss on cells away from any code (above 1: fewer false boxes)")
    args = ap.parse_args()

    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    os.makedirs(args.ckpt_dir, exist_ok=True)
    model = netmod.QRDet()
    opt = torch.optim.AdamW(model.parameters(), lr=args.lr, weight_decay=1e-4)
    if args.resume:
        st = torch.load(args.resume)
        model.load_state_dict(netmod.luma_stem(st["model"]))

    ctx = mp.get_context("fork")
    q = ctx.Queue(maxsize=64)
    procs = [ctx.Process(target=worker, args=(args.seed * 1000 + i, q, args.no_code_share), daemon=True) for i in range(args.workers)]
    for p in procs:
        p.start()

    buf = []
    rng = np.random.default_rng(args.seed)
    while len(buf) < 4 * args.batch:
        buf.append(q.get())
    start = time.time()
    budget = args.minutes * 60
    step, fresh = 0, len(buf)
    last_ckpt = start
    ema = None
    model.train()
    while True:
        elapsed = time.time() - start
        if elapsed > budget:
            break
        while True:
            try:
                item = q.get_nowait()
            except queue.Empty:
                break
            fresh += 1
            if len(buf) < args.buffer:
                buf.append(item)
            else:
                buf[int(rng.integers(len(buf)))] = item
        frac = elapsed / budget
        lr = args.lr * min(1.0, (step + 1) / 100) * (0.02 + 0.98 * 0.5 * (1 + math.cos(math.pi * frac)))
        for g in opt.param_groups:
            g["lr"] = lr
        idx = rng.integers(len(buf), size=args.batch)
        items = [buf[i] for i in idx]
        # Most steps train on 320 x 320 windows (a quarter of the work, so four times
        # the steps on a CPU); every fourth step, and the whole last tenth so that the
        # batch-norm statistics end on whole frames, sees the full 640 x 640 input
        # with its padding.
        if args.crop and step % 4 != 3 and frac < 0.9:
            items = [crop_item(it, args.crop, rng) for it in items]
        x, tg = collate(items)
        outs = model.quantized(x)
        loss, cls, reg = loss_fn(outs, tg, args.neg_weight)
        opt.zero_grad()
        loss.backward()
        opt.step()
        step += 1
        v = np.array([float(loss), float(cls), float(reg)])
        ema = v if ema is None else 0.98 * ema + 0.02 * v
        if step % 20 == 0:
            print(f"step {step} t {elapsed / 60:.1f}m lr {lr:.2e} loss {ema[0]:.3f} cls {ema[1]:.3f} "
                  f"reg {ema[2]:.3f} frames {fresh} buf {len(buf)}", flush=True)
        if time.time() - last_ckpt > 300:
            torch.save({"model": model.state_dict(), "step": step}, os.path.join(args.ckpt_dir, "last.pt"))
            last_ckpt = time.time()
    torch.save({"model": model.state_dict(), "step": step}, os.path.join(args.ckpt_dir, "last.pt"))
    print(f"done: {step} steps, {fresh} generated frames, {(time.time() - start) / 60:.1f} min", flush=True)
    for p in procs:
        p.terminate()
    if args.out:
        import export
        model.eval()
        export.lower_scores(model, args.score_shift)
        export.export(model, args.out)


if __name__ == "__main__":
    main()
