"""Sizes of images, from files that other libraries have written."""

import gzip
import pathlib
import shutil
import tempfile
import unittest

import batches  # noqa: F401 # makes the package known
import cv2
import numpy
import tifffile
from astropy.io import fits

from nebulex_batch.headers import pixels


class Pixels(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-headers-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def test_of_tiff(self):
        for name, image, options in (
                ("grey.tif", numpy.zeros((30, 50), numpy.uint16), {}),
                ("rgb.TIFF", numpy.zeros((30, 50, 3), numpy.uint16), {"photometric": "rgb"}),
                ("big.tif", numpy.zeros((30, 50), numpy.uint8), {"bigtiff": True}),
                ("mm.tif", numpy.zeros((30, 50), numpy.uint8), {"byteorder": ">"}),
        ):
            with self.subTest(name=name):
                writer = {key: options.pop(key) for key in ("bigtiff", "byteorder") if key in options}
                with tifffile.TiffWriter(self.folder / name, **writer) as file:
                    file.write(image, **options)
                self.assertEqual(pixels(self.folder / name), 1500)

    def test_of_png(self):
        path = self.folder / "a.png"
        cv2.imwrite(str(path), numpy.zeros((30, 50, 3), numpy.uint16))
        self.assertEqual(pixels(path), 1500)

    def test_of_fits(self):
        plane, cube = numpy.zeros((30, 50), numpy.int16), numpy.zeros((3, 30, 50), numpy.float32)
        colours_last = numpy.zeros((30, 50, 3), numpy.float32)
        for name, units in (
                ("plane.fits", [fits.PrimaryHDU(plane)]),
                ("cube.fit", [fits.PrimaryHDU(cube)]),
                ("colours.fits", [fits.PrimaryHDU(colours_last)]),
                ("extension.fts", [fits.PrimaryHDU(), fits.ImageHDU(plane)]),
                ("compressed.fits", [fits.PrimaryHDU(), fits.CompImageHDU(plane)]),
        ):
            with self.subTest(name=name):
                path = self.folder / name
                fits.HDUList(units).writeto(path)
                self.assertEqual(pixels(path), 1500)
        zipped = self.folder / "plane.fits.gz"
        zipped.write_bytes(gzip.compress((self.folder / "plane.fits").read_bytes()))
        self.assertEqual(pixels(zipped), 1500)

    def test_of_what_is_no_image(self):
        whole = self.folder / "whole.fits"
        fits.PrimaryHDU(numpy.zeros((30, 50), numpy.int16)).writeto(whole)
        for name, content in (
                ("empty.tif", b""), ("text.tif", b"no image"), ("cut.tif", b"II*\0\xff\xff\xff\x7f"),
                ("empty.fits", b""), ("text.fits", b"no image"), ("cut.fits", whole.read_bytes()[:80]),
                ("text.fits.gz", b"no gzip"), ("empty.png", b""), ("text.png", b"no image"),
        ):
            with self.subTest(name=name):
                path = self.folder / name
                path.write_bytes(content)
                self.assertEqual(pixels(path), 0)
        self.assertEqual(pixels(self.folder / "missing.tif"), 0)


if __name__ == "__main__":
    unittest.main()
