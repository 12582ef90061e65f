"""Where a frame's time goes on a host: runs the command-line tool on pictures,
each repeated, with the library's timing lines and the reference adapter's
(SCANREF_TIMING) switched on, and prints the median of every step per frame
size, the first frame of each size (warm-up) left out.

    python3 scripts/stage_times.py [--tool build/tools/scancode] [--repeat 60] PICTURE...
"""

import argparse
import collections
import os
import re
import statistics
import subprocess
import sys

LIBRARY = re.compile(r"SYNC_DDK_TIME , (.*?)\s*:\s*([0-9.]+)ms")
ADAPTER = re.compile(r"scanref_adapter: run: (.*)")
STEP = re.compile(r"([a-z ]+?) ([0-9.]+) ms")
# The library's lines that make a frame's stage table, in frame order.
STAGES = [
    ("NV21 decode", "Time of YUV2RGB is"),
    ("letterbox", "Time of ResizePaddingRegular is"),
    ("input quantization", "qnn quantized Fp32ToUint8"),
    ("adapter run", "time qnn run"),
    ("output dequantization", "qnn dequantized"),
    ("box decoding", "object postProcess Time"),
    ("Process, total", "process total cost Time"),
]


def run(tool, picture, repeat):
    env = dict(os.environ)
    env.update(
        SCANCODE_PROP_persist_sys_Quarn_debug_on="1",
        SCANCODE_PROP_ro_logsystem_usertype="3",
        SCANREF_TIMING="1",
    )
    out = subprocess.run([tool, "--verbose"] + [picture] * repeat, env=env, capture_output=True, text=True, check=False)
    if out.returncode not in (0, 1):
        sys.exit(f"stage_times: {tool} failed on {picture} (exit {out.returncode}):\n{out.stderr[-2000:]}")
    frames = []
    for line in out.stderr.splitlines():
        if "Process() enter" in line:
            frames.append(collections.defaultdict(float))
        elif frames and (m := LIBRARY.search(line)):
            frames[-1][m.group(1).rstrip(": ")] += float(m.group(2))
        elif frames and (m := ADAPTER.search(line)):
            for step, ms in STEP.findall(m.group(1)):
                frames[-1]["adapter: " + step.strip()] += float(ms)
    return frames[1:]


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--tool", default="build/tools/scancode")
    ap.add_argument("--repeat", type=int, default=60)
    ap.add_argument("pictures", nargs="+")
    args = ap.parse_args()
    for picture in args.pictures:
        frames = run(args.tool, picture, args.repeat)
        if not frames:
            sys.exit(f"stage_times: no timed frames from {picture}")
        print(f"\n{picture}: medians of {len(frames)} frames (ms)")
        adapter = [k for k in frames[0] if k.startswith("adapter: ")]
        for label, key in STAGES:
            print(f"  {label:28s} {statistics.median(f[key] for f in frames):7.2f}")
            if key == "time qnn run":
                for k in adapter:
                    print(f"    {k[9:]:26s} {statistics.median(f[k] for f in frames):7.2f}")


if __name__ == "__main__":
    main()
