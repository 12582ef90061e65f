#!/usr/bin/env python3
"""Recall against code size from the evaluation's CSV: one line per tilt.

    plot_recall.py recall_vs_size.csv recall_vs_size.png

Each frame size sweeps its own log-spaced sizes, so the points are pooled
into shared log-spaced bins before plotting; the library is drawn solid,
zxing-cpp dashed for reference.
"""
import csv
import math
import sys
from collections import defaultdict

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402


def main(src, dst):
    rows = list(csv.DictReader(open(src)))
    if not rows:
        sys.exit("no rows in " + src)
    lo, hi, bins = 16.0, max(float(r["input_px"]) for r in rows) * 1.001, 14

    def edge(i):
        return lo * (hi / lo) ** (i / bins)

    sums = defaultdict(lambda: [0, 0, 0])  # (tilt, bin) -> codes, library, zxing
    for r in rows:
        b = min(bins - 1, int(bins * math.log(float(r["input_px"]) / lo) / math.log(hi / lo)))
        s = sums[(int(r["tilt"]), b)]
        s[0] += int(r["codes"])
        s[1] += int(r["library"])
        s[2] += int(r["zxing"])
    fig, ax = plt.subplots(figsize=(8, 5))
    for tilt in sorted({t for t, _ in sums}):
        keys = sorted(b for t, b in sums if t == tilt)
        x = [math.sqrt(edge(b) * edge(b + 1)) for b in keys]
        (line,) = ax.plot(
            x, [sums[(tilt, b)][1] / sums[(tilt, b)][0] for b in keys], "o-", label=f"library, tilt {tilt}°"
        )
        ax.plot(
            x,
            [sums[(tilt, b)][2] / sums[(tilt, b)][0] for b in keys],
            "--",
            color=line.get_color(),
            alpha=0.5,
            label=f"zxing-cpp, tilt {tilt}°",
        )
    for edge_px in (24, 40, 56, 120, 240):
        ax.axvline(edge_px, color="grey", lw=0.5)
    ax.set_xscale("log")
    ax.set_xlabel("code size, larger side of the truth box (input px)")
    ax.set_ylabel("recall (IoU ≥ 0.5)")
    ax.set_ylim(0, 1.02)
    ax.legend(fontsize=7, ncol=2)
    ax.set_title("Recall against size, rendered sweep")
    fig.tight_layout()
    fig.savefig(dst, dpi=110)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
