"""The Python module as a user meets it: arrays in, plain values out."""

import os
import unittest

import numpy as np

import scancode

SAMPLES = os.environ["SCANCODE_SAMPLES_DIR"]


def sample(name):
    return os.path.join(SAMPLES, name)


class ScanFile(unittest.TestCase):
    def test_reads_the_code_of_a_photo(self):
        result = scancode.scan_file(sample("headon_code_1080p.jpg"))
        self.assertEqual(result["code"], 0)
        self.assertEqual((result["width"], result["height"]), (1920, 1080))
        [box] = result["boxes"]
        self.assertTrue(box["listed"])
        self.assertTrue(box["text"])
        self.assertIsInstance(box["x"], float)
        self.assertGreater(result["zoom"]["best_zoom"], 0)
        self.assertIsNone(result["straightened"])

    def test_unreadable_files_name_themselves(self):
        for path, why in [
            ("/no/such/photo.jpg", "cannot read"),
            (__file__, "not a picture"),
        ]:
            with self.assertRaisesRegex(scancode.Error, path + ": " + why):
                scancode.scan_file(path)


class Scanner(unittest.TestCase):
    def test_arrays_of_each_kind(self):
        scanner = scancode.Scanner()
        frames = [
            np.zeros((720, 1280), np.uint8),
            np.full((360, 640, 3), 128, np.uint8),
            np.zeros((362, 650, 4), np.uint8),
        ]
        for frame in frames:
            result = scanner.scan(frame)
            self.assertEqual(result["code"], -1)
            self.assertEqual(result["boxes"], [])
            self.assertIsNone(result["zoom"])
        self.assertEqual(result["width"], 640)
        self.assertEqual(scanner.sessions, 3)

    def test_nv21_frame_handed_back_straightened(self):
        tilted = scancode.scan_file(sample("steep_tilt_1080p.jpg"), decode=False)
        returned = tilted["straightened"]
        self.assertIsInstance(returned, bytes)
        again = scancode.Scanner().scan_nv21(returned, 1920, 1080)
        self.assertNotEqual(again["code"], -1)
        self.assertNotIn("text", again["boxes"][0])

    def test_bad_input_raises(self):
        scanner = scancode.Scanner()
        cases = [
            (lambda: scanner.scan(np.zeros((64, 64), np.float32)), "uint8"),
            (lambda: scanner.scan(np.zeros((64, 64, 2), np.uint8)), "H x W"),
            (lambda: scanner.scan(np.zeros((64, 64, 3), np.uint8)[:, ::2]), "contig"),
            (lambda: scanner.scan(np.zeros((4, 4), np.uint8)), "too small"),
            (lambda: scanner.scan_nv21(b"\0" * 10, 64, 32), "3072 bytes"),
            (lambda: scanner.scan_nv21(np.zeros(6144, np.uint8)[::2], 64, 32), "contig"),
            (lambda: scancode.Scanner(model="/no/model.bin"), "no such file"),
        ]
        for call, why in cases:
            with self.assertRaisesRegex(scancode.Error, why):
                call()

    def test_help_reads_well(self):
        self.assertIn("scancode.Scanner(decode=True)", scancode.__doc__)
        for documented in (scancode.Scanner.scan, scancode.scan_file):
            self.assertGreater(len(documented.__doc__), 80)


if __name__ == "__main__":
    unittest.main()
