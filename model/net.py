"""The QR detection network and the fixed output quantization it is trained under.

Five heads at strides 8, 16, 32, 64 and 128 give six values per cell: log distances
from the cell centre to the left, top, right and bottom box edges in input pixels,
a score logit and one unused value. Every output is read back through a fixed 8-bit
quantization, y = (q + zp) * scale, so training sees the same rounding and clamping.
"""
import cv2
import torch
import torch.nn as nn
import torch.nn.functional as F

from model import layout


def luma(image):
    """The one-channel picture the network sees: the luma of the library's 640 x 640
    x 3 input, as OpenCV's 8-bit RGB-to-grey conversion computes it (the adapter
    calls the same conversion). QR codes are dark and light, not coloured; reading
    one channel instead of three takes a third of the work of the layer that reads
    the whole input, the network's most expensive one."""
    return cv2.cvtColor(image, cv2.COLOR_RGB2GRAY)[..., None]


def quant_range(i):
    zp, scale = layout.OUTPUT_QUANT[i]
    return zp * scale, (255 + zp) * scale


def fake_quant(y, zp, scale):
    """Round-trip through the 8-bit output code. The clamp keeps its true gradient
    (none outside the representable range, so nothing drifts past it); the rounding
    passes the gradient straight through."""
    yc = torch.clamp(y, zp * scale, (255 + zp) * scale)
    q = torch.clamp(torch.round(yc / scale) - zp, 0, 255)
    return yc + ((q + zp) * scale - yc).detach()


def from_state(state):
    """The network a saved training state holds, with its weights (a state saved
    before the depths were a run setting has the default ones)."""
    model = QRDet(depths=tuple(state["args"].get("depths", DEPTHS)))
    model.load_state_dict(state["model"])
    return model


def conv_bn(cin, cout, k=3, s=1, groups=1):
    return nn.Sequential(
        nn.Conv2d(cin, cout, k, s, k // 2, groups=groups, bias=False), nn.BatchNorm2d(cout), nn.ReLU(inplace=True)
    )


class Block(nn.Module):
    """Depthwise 3x3 then pointwise 1x1; residual when the shape is kept."""

    def __init__(self, cin, cout, stride=1):
        super().__init__()
        self.dw = conv_bn(cin, cin, 3, stride, groups=cin)
        self.pw = nn.Sequential(nn.Conv2d(cin, cout, 1, bias=False), nn.BatchNorm2d(cout))
        self.res = stride == 1 and cin == cout

    def forward(self, x):
        y = self.pw(self.dw(x))
        return F.relu(x + y) if self.res else F.relu(y)


class Head(nn.Module):
    """Depthwise 3x3, pointwise, then the six outputs. Depthwise layers stay 3x3
    without dilation everywhere: OpenCV's dnn has a fast path for those only, and a
    5x5 head layer alone costs more than the rest of the network."""

    def __init__(self, c):
        super().__init__()
        self.body = nn.Sequential(conv_bn(c, c, 3, groups=c), conv_bn(c, c, 1))
        self.out = nn.Conv2d(c, layout.VALUES_PER_CELL, 1)

    def forward(self, x):
        return self.out(self.body(x))


# Channels and depthwise-separable blocks per stage (strides 8, 16, 32, 64). The two
# fine stages get a third block: their heads answer for small and mid-sized codes,
# and each block widens what a cell sees by two strides, so a stride-8 cell sees
# about 60 input pixels and a stride-16 cell about 156.
STEM = 16
WIDTHS = (32, 48, 64, 80)
DEPTHS = (3, 3, 2, 2)


class QRDet(nn.Module):
    """Returns the four trained heads (strides 8 to 64) as float NCHW maps, and the
    stride-64 features the constant stride-128 head is attached to.

    Sized for OpenCV's dnn on two CPU cores: a 4x4 stride-4 patch layer on luma only
    (the layer that reads the whole input dominates the time whatever follows it),
    then per stride one downsampling and one or two plain depthwise-separable blocks.
    The reference adapter runs it on the letterboxed rows that hold the picture only,
    which pays for the fine stages' extra width and depth on 16:9 frames."""

    def __init__(self, stem=STEM, widths=WIDTHS, depths=DEPTHS):
        super().__init__()
        self.stem = nn.Sequential(nn.Conv2d(1, stem, 4, 4, 0, bias=False), nn.BatchNorm2d(stem), nn.ReLU(inplace=True))
        chans = (stem,) + tuple(widths)
        self.stages = nn.ModuleList(
            [
                nn.Sequential(
                    Block(chans[i], chans[i + 1], 2), *[Block(chans[i + 1], chans[i + 1]) for _ in range(depths[i] - 1)]
                )
                for i in range(4)
            ]
        )
        self.heads = nn.ModuleList([Head(c) for c in widths])
        with torch.no_grad():
            # start near the typical log distance of each head's sizes and a low score
            for h, d in zip(self.heads, [2.8, 3.8, 4.6, 5.3]):
                h.out.bias.zero_()
                h.out.bias[:4] = d
                h.out.bias[4] = -4.6

    def load_grown(self, state_dict):
        """Loads the weights of a network with as many or fewer blocks per stage.
        Each block it lacks is a residual block whose last batch norm starts at
        zero scale, so it passes its input through unchanged (the input is a ReLU's,
        never negative) and the grown network computes exactly what the smaller
        one did until training moves it."""
        missing, unexpected = self.load_state_dict(state_dict, strict=False)
        grown = {k.rsplit(".", 3)[0] for k in missing}  # stages.<stage>.<block>
        if unexpected or any(not k.startswith("stages.") for k in grown):
            raise ValueError(f"not a smaller network of the same kind: {sorted(unexpected or missing)[:4]}")
        with torch.no_grad():
            for name in grown:
                _, i, j = name.split(".")
                block = self.stages[int(i)][int(j)]
                if not block.res:
                    raise ValueError(f"{name} changes the shape and cannot start as identity")
                block.pw[1].weight.zero_()

    def forward(self, x):
        x = self.stem(x)
        feats = []
        for stage in self.stages:
            x = stage(x)
            feats.append(x)
        return [head(f) for head, f in zip(self.heads, feats)], feats[-1]

    def quantized(self, x):
        outs, _ = self.forward(x)
        return [fake_quant(o, *layout.OUTPUT_QUANT[i]) for i, o in enumerate(outs)]


class Deployed(nn.Module):
    """The exported graph: the luma image as float 1 x 1 x 640 x 640 scaled to 0..1
    (the adapter prepares it: converting inside the graph costs OpenCV's dnn more
    than the whole network), five float NHWC outputs.

    The stride-128 head cannot express a box (its largest log distance is 0, one
    pixel) nor a score above 0, so it is a constant far below the score threshold:
    after quantization every value is the head's minimum and it never fires.
    """

    def __init__(self, net):
        super().__init__()
        self.net = net
        self.head128 = nn.Conv2d(WIDTHS[-1], layout.VALUES_PER_CELL, 1)
        with torch.no_grad():
            self.head128.weight.zero_()
            self.head128.bias.fill_(-30.0)

    def forward(self, x):
        outs, p64 = self.net(x)
        outs = outs + [self.head128(F.max_pool2d(p64, 2))]
        return tuple(o.permute(0, 2, 3, 1) for o in outs)
