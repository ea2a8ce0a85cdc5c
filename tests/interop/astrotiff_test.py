"""Raster formats and AstroTIFF metadata as other programs see them.

The driver (RASTER_IO_DRIVER) is the program's own code; tifffile, tiffinfo, exiftool, OpenCV's
Python module and Pillow are the others.
"""

import os
import subprocess
import tempfile
import unittest

import cv2
import numpy
import tifffile
from PIL import Image

DRIVER = os.environ["RASTER_IO_DRIVER"]


def card(text):
    return text.ljust(80)


HEADER = "\n".join(
    card(text)
    for text in (
        "SIMPLE  =                    T / file conforms to FITS standard",
        "BITPIX  =                  -32",
        "NAXIS   =                    2",
        "OBJECT  = 'M 31 & ''friends''' / <target>",
        "CONTINUE  'a long string'",
        "HIERARCH ESO DET CHIP1 ID = 'abc'",
        "COMMENT quotes \" backslash \\ percent % hash #",
        "",
        "END",
    )
)


def expected_header(bits):
    new_card = "BITPIX  =" + 19 * " " + str(bits)
    return HEADER.replace(card("BITPIX  =                  -32"), new_card)


def make_image(bits, channels, height=61, width=83):
    """Seeded RGB or grey samples with smooth and noisy parts, black and white included."""
    generator = numpy.random.default_rng(20240607)
    white = 2**bits - 1
    shape = (height, width) if channels == 1 else (height, width, channels)
    image = numpy.linspace(0, white, numpy.prod(shape)).reshape(shape)
    image[: height // 2] = generator.integers(0, white + 1, image[: height // 2].shape)
    return image.astype(numpy.uint8 if bits == 8 else numpy.uint16)


def to_bgr(image):
    return image if image.ndim == 2 else image[..., ::-1]


IMAGES = [(bits, channels) for bits in (8, 16) for channels in (1, 3)]
FORMS = [(order, big) for order in "<>" for big in (False, True)]


class InteropTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def drive(self, *arguments):
        result = subprocess.run(
            [DRIVER, *map(str, arguments)], capture_output=True, text=True, check=False
        )
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def text_file(self, text):
        path = self.path("header.txt")
        with open(path, "w", encoding="ascii", newline="") as file:
            file.write(text)
        return path

    def write(self, name, image, header=None):
        """Writes the image with the driver and returns its path."""
        samples = self.path("samples")
        to_bgr(image).tofile(samples)
        channels = 1 if image.ndim == 2 else 3
        extra = [] if header is None else [self.text_file(header)]
        path = self.path(name)
        size = [image.shape[1], image.shape[0], channels, 8 * image.itemsize]
        self.drive("write", path, *size, samples, *extra)
        return path

    def read(self, path, like):
        """What the driver reads from an image file, in RGB order."""
        samples = self.path("read")
        self.drive("read", path, samples)
        return to_bgr(numpy.fromfile(samples, dtype=like.dtype).reshape(like.shape))

    def read_header(self, path):
        self.drive("read-header", path, self.path("read-header.txt"))
        with open(self.path("read-header.txt"), encoding="ascii", newline="") as file:
            return file.read()

    def exif_description(self, path):
        command = ["exiftool", "-b", "-ImageDescription", path]
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout

    def tiffinfo(self, path):
        result = subprocess.run(["tiffinfo", path], capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def assert_same(self, actual, expected):
        self.assertEqual(actual.dtype, expected.dtype)
        numpy.testing.assert_array_equal(actual, expected)


class WrittenImages(InteropTest):
    def test_tiff_pixels_are_read_by_tifffile_info_tools_and_opencv(self):
        for bits, channels in IMAGES:
            with self.subTest(bits=bits, channels=channels):
                image = make_image(bits, channels)
                path = self.write("a b[1].tif", image)
                info = self.tiffinfo(path)
                self.assertIn("Image Width: 83 Image Length: 61", info)
                self.assertIn("Bits/Sample: %d" % bits, info)
                self.assertIn("Compression Scheme: LZW", info)
                self.assert_same(cv2.imread(path, cv2.IMREAD_UNCHANGED), to_bgr(image))
                # tifffile has no LZW decoder of its own here; libtiff's tools unpack the file.
                subprocess.run(["tiffcp", "-c", "none", path, self.path("plain.tif")], check=True)
                self.assert_same(tifffile.imread(self.path("plain.tif")), image)

    def test_png_pixels_are_read_by_pillow_and_opencv(self):
        for bits, channels in IMAGES:
            with self.subTest(bits=bits, channels=channels):
                image = make_image(bits, channels)
                path = self.write("a.png", image)
                self.assert_same(cv2.imread(path, cv2.IMREAD_UNCHANGED), to_bgr(image))
                with Image.open(path) as opened:
                    opened.verify()
                if (bits, channels) != (16, 3):  # which Pillow reduces to 8 bits
                    with Image.open(path) as opened:
                        numpy.testing.assert_array_equal(numpy.array(opened), image)


class WrittenMetadata(InteropTest):
    def assert_description(self, path, header):
        with tifffile.TiffFile(path) as tiff:
            tag = tiff.pages[0].tags["ImageDescription"]
            # tifffile hands values on without blanks at their end.
            self.assertEqual(tag.value, header.rstrip())
            tiff.filehandle.seek(tag.valueoffset)
            self.assertEqual(tiff.filehandle.read(tag.count), header.encode("ascii") + b"\0")
            tags = [tag.code for tag in tiff.pages[0].tags]
            self.assertEqual(tags, sorted(set(tags)))
        self.assertEqual(self.exif_description(path), header)
        # tiffinfo shows line feeds and other special characters escaped.
        first = header.split("\n", maxsplit=1)[0]
        self.assertIn("ImageDescription: " + first, self.tiffinfo(path))

    def test_description_of_a_written_image_reads_back_identical_and_pixels_are_unchanged(self):
        for bits, channels in IMAGES:
            with self.subTest(bits=bits, channels=channels):
                image = make_image(bits, channels)
                path = self.write("a.tif", image, HEADER)
                self.assert_description(path, expected_header(bits))
                self.assertEqual(self.read_header(path), expected_header(bits))
                self.assert_same(cv2.imread(path, cv2.IMREAD_UNCHANGED), to_bgr(image))
                self.assert_same(self.read(path, image), image)

    def test_description_is_appended_in_every_form_of_tiff(self):
        for order, big in FORMS:
            for bits, channels in IMAGES:
                with self.subTest(order=order, big=big, bits=bits, channels=channels):
                    image = make_image(bits, channels)
                    path = self.path("a.tif")
                    photometric = "rgb" if channels == 3 else "minisblack"
                    tifffile.imwrite(
                        path,
                        image,
                        byteorder=order,
                        bigtiff=big,
                        photometric=photometric,
                        description="to be replaced",
                        software="another program",
                        rowsperstrip=16,
                    )
                    self.drive("append", path, self.text_file(HEADER))
                    self.assert_description(path, HEADER)
                    self.assert_same(tifffile.imread(path), image)
                    self.assert_same(self.read(path, image), image)
                    with tifffile.TiffFile(path) as tiff:
                        self.assertEqual(tiff.pages[0].tags["Software"].value, "another program")
                        self.assertEqual((tiff.byteorder, tiff.is_bigtiff), (order, big))

    def test_an_append_on_an_append_leaves_the_last_description(self):
        for order, big in FORMS:
            with self.subTest(order=order, big=big):
                image = make_image(16, 3)
                path = self.path("a.tif")
                tifffile.imwrite(path, image, byteorder=order, bigtiff=big, photometric="rgb")
                self.drive("append", path, self.text_file(HEADER))
                second = HEADER.replace("M 31", "M 33")
                self.drive("append", path, self.text_file(second))
                self.assert_description(path, second)
                self.assert_same(tifffile.imread(path), image)

    def test_further_pages_stay_where_they_were(self):
        for order, big in FORMS:
            with self.subTest(order=order, big=big):
                pages = [make_image(16, 1) + step for step in range(3)]
                path = self.path("a.tif")
                with tifffile.TiffWriter(path, byteorder=order, bigtiff=big) as writer:
                    for page in pages:
                        writer.write(page, photometric="minisblack", contiguous=False)
                self.drive("append", path, self.text_file(HEADER))
                self.assert_description(path, HEADER)
                with tifffile.TiffFile(path) as tiff:
                    self.assertEqual(len(tiff.pages), 3)
                    for page, expected in zip(tiff.pages, pages):
                        self.assert_same(page.asarray(), expected)


class ReadImages(InteropTest):
    def test_description_written_by_tifffile_is_read(self):
        for order, big in FORMS:
            with self.subTest(order=order, big=big):
                path = self.path("a.tif")
                tifffile.imwrite(
                    path, make_image(8, 1), byteorder=order, bigtiff=big, description=HEADER
                )
                self.assertEqual(self.read_header(path), HEADER)

    def test_description_written_by_exiftool_is_read(self):
        path = self.write("a.tif", make_image(16, 3))
        command = ["exiftool", "-q", "-overwrite_original", "-ImageDescription<=" +
                   self.text_file(HEADER), path]
        subprocess.run(command, check=True)
        self.assertEqual(self.read_header(path), HEADER)

    def test_compressions_strips_and_tiles_of_libtiff_are_read(self):
        layouts = (["-r", "7"], ["-t", "-w", "32", "-l", "16"])
        for bits, channels in IMAGES:
            image = make_image(bits, channels)
            source = self.write("source.tif", image)
            for compression in ("none", "lzw:1", "lzw:2", "zip:1", "zip:2", "packbits"):
                for layout in layouts:
                    with self.subTest(bits=bits, channels=channels, compression=compression,
                                      layout=layout):
                        path = self.path("copy.tif")
                        command = ["tiffcp", "-c", compression, *layout, source, path]
                        subprocess.run(command, check=True)
                        self.assert_same(self.read(path, image), image)


if __name__ == "__main__":
    unittest.main()
