"""Inputs and models that the disk stops giving, or that are cut, in the middle of being read."""

import gzip
import unittest

import cv2
import tifffile

from faults import ALWAYS, EIO, Fault, FaultTest, spread
from program import model

READ_FAILED = (
    r"^(Unable to (read|check|inspect) input image.*|.+ failed for FITS image .+"
    r"|No supported image HDU found in FITS image: .+)$"
)
MODEL_FAILED = r"^Unable to (open|read|determine) .*ONNX model.*$"


class ReadErrors(FaultTest):
    def input(self, name="in.tif"):
        path = self.path(name)
        if name == "in.jpg":
            # Noise at full quality: several of the decoder's buffers.
            cv2.imwrite(str(path), (self.stored >> 8).astype("uint8"),
                        [cv2.IMWRITE_JPEG_QUALITY, 100])
            return path
        if name == "zip.tif":
            tifffile.imwrite(path, self.stored, photometric="rgb", compression="zlib",
                             rowsperstrip=16)
            return path
        if name == "in.fits.gz":
            path.write_bytes(gzip.compress(super().input("in.fits").read_bytes()))
            return path
        return super().input(name)

    def sweep_inputs(self, *names, **plan):
        for name in names:
            source = self.input(name)
            self.sweep("read", READ_FAILED, source, self.outputs("out.png"), path=source, **plan)

    def test_a_disk_that_fails_from_some_moment_on(self):
        self.sweep_inputs("in.tif", "zip.tif", "in.png", "in.jpg", "in.bmp", "in.fits",
                          "in.fits.gz", error=EIO, times=ALWAYS)

    def test_a_disk_that_fails_once(self):
        self.sweep_inputs("in.tif", "in.png", "in.jpg", "in.bmp", "in.fits", "in.fits.gz",
                          error=EIO)

    def test_an_input_that_is_cut_while_it_is_read(self):
        for name in ("in.tif", "zip.tif", "in.png", "in.jpg", "in.bmp", "in.fits", "in.fits.gz"):
            source, outputs = self.input(name), self.outputs("out.png")
            complete = self.complete(source, outputs)
            whole = source.read_bytes()
            arguments = self.arguments(source, outputs)
            for number in spread(self.count_calls("read", *arguments, path=source)):
                with self.subTest(name=name, number=number):
                    self.restore(outputs)
                    source.write_bytes(whole)
                    fault = Fault("read", number=number, path=source, cut=source)
                    result, hit = self.struck(fault, *arguments)
                    self.assertTrue(hit)
                    if result.status != 0:
                        self.failed(result, READ_FAILED)
                    self.judge(result, outputs, complete)
                    self.assertEqual(source.read_bytes(), whole[: len(whole) // 2])

    def test_a_model_that_the_disk_does_not_give(self):
        source = self.input("in.tif")
        self.sweep("read", MODEL_FAILED, source, self.outputs("out.png"),
                   path=model(self.weights), error=EIO)


if __name__ == "__main__":
    unittest.main()
