"""Writes the adapter tests' models, whose outputs are plain functions of the
pixels, so that every 8-bit code the adapter produces (after its own uint8 NHWC
-> float NCHW / 255 conversion) can be worked out by hand.

tiny_model.bin, a 2 x 2 RGB input read as planes, two outputs:
    outputs [1,2,2,2]: (R, -G)   quantized with scale 3,   zero point -20
    _306    [1,2,2,1]: (B)       quantized with scale 0.5, zero point 0

tiny_luma_model.bin, a 2 x 2 RGB input read as luma, one output:
    outputs [1,2,2,1]: (Y)       quantized with scale 1,   zero point 0

tiny_crop_model.bin, an 8 x 8 RGB input read as luma, crop step 2, one output:
    outputs [1,8,8,1]: (Y)       quantized with scale 1,   zero point -10

tiny_scale_model.bin, tiny_luma_model.bin computed by a multiplication, a layer
only the engine that reads any ONNX graph runs.

The others are convolutions, so that every engine runs them.

Run: /usr/bin/python3 tests/adapters/make_tiny_model.py
"""
import io
import os
import sys

import torch
import torch.nn as nn

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", ".."))
from model import export  # noqa: E402


class Tiny(nn.Module):
    def __init__(self):
        super().__init__()
        self.a = nn.Conv2d(3, 2, 1)
        self.b = nn.Conv2d(3, 1, 1)
        with torch.no_grad():
            self.a.weight.copy_(torch.tensor([[255.0, 0, 0], [0, -255.0, 0]]).view(2, 3, 1, 1))
            self.a.bias.zero_()
            self.b.weight.copy_(torch.tensor([[0, 0, 255.0]]).view(1, 3, 1, 1))
            self.b.bias.fill_(1e-4)  # keeps the two bias initialisers distinct in the export

    def forward(self, x):
        return self.a(x).permute(0, 2, 3, 1), self.b(x).permute(0, 2, 3, 1)


class TinyLuma(nn.Module):
    def __init__(self):
        super().__init__()
        self.a = nn.Conv2d(1, 1, 1)
        with torch.no_grad():
            self.a.weight.fill_(255.0)
            self.a.bias.zero_()

    def forward(self, x):
        return self.a(x).permute(0, 2, 3, 1)


class TinyScale(nn.Module):
    def forward(self, x):
        return (x * 255.0).permute(0, 2, 3, 1)


def write(name, model, outputs, form, side=2, crop_step=0):
    channels = 1 if form == export.INPUT_LUMA else 3
    f = io.BytesIO()
    torch.onnx.export(
        model.eval(),
        torch.zeros(1, channels, side, side),
        f,
        input_names=["inputs"],
        output_names=[o[0] for o in outputs],
        opset_version=11,
    )
    data = export.pack(f.getvalue(), "inputs", outputs, form, crop_step)
    with open(os.path.join(HERE, name), "wb") as fh:
        fh.write(data)
    print(name, len(data), "bytes")


def main():
    write("tiny_model.bin", Tiny(), [("outputs", 3.0, -20), ("_306", 0.5, 0)], export.INPUT_PLANES)
    write("tiny_luma_model.bin", TinyLuma(), [("outputs", 1.0, 0)], export.INPUT_LUMA)
    write("tiny_crop_model.bin", TinyLuma(), [("outputs", 1.0, -10)], export.INPUT_LUMA, side=8, crop_step=2)
    write("tiny_scale_model.bin", TinyScale(), [("outputs", 1.0, 0)], export.INPUT_LUMA)


if __name__ == "__main__":
    main()
