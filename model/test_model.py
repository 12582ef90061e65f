"""Checks of the training pipeline's pieces that must agree with the library.

    /usr/bin/python3 -m unittest discover -s model -p 'test_*.py'
"""
import os
import sys
import unittest

import numpy as np
import torch

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import evaluate  # noqa: E402
import export  # noqa: E402
import net as netmod  # noqa: E402
import qrdata  # noqa: E402
import train  # noqa: E402


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
    def test_each_code_has_one_positive_cell_in_the_head_of_its_size(self):
        cases = [((100, 100, 130, 130), 0), ((200, 40, 290, 120), 1), ((300, 100, 480, 250), 2),
                 ((10, 10, 400, 330), 3)]
        for box, head in cases:
            with self.subTest(box=box):
                t = train.build_targets(np.array([box], np.float32))
                self.assertEqual([int(x["pos"].sum()) for x in t], [1 if h == head else 0 for h in range(4)])
                r, c = np.argwhere(t[head]["pos"])[0]
                stride = netmod.STRIDES[head]
                cx, cy = c * stride + stride // 2, r * stride + stride // 2
                self.assertLessEqual(abs(cx - (box[0] + box[2]) / 2), stride / 2)
                self.assertLessEqual(abs(cy - (box[1] + box[3]) / 2), stride / 2)
                want = np.log([cx - box[0], cy - box[1], box[2] - cx, box[3] - cy])
                np.testing.assert_allclose(t[head]["reg"][:, r, c], want, rtol=1e-5)
                # every target distance is expressible by the head's quantized range
                lo, hi = netmod.quant_range(head)
                self.assertLess(want.max(), hi)

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


class QuantTest(unittest.TestCase):
    def test_fake_quant_matches_the_adapter_and_library_round_trip(self):
        for i, (zp, scale) in enumerate(netmod.OUTPUT_QUANT):
            y = torch.tensor([-100.0, 0.0, 0.3, 2.0, 100.0])
            got = netmod.fake_quant(y, zp, scale).numpy()
            q = np.clip(np.rint(y.numpy() / scale) - zp, 0, 255)
            np.testing.assert_allclose(got, (q + zp) * scale, rtol=1e-6, atol=1e-6)
            lo, hi = netmod.quant_range(i)
            self.assertAlmostEqual(got[0], lo, places=5)
            self.assertAlmostEqual(got[-1], hi, places=5)

    def test_header_round_trip(self):
        outs = [("outputs", 0.5, -3), ("_306", 2.0, 7)]
        for form in (export.INPUT_PLANES, export.INPUT_LUMA):
            name, got_form, got, onnx = export.unpack(export.pack(b"graph", "inputs", outs, form))
            self.assertEqual((name, got_form, onnx), ("inputs", form, b"graph"))
            self.assertEqual(got, outs)

class DecodeTest(unittest.TestCase):
    def maps(self):
        return [np.full((g * g, 6), -20.0, np.float32) for g in evaluate.GRIDS]

    def test_threshold_is_inclusive_and_touching_boxes_are_suppressed(self):
        m = self.maps()
        m[0][0] = [2, 2, 2, 2, -0.8473, 0]  # kept: exactly at the threshold
        m[0][1] = [2, 2, 2, 2, 3.0, 0]  # better, and touches cell 0's box
        m[0][79] = [2, 2, 2, 2, -0.8474, 0]  # below the threshold
        boxes, scores = evaluate.decode(m)
        self.assertEqual(scores, [3.0])

    def test_mapping_back_to_the_frame_and_edge_band(self):
        allb, listed = evaluate.to_frame([(100, 50, 160, 110), (20, 20, 60, 60)], 1920, 1080)
        np.testing.assert_allclose(allb[0], (300, 150, 480, 330), rtol=1e-5)
        self.assertEqual(len(listed), 1)

    def test_each_box_counts_for_one_code_at_most(self):
        code = (100, 100, 200, 200)
        cases = [
            # (codes, boxes, expected pairs)
            ([code, code], [(105, 105, 200, 200)], [(0, 0)]),  # a second copy finds no box
            ([code], [(150, 150, 250, 250), (102, 100, 200, 200)], [(0, 1)]),  # best IoU, not first
            ([code], [(140, 140, 240, 240)], []),  # IoU 0.22 misses
        ]
        for codes, boxes, want in cases:
            self.assertEqual(evaluate.pairs(codes, boxes), want)
            self.assertEqual(evaluate.match(codes, boxes), (len(want), len(boxes) - len(want)))


if __name__ == "__main__":
    unittest.main()
