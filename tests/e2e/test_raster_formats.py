"""TIFF, PNG, JPEG and BMP in and out."""

import subprocess
import unittest
import zlib

import cv2
import numpy
import tifffile

from program import ProgramTest, model, read_image, star_field, write_image


class RasterFormats(ProgramTest):
    def convert(self, source, output):
        self.succeed("-i", source, "-o", output, "-q", "-w", model("identity"))
        return read_image(output)

    def test_depth_and_channels_survive_between_tiff_and_png(self):
        for dtype in (numpy.uint8, numpy.uint16):
            for channels in (1, 3):
                for source_type in (".tif", ".png"):
                    for output_type in (".tiff", ".PNG", ".TIF", ".png"):
                        with self.subTest(dtype=dtype, channels=channels, source=source_type,
                                          output=output_type):
                            stored = star_field(512, 512, channels=channels, dtype=dtype)
                            source = write_image(self.path("in" + source_type), stored)
                            got = self.convert(source, self.path("out" + output_type))
                            self.assertEqual(got.dtype, dtype)
                            self.assertTrue((got == stored).all())

    def test_tiff_outputs_are_lzw_compressed(self):
        source = self.image("in.png")
        self.convert(source, self.path("out.tif"))
        with tifffile.TiffFile(self.path("out.tif")) as tiff:
            self.assertEqual(tiff.pages[0].compression, 5)
            self.assertEqual(len(tiff.pages), 1)

    def test_jpeg_and_bmp_outputs_have_eight_bits_whatever_the_source(self):
        source = self.image("in.tif")
        for name in ("out.jpg", "out.jpeg", "out.bmp"):
            with self.subTest(name=name):
                got = self.convert(source, self.path(name))
                self.assertEqual(got.dtype, numpy.uint8)
                expected = numpy.rint(read_image(source) / 257.0)
                tolerance = 1 if name.endswith("bmp") else 40
                self.assertLessEqual(numpy.abs(got - expected).max(), tolerance)

    def test_a_wrong_extension_is_read_by_content(self):
        stored = star_field(512, 512, dtype=numpy.uint8)
        png = write_image(self.path("real.png"), stored)
        png.rename(self.path("in.tif"))
        result = self.succeed("-i", self.path("in.tif"), "-o", self.path("out.png"), "-w",
                              model("identity"))
        self.assertIn("format=PNG ", result.messages("input_format")[0])
        self.assertTrue((read_image(self.path("out.png")) == stored).all())

    def test_byte_orders_and_big_tiff_are_read_alike(self):
        stored = star_field(512, 512)
        for name, options in (
            ("big", {"byteorder": ">"}), ("little", {"byteorder": "<"}),
            ("bigtiff", {"bigtiff": True}), ("deflate", {"compression": "zlib"}),
            ("tiles", {"tile": (64, 64)}), ("strips", {"rowsperstrip": 7}),
        ):
            with self.subTest(name=name):
                source = self.path(name + ".tif")
                tifffile.imwrite(source, stored, photometric="rgb", **options)
                got = self.convert(source, self.path("out.tif"))
                self.assertTrue((got == stored).all())

    def test_separate_planes_are_read_as_others_read_them(self):
        stored = star_field(512, 512)
        planes = numpy.ascontiguousarray(numpy.moveaxis(stored, 2, 0))
        options = ({}, {"compression": "zlib"}, {"compression": "zlib", "predictor": True})
        for order in "<>":
            for tile in (None, (256, 256)):
                for option in options:
                    with self.subTest(order=order, tile=tile, **option):
                        tifffile.imwrite(self.path("in.tif"), planes, photometric="rgb",
                                         planarconfig="separate", byteorder=order, tile=tile,
                                         **option)
                        got = self.convert(self.path("in.tif"), self.path("out.png"))
                        self.assertTrue((got == tifffile.imread(self.path("in.tif"))
                                         .transpose(1, 2, 0)).all())

    def test_only_the_first_page_is_read(self):
        first, second = star_field(512, 512, seed=1), star_field(512, 512, seed=2)
        with tifffile.TiffWriter(self.path("in.tif")) as tiff:
            tiff.write(first, photometric="rgb")
            tiff.write(second, photometric="rgb")
        got = self.convert(self.path("in.tif"), self.path("out.tif"))
        self.assertTrue((got == first).all())

    def test_nothing_but_our_records_reaches_standard_error(self):
        # An unknown tag and a bad checksum of an ancillary chunk make libtiff and libpng speak up.
        stored = star_field(512, 512, dtype=numpy.uint8)
        tifffile.imwrite(self.path("in.tif"), stored, photometric="rgb",
                         extratags=[(64999, "s", 0, "private", True)])
        result = self.succeed("-i", self.path("in.tif"), "-o", self.path("out.tif"), "-w",
                              model("identity"), "-q")
        self.assertEqual(result.err, "")
        png = bytearray(cv2.imencode(".png", stored)[1].tobytes())
        text = b"tEXtComment\0hello"
        chunk = (len(text) - 4).to_bytes(4, "big") + text + b"\0\0\0\0"
        png[33:33] = chunk
        self.path("in.png").write_bytes(png)
        result = self.succeed("-i", self.path("in.png"), "-o", self.path("out.png"), "-w",
                              model("identity"), "-q")
        self.assertEqual(result.err, "")

    def test_samples_ignore_png_gamma_and_profiles(self):
        stored = star_field(512, 512, dtype=numpy.uint8)
        png = bytearray(cv2.imencode(".png", stored[:, :, ::-1])[1].tobytes())
        body = b"gAMA" + (100000).to_bytes(4, "big")
        png[33:33] = (4).to_bytes(4, "big") + body + zlib.crc32(body).to_bytes(4, "big")
        self.path("in.png").write_bytes(png)
        got = self.convert(self.path("in.png"), self.path("out.png"))
        self.assertTrue((got == stored).all())

    def test_libtiff_reads_the_outputs(self):
        self.convert(self.image("in.tif"), self.path("out.tif"))
        report = subprocess.run(["tiffinfo", "-D", self.path("out.tif")], capture_output=True,
                                text=True, check=True)
        self.assertEqual(report.stderr, "")
        self.assertIn("Image Width: 512 Image Length: 512", report.stdout)


if __name__ == "__main__":
    unittest.main()
