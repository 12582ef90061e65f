"""Export trained weights to the model file the reference adapter loads.

    /usr/bin/python3 -m model.export --ckpt model/ckpt/last.pt --out model/codeDetect_quantized.bin

The file is a small header followed by an ONNX graph (layout in model/README.md):
the graph takes the image as float NCHW in 0..1 (the adapter converts the
library's uint8 NHWC tensor, to luma where the header asks for it) and returns
float NHWC maps; the header carries each output's name and 8-bit quantization so
that the adapter can hand the library the codes it dequantizes.
"""
import argparse
import io
import struct

import onnx
import torch

from model import layout
from model import net as netmod

MAGIC = b"SCQM"
VERSION = 4
NAME_LEN = 16
# What the graph's input is made of, from the library's uint8 H x W x C tensor.
INPUT_PLANES = 0  # its channels, as they are
INPUT_LUMA = 1  # one channel: OpenCV's 8-bit RGB-to-grey conversion of it
# The adapter runs the graph on the picture's rows and columns and one step more,
# rounded up to the step, and gives the cells it skips the lowest code. A step of
# the coarsest trained head's stride keeps every head that can fire on whole
# cells; the constant stride-128 head's skipped cells hold the code it would give
# anyway. Against a step of 128 it runs 448 rows of a 16:9 frame instead of 512,
# for the same boxes.
CROP_STEP = layout.COARSEST_TRAINED_STRIDE


def pack(onnx_bytes, input_name, outputs, input_form=INPUT_PLANES, crop_step=0):
    """outputs: list of (name, scale, zero point as the library adds it). crop_step:
    0, or the stride the adapter rounds the picture's part of the input up to when it
    runs a fully convolutional graph on that part only."""

    def name16(n):
        raw = n.encode()
        assert 0 < len(raw) < NAME_LEN
        return raw.ljust(NAME_LEN, b"\0")

    head = (
        MAGIC
        + struct.pack("<III", VERSION, len(outputs), len(onnx_bytes))
        + name16(input_name)
        + struct.pack("<II", input_form, crop_step)
    )
    for name, scale, zp in outputs:
        head += name16(name) + struct.pack("<fi", scale, zp)
    return head + onnx_bytes


INPUT_SCALE = 1.0 / 255.0  # applied by dnn's input layer to the byte blob


def input_blob(image, input_form):
    """The byte blob the adapter hands dnn for a uint8 H x W x 3 image (luma, or
    the channels split to NCHW); dnn scales it by INPUT_SCALE as it reads it."""
    if input_form == INPUT_LUMA:
        image = netmod.luma(image)
    return image.transpose(2, 0, 1)[None].copy()


def unpack(data):
    """-> (input name, input form, crop step, [(output name, scale, zero point)], ONNX bytes)"""
    magic, (version, count, size) = data[:4], struct.unpack_from("<III", data, 4)
    assert magic == MAGIC and version == VERSION
    input_name = data[16:32].split(b"\0")[0].decode()
    input_form, crop_step = struct.unpack_from("<II", data, 32)
    outs, off = [], 40
    for _ in range(count):
        name = data[off : off + NAME_LEN].split(b"\0")[0].decode()
        scale, zp = struct.unpack_from("<fi", data, off + NAME_LEN)
        outs.append((name, scale, zp))
        off += NAME_LEN + 8
    return input_name, input_form, crop_step, outs, data[off : off + size]


def onnx_bytes(model):
    dep = netmod.Deployed(model).eval()
    x = torch.zeros(1, model.stem[0].in_channels, layout.INPUT_SIDE, layout.INPUT_SIDE)
    f = io.BytesIO()
    torch.onnx.export(
        dep,
        x,
        f,
        input_names=[layout.INPUT_NAME],
        output_names=layout.OUTPUT_NAMES,
        opset_version=11,
        do_constant_folding=True,
    )
    return _without_shared_weights(f.getvalue())


def _without_shared_weights(data):
    """The exporter keeps one copy of equal weight tensors (folded biases of layers
    that have not trained apart, such as blocks a grown network starts as identity)
    and reads the others through Identity nodes, which OpenCV's dnn cannot load.
    Each such node becomes a copy of the tensor under its output's name."""
    graph = onnx.load_from_string(data)
    weights = {w.name: w for w in graph.graph.initializer}
    for node in [n for n in graph.graph.node if n.op_type == "Identity" and n.input[0] in weights]:
        copy = onnx.TensorProto()
        copy.CopyFrom(weights[node.input[0]])
        copy.name = node.output[0]
        graph.graph.initializer.append(copy)
        graph.graph.node.remove(node)
    return graph.SerializeToString()


def lower_scores(model, shifts):
    """Subtract each trained head's shift from its score logit: fewer false boxes for
    a little recall, chosen on held-out synthetic frames (calibrate.py)."""
    with torch.no_grad():
        for head, shift in zip(model.heads, shifts):
            head.out.bias[4] -= shift


def export(model, out):
    data = pack(
        onnx_bytes(model),
        layout.INPUT_NAME,
        [(h.name, h.scale, h.zero_point) for h in layout.HEADS],
        INPUT_LUMA,
        CROP_STEP,
    )
    with open(out, "wb") as fh:
        fh.write(data)
    print(f"wrote {out}: {len(data)} bytes", flush=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--ckpt", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument(
        "--score-shift",
        default="0,0,0,0",
        help="per trained head (strides 8 to 64), lower its score logits by this much",
    )
    args = ap.parse_args()
    model = netmod.from_state(torch.load(args.ckpt, map_location="cpu", weights_only=False))
    model.eval()
    lower_scores(model, [float(v) for v in args.score_shift.split(",")])
    export(model, args.out)


if __name__ == "__main__":
    main()
