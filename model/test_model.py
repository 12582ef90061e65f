"""Checks of the training pipeline's pieces that must agree with the library.

    /usr/bin/python3 -m unittest model.test_model      # from the repository root
"""
import hashlib
import json
import os
import subprocess
import sys
import tempfile
import unittest

import numpy as np
import torch

from model import calibrate, export, layout, qrdata, train
from model import net as netmod


def nv21_of_pairs(y, c0, c1, w=8, h=2):
    return np.array([y] * (w * h) + [c0, c1] * (w // 2) * (h // 2), np.uint8)


class DecoderTest(unittest.TestCase):
    def test_library_arithmetic_including_wrap_around(self):
        cases = [
            ((128, 128, 128), (128, 128, 128)),  # grey stays grey
            ((128, 200, 128), (255, 104, 128)),
            ((100, 201, 128), (0, 75, 100)),  # 455 x 73 wraps in 16 bits
        ]
        for (y, c0, c1), want in cases:
            with self.subTest(y=y, c0=c0, c1=c1):
                out = qrdata.decode_nv21(nv21_of_pairs(y, c0, c1), 8, 2)
                self.assertEqual(tuple(out[1, 7]), want)


class TargetTest(unittest.TestCase):
    def test_codes_are_positives_in_every_head_whose_range_holds_them(self):
        # (box, heads): sizes inside one range, and sizes where two ranges overlap
        cases = [
            ((100, 100, 130, 130), [0]),
            ((100, 100, 150, 150), [0, 1]),
            ((200, 40, 290, 120), [1]),
            ((300, 100, 480, 250), [2]),
            ((10, 10, 230, 230), [2, 3]),
            ((10, 10, 400, 330), [3]),
            ((5, 5, 9, 9), [0]),
        ]
        for box, heads in cases:
            with self.subTest(box=box):
                t = train.build_targets(np.array([box], np.float32))
                self.assertEqual([h for h in range(4) if t[h]["pos"].any()], heads)
                bx, by = (box[0] + box[2]) / 2, (box[1] + box[3]) / 2
                for h in heads:
                    stride = layout.STRIDES[h]
                    for r, c in np.argwhere(t[h]["pos"]):
                        cx, cy = c * stride + stride // 2, r * stride + stride // 2
                        # near the centre, and its distances put the box where the code is
                        self.assertLessEqual(max(abs(cx - bx), abs(cy - by)), max(train.CENTRE_RADIUS * stride, stride))
                        d = t[h]["dist"][:, r, c]
                        if min(box[2] - box[0], box[3] - box[1]) > stride:
                            np.testing.assert_allclose([cx - d[0], cy - d[1], cx + d[2], cy + d[3]], box, atol=1e-4)
                        # every log distance is expressible by the head's quantized range
                        lo, hi = netmod.quant_range(h)
                        self.assertTrue(lo < np.log(d).min() and np.log(d).max() < hi, d)

    def test_a_cell_two_codes_claim_goes_to_the_smaller(self):
        big, small = (100, 100, 150, 150), (118, 118, 140, 140)
        t = train.build_targets(np.array([big, small], np.float32))[0]
        r, c = 16, 16  # centre (132, 132): inside both, near both centres
        self.assertEqual(t["pos"][r, c], 1)
        np.testing.assert_allclose(t["dist"][:, r, c], [132 - 118, 132 - 118, 140 - 132, 140 - 132])


class ScoreTargetTest(unittest.TestCase):
    def test_an_overshoot_cost_ranks_a_box_that_errs_inward_above_one_that_errs_outward(self):
        code = torch.tensor([[10.0, 10.0, 10.0, 10.0]])
        outward = torch.tensor([[10.5, 10.5, 10.5, 10.5]])  # IoU 400 / 441
        inward = torch.tensor([[9.5, 9.5, 9.5, 9.5]])  # IoU 361 / 400, a little lower

        def q(box, overshoot):
            return float(train.quality_target(train.box_iou(box, code)[0], box, code, overshoot))

        self.assertAlmostEqual(q(outward, 0.0), 400 / 441, places=6)
        self.assertGreater(q(outward, 0.0), q(inward, 0.0))
        self.assertLess(q(outward, 2.0), q(inward, 2.0))
        self.assertAlmostEqual(q(inward, 2.0), q(inward, 0.0), places=6)  # inward costs nothing
        self.assertAlmostEqual(q(outward, 2.0), 400 / 441 - 2.0 * 0.5 / 20, places=6)


class DataTest(unittest.TestCase):
    def test_training_never_sees_the_evaluation_pictures(self):
        for path in qrdata.photo_paths():
            self.assertNotIn("/gnome/", path)
            self.assertNotIn("skimage", path)

    def test_frames_hold_the_codes_they_report(self):
        rng = np.random.default_rng(3)
        for _ in range(4):
            frame, boxes, quads = qrdata.make_frame(rng, frame_size=(1280, 720))
            self.assertEqual(frame.shape, (720, 1280, 3))
            self.assertEqual(len(boxes), len(quads))
            for box in boxes:
                self.assertTrue(0 <= box[0] < box[2] <= 1280 and 0 <= box[1] < box[3] <= 720, box)

    def test_runs_without_extras_render_their_frames_again_exactly(self):
        # frames of runs 2 and 3 (a sheet of five labels, four codes), as they were rendered
        for (seed, index, no_code_share, backgrounds), digest in (
            ((2, 6, 0.3, (0.45, 0.15, 0.2)), "89656dd6b4a2d672"),
            ((3, 2, 0.4, (0.3, 0.4, 0.18)), "add911d20ae1d771"),
        ):
            img, boxes = train.render(seed, index, no_code_share, backgrounds)
            self.assertEqual(hashlib.sha256(img.tobytes() + boxes.tobytes()).hexdigest()[:16], digest)

    def test_grid_codes_are_boxes_apart_inside_the_frame(self):
        rng = np.random.default_rng(26)
        for w, h in [(1280, 720), (720, 1280), (1920, 1080)] * 10:
            boxes, quads = [], []
            qrdata.code_grid(rng, np.zeros((h, w, 3), np.uint8), 20.0, 300.0, boxes, quads)
            self.assertIn(len(boxes), (4, 6))
            for i, a in enumerate(boxes):
                self.assertTrue(0 <= a[0] < a[2] <= w and 0 <= a[1] < a[3] <= h, a)
                for b in boxes[:i]:
                    self.assertTrue(a[2] < b[0] or b[2] < a[0] or a[3] < b[1] or b[3] < a[1], (a, b))
            # one sheet seen from 1.6 widths or more: perspective alone makes no code twice another's size
            sides = [max(b[2] - b[0], b[3] - b[1]) for b in boxes]
            self.assertLess(max(sides) / min(sides), 2.0, boxes)


class QuantTest(unittest.TestCase):
    def test_fake_quant_matches_the_adapter_and_library_round_trip(self):
        for i, (zp, scale) in enumerate(layout.OUTPUT_QUANT):
            y = torch.tensor([-100.0, 0.0, 0.3, 2.0, 100.0])
            got = netmod.fake_quant(y, zp, scale).numpy()
            q = np.clip(np.rint(y.numpy() / scale) - zp, 0, 255)
            np.testing.assert_allclose(got, (q + zp) * scale, rtol=1e-6, atol=1e-6)
            lo, hi = netmod.quant_range(i)
            self.assertAlmostEqual(got[0], lo, places=5)
            self.assertAlmostEqual(got[-1], hi, places=5)

    def test_header_round_trip(self):
        outs = [("outputs", 0.5, -3), ("_306", 2.0, 7)]
        for form, step in ((export.INPUT_PLANES, 0), (export.INPUT_LUMA, 128)):
            name, got_form, got_step, got, onnx = export.unpack(export.pack(b"graph", "inputs", outs, form, step))
            self.assertEqual((name, got_form, got_step, onnx), ("inputs", form, step, b"graph"))
            self.assertEqual(got, outs)


class DecodeTest(unittest.TestCase):
    """The calibration decodes as the library does; a shift raises one head's threshold."""

    def maps(self):
        return [np.full((g * g, layout.VALUES_PER_CELL), -20.0, np.float32) for g in layout.GRIDS]

    def test_threshold_is_inclusive_and_touching_boxes_are_suppressed(self):
        m = self.maps()
        m[0][0] = [2, 2, 2, 2, calibrate.THRESHOLD, 0]  # kept alone: exactly at the threshold
        m[0][1] = [2, 2, 2, 2, 3.0, 0]  # better, and touches cell 0's box (x 4.6..19.4 and -3.4..11.4)
        m[0][79] = [2, 2, 2, 2, -0.8474, 0]  # below the threshold
        m[1][40 * 20 + 20] = [2, 2, 2, 2, 0.5, 0]  # far away: kept
        self.assertEqual(len(calibrate.decode(m, [0, 0, 0, 0])), 2)
        m[0][1, 4] = -30.0
        self.assertEqual(len(calibrate.decode(m, [0, 0, 0, 0])), 2, "cell 0 kept once nothing better touches it")
        self.assertEqual(len(calibrate.decode(m, [0.1, 0, 0, 0])), 1, "a shift raises its own head's threshold")
        self.assertEqual(len(calibrate.decode(m, [0.1, 1.4, 0, 0])), 0)

    def test_boxes_a_pixel_apart_touch_and_further_apart_do_not(self):
        a = (0.0, 0.0, 10.0, 10.0)
        self.assertTrue(calibrate.touches(a, (10.5, 0.0, 20.0, 10.0)))
        self.assertFalse(calibrate.touches(a, (11.5, 0.0, 20.0, 10.0)))


ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


class LayoutTest(unittest.TestCase):
    """The layout is the one place the network, the model file and the library's
    tables take their shapes and quantization from."""

    def test_the_deployed_graph_answers_in_the_layout_shapes(self):
        with torch.no_grad():
            outs = netmod.Deployed(netmod.QRDet()).eval()(torch.zeros(1, 1, layout.INPUT_SIDE, layout.INPUT_SIDE))
        self.assertEqual([tuple(o.shape) for o in outs], [(1, g, g, layout.VALUES_PER_CELL) for g in layout.GRIDS])
        self.assertEqual(sum(o.numel() for o in outs), layout.OUTPUT_VALUES)

    def test_the_model_file_header_carries_the_layout_exactly(self):
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, "m.bin")
            export.export(netmod.QRDet().eval(), path)
            with open(path, "rb") as fh:
                name, form, step, outs, _ = export.unpack(fh.read())
        self.assertEqual((name, form, step), (layout.INPUT_NAME, export.INPUT_LUMA, 64))
        # the header holds float32 scales: a layout scale that is not one would
        # quantize differently in training than in the library
        self.assertEqual(outs, [(h.name, h.scale, h.zero_point) for h in layout.HEADS])

    def test_every_head_tiles_the_input_and_fits_the_header(self):
        for h in layout.HEADS:
            with self.subTest(head=h.name):
                self.assertEqual(layout.INPUT_SIDE % h.stride, 0)
                self.assertLess(len(h.name.encode()), export.NAME_LEN)
                self.assertTrue(-255 <= h.zero_point <= 0 and h.scale > 0)
        self.assertEqual(layout.STRIDES, sorted(set(layout.STRIDES)), "output order is finest first")

    def test_the_printed_layout_is_one_json_line_read_without_heavy_imports(self):
        run = subprocess.run(
            [sys.executable, "-m", "model.layout"], cwd=ROOT, capture_output=True, text=True, check=True
        )
        self.assertEqual(run.stdout.count("\n"), 1)
        got = json.loads(run.stdout)
        self.assertEqual(
            list(got),
            ["input_side", "input_name", "values_per_cell", "output_values", "score_threshold_logit", "heads"],
        )
        self.assertEqual(
            (got["input_side"], got["input_name"], got["values_per_cell"], got["output_values"]),
            (layout.INPUT_SIDE, layout.INPUT_NAME, layout.VALUES_PER_CELL, layout.OUTPUT_VALUES),
        )
        self.assertEqual(
            [(h["name"], h["stride"], h["zero_point"], h["scale"]) for h in got["heads"]],
            [tuple(h) for h in layout.HEADS],
        )
        probe = "import sys, model.layout; print(sorted({'torch', 'cv2', 'numpy'} & set(sys.modules)))"
        run = subprocess.run([sys.executable, "-c", probe], cwd=ROOT, capture_output=True, text=True, check=True)
        self.assertEqual(run.stdout.strip(), "[]")


class GrowTest(unittest.TestCase):
    def test_a_network_grown_by_blocks_computes_what_the_smaller_one_did(self):
        torch.manual_seed(0)
        small = netmod.QRDet()
        with torch.no_grad():  # batch norms away from their identity start
            for m in small.modules():
                if isinstance(m, torch.nn.BatchNorm2d):
                    m.weight.uniform_(0.5, 1.5), m.bias.uniform_(-0.2, 0.2), m.running_var.uniform_(0.5, 2.0)
        depths = tuple(d + (i == 3) * 2 for i, d in enumerate(netmod.DEPTHS))
        grown = netmod.QRDet(depths=depths)
        grown.load_grown(small.state_dict())
        x = torch.rand(1, 1, 256, 256)
        with torch.no_grad():
            for a, b in zip(small.eval().quantized(x), grown.eval().quantized(x)):
                self.assertTrue(torch.equal(a, b))

    def test_only_a_smaller_network_of_the_same_kind_grows(self):
        full = netmod.QRDet().state_dict()
        cases = {
            "a larger network": netmod.QRDet(depths=tuple(d + 1 for d in netmod.DEPTHS)).state_dict(),
            "a network without a head": {k: v for k, v in full.items() if not k.startswith("heads.0.")},
        }
        for what, weights in cases.items():
            with self.subTest(what), self.assertRaises(ValueError):
                netmod.QRDet().load_grown(weights)


class ResumeTest(unittest.TestCase):
    def test_a_resumed_run_ends_with_the_weights_of_an_uninterrupted_one(self):
        with tempfile.TemporaryDirectory() as tmp:
            common = [
                "--total-steps",
                "6",
                "--batch",
                "2",
                "--crop",
                "128",
                "--first-frames",
                "3",
                "--rate",
                "0.5",
                "--window",
                "4",
                "--workers",
                "1",
                "--threads",
                "1",
                "--cache",
                os.path.join(tmp, "cache"),
            ]
            whole = train.main(common + ["--state", os.path.join(tmp, "whole.pt")])
            half = os.path.join(tmp, "half.pt")
            train.main(common + ["--state", half, "--max-steps", "3"])
            self.assertEqual(torch.load(half)["step"], 3)
            resumed = train.main(
                [
                    "--resume",
                    half,
                    "--state",
                    half,
                    "--workers",
                    "1",
                    "--threads",
                    "1",
                    "--cache",
                    os.path.join(tmp, "cache"),
                ]
            )
            for (name, a), b in zip(whole.state_dict().items(), resumed.state_dict().values()):
                torch.testing.assert_close(a, b, rtol=0, atol=0, msg=name)


if __name__ == "__main__":
    unittest.main()
