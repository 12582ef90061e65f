"""The detector's input and output layout: the facts the network, its export,
training, calibration and the library's own tables must all agree on, kept here
once.

The network reads a square input and answers with one map per head, in output
order; each cell of a head's map holds VALUES_PER_CELL values. Every output is
handed to the library as 8-bit codes it reads back as (q + zero_point) * scale,
so training, export and calibration all use these numbers. The scales are
float32 values written out in full: the model file's header stores them as
float32, and a value that did not survive that trip would quantize differently
in training than in the library.

    python3 -m model.layout     # the layout as one line of JSON

This module imports nothing heavy, so that the library's build can read the
layout without torch or OpenCV.
"""

import json
from typing import NamedTuple

INPUT_SIDE = 640
INPUT_NAME = "inputs"
# Log distances to the left, top, right and bottom box edges, the score logit and
# one unused value.
VALUES_PER_CELL = 6


class Head(NamedTuple):
    name: str
    stride: int
    zero_point: int  # as the library adds it to the code
    scale: float


HEADS = [
    Head("outputs", 8, -189, 0.06613318622112274),
    Head("_306", 16, -221, 0.15657134354114532),
    Head("_328", 32, -178, 0.07030908763408661),
    Head("_350", 64, -168, 0.07131850719451904),
    Head("_372", 128, -255, 0.0829123929142952),
]

# The library keeps a cell whose score logit is at least this (a probability of
# 0.3); calibration and evaluation here apply the same rule.
SCORE_THRESHOLD_LOGIT = -0.8473

OUTPUT_NAMES = [h.name for h in HEADS]
STRIDES = [h.stride for h in HEADS]
# (zero point, scale) per output, in output order
OUTPUT_QUANT = [(h.zero_point, h.scale) for h in HEADS]
GRIDS = [INPUT_SIDE // s for s in STRIDES]
# The heads the network is trained to answer with, finest first; the stride-128
# head after them is a constant at its lowest code and never fires.
TRAINED_HEADS = 4
COARSEST_TRAINED_STRIDE = STRIDES[TRAINED_HEADS - 1]
OUTPUT_VALUES = sum(g * g * VALUES_PER_CELL for g in GRIDS)


def as_dict():
    return {
        "input_side": INPUT_SIDE,
        "input_name": INPUT_NAME,
        "values_per_cell": VALUES_PER_CELL,
        "output_values": OUTPUT_VALUES,
        "score_threshold_logit": SCORE_THRESHOLD_LOGIT,
        "heads": [h._asdict() for h in HEADS],
    }


def main():
    print(json.dumps(as_dict()))


if __name__ == "__main__":
    main()
