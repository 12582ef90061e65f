"""Appends one evaluated training state to the training log and keeps the best one.

    /usr/bin/python3 -m model.log_eval QUICK.json CANDIDATE.bin --tsv model/train_log/eval.tsv \
        --best model/codeDetect_quantized.bin

QUICK.json is what the evaluation (`tools/evaluate --quick --json`) wrote for the
candidate model file. Its "goals" are the measures the detector is held to; the log
gets one line of them per evaluated state, and the candidate replaces --best when
its score is the highest logged so far.
"""
import argparse
import csv
import json
import os
import shutil

# The recalls the detector is held to, in the log's column order, then box accuracy,
# false boxes and speed.
RECALLS = [
    "sweep_recall_40up_tilt45",
    "sweep_recall_24_40",
    "sweep_recall_40up_tilt60",
    "multi_recall_40up_gap25",
    "photos_recall",
]
OTHERS = [
    "box_median_iou_40up",
    "box_median_size_error_40up",
    "false_boxes_per_natural_frame",
    "process_vs_zxing_720p",
    "process_vs_zxing_1080p",
]


def score(goals):
    """One number to rank states by: the mean recall, less twice the false boxes per
    frame (a false box on every other frame costs as much as a tenth of recall)."""
    return sum(goals[k] for k in RECALLS) / len(RECALLS) - 2.0 * goals["false_boxes_per_natural_frame"]


def main(argv=None):
    ap = argparse.ArgumentParser()
    ap.add_argument("json")
    ap.add_argument("candidate")
    ap.add_argument("--tsv", required=True)
    ap.add_argument("--best", required=True)
    args = ap.parse_args(argv)
    with open(args.json) as fh:
        goals = json.load(fh)["goals"]
    columns = ["model"] + RECALLS + OTHERS + ["score"]
    rows = []
    if os.path.exists(args.tsv):
        with open(args.tsv) as fh:
            rows = list(csv.DictReader(fh, delimiter="\t"))
    row = {"model": os.path.basename(args.candidate), "score": f"{score(goals):.4f}"}
    row.update({k: f"{goals[k]:.4f}" for k in RECALLS + OTHERS})
    best = max((float(r["score"]) for r in rows), default=float("-inf"))
    rows.append(row)
    with open(args.tsv, "w", newline="") as fh:
        w = csv.DictWriter(fh, columns, delimiter="\t")
        w.writeheader()
        w.writerows(rows)
    if float(row["score"]) > best:
        shutil.copyfile(args.candidate, args.best)
        print(f"{row['model']}: score {row['score']}, the best so far: now {args.best}")
    else:
        print(f"{row['model']}: score {row['score']}, not better than {best:.4f}")


if __name__ == "__main__":
    main()
