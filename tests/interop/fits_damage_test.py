"""Damaged compressed FITS files: each is read or refused with a message.

astropy makes the files; the driver (FITS_IO_DRIVER) reads the damaged copies. It would end with a
signal where the reader does, and print no line for that file.
"""

import io
import os
import random
import subprocess
import tempfile
import unittest

import numpy
from astropy.io import fits

DRIVER = os.environ["FITS_IO_DRIVER"]
METHODS = ("RICE_1", "GZIP_1", "GZIP_2", "PLIO_1", "HCOMPRESS_1")
BLOCK = 2880


def compressed(data, method):
    file = io.BytesIO()
    fits.CompImageHDU(data, compression_type=method).writeto(file)
    return file.getvalue()


def samples():
    generator = numpy.random.default_rng(1)
    integers = generator.integers(0, 3000, (41, 53)).astype("i2")
    for method in METHODS:
        yield method + " integers", compressed(integers, method)
    smooth = numpy.linspace(0.3, 0.6, 41 * 53).reshape(41, 53)
    floats = (smooth + generator.normal(0, 0.01, (41, 53))).astype("f4")
    for method in ("RICE_1", "GZIP_1", "HCOMPRESS_1"):
        yield method + " floats", compressed(floats, method)


class DamagedFiles(unittest.TestCase):
    def read_all(self, contents):
        """The answers to each file: "ok", or the error message."""
        with tempfile.TemporaryDirectory() as folder:
            paths = []
            for i, content in enumerate(contents):
                paths.append(os.path.join(folder, f"{i}.fits"))
                with open(paths[-1], "wb") as file:
                    file.write(content)
            result = subprocess.run(
                [DRIVER, "read", "1", *paths],
                capture_output=True,
                encoding="utf-8",
                errors="replace",
                timeout=120,
            )
        lines = result.stdout.splitlines()
        self.assertEqual(result.returncode, 0, (lines[-1:], result.stderr))
        self.assertEqual(len(lines), len(paths))
        answers = [line.split(" ", 1)[1] for line in lines]
        for answer in answers:
            self.assertTrue(answer == "ok" or "FITS" in answer, answer)
        return answers

    def test_whole_files_are_read(self):
        for name, content in samples():
            with self.subTest(name):
                self.assertEqual(self.read_all([content]), ["ok"])

    def test_files_cut_anywhere_in_header_or_data_are_refused(self):
        for name, content in samples():
            with self.subTest(name):
                choose = random.Random(1)
                # The last block is partly padding, which nobody misses.
                end = len(content) - BLOCK
                lengths = list(range(0, end, BLOCK)) + [choose.randrange(end) for _ in range(200)]
                answers = self.read_all([content[:length] for length in lengths])
                self.assertNotIn("ok", answers)

    def test_damaged_bytes_are_read_or_refused(self):
        for name, content in samples():
            with self.subTest(name):
                choose = random.Random(2)
                damaged = []
                for _ in range(400):
                    copy = bytearray(content)
                    for _ in range(choose.choice((1, 1, 2, 5))):
                        position = choose.randrange(BLOCK, len(copy))
                        copy[position] = choose.choice((0, 255, copy[position] ^ 1, ord("0")))
                    damaged.append(bytes(copy))
                self.read_all(damaged)


if __name__ == "__main__":
    unittest.main()
