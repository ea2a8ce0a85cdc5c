"""Program and library give the same pixels, bit for bit."""

import itertools
import unittest

import numpy
from astropy.io import fits

from nebulex_library import Model
from program import ProgramTest, model, read_image, star_field, write_image

TYPES = ("uint8", "uint16", "float32", "float64")
PATHS = {"plain": {}, "linear": {"linear": 1}, "upsample": {"upsample": 1}}
STRIDES = (512, 256, 130)
ROLES = ("starless", "mask", "unscreen")


def samples(dtype, channels, linear):
    """Stars in each type: stretched, or linear with samples below 0 where the type has them."""
    seen = star_field(520, 530, channels=channels, dtype=numpy.uint16, seed=11) / 65535.0
    if linear:
        seen = seen * 0.2
    if dtype.startswith("uint"):
        return numpy.rint(seen * numpy.iinfo(dtype).max).astype(dtype)
    return (seen - (0.01 if linear else 0.0)).astype(dtype)


class SamePixels(ProgramTest):
    @classmethod
    def setUpClass(cls):
        cls.network = model("pattern")
        cls.library = Model(cls.network)
        cls.addClassCleanup(cls.library.close)

    def write(self, name, image):
        if image.dtype.kind == "u":
            return write_image(self.path(f"{name}.tif"), image)
        planes = image if image.ndim == 2 else numpy.moveaxis(image, 2, 0)
        fits.writeto(self.path(f"{name}.fits"), planes, overwrite=True)
        return self.path(f"{name}.fits")

    def read(self, path):
        if path.suffix == ".tif":
            return read_image(path)
        planes = fits.getdata(path)
        return planes if planes.ndim == 2 else numpy.moveaxis(planes, 0, 2)

    def run_program(self, image, stride, *options):
        source = self.write("in", image)
        outputs = [self.path(f"{role}{source.suffix}") for role in ROLES]
        flags = itertools.chain(*zip(("-o", "-m", "-n"), outputs))
        self.succeed("-i", source, *flags, "-s", stride, "-w", self.network, *options)
        return [self.read(output) for output in outputs]

    def compare(self, image, stride, path):
        expected = self.run_program(image, stride, *(f"--{name}" for name in PATHS[path]))
        results = self.library.remove_stars(image, stride=stride, **PATHS[path])
        for role, of_program, of_library in zip(ROLES, expected, results):
            with self.subTest(role=role):
                # FITS is big-endian; the numbers count, and the sign of zero with them.
                self.assertEqual(
                    of_program.astype(image.dtype).tobytes(), of_library.tobytes()
                )
        self.assertFalse(numpy.array_equal(results[0], image))

    def test_of_every_type_path_and_stride(self):
        for dtype, channels, path, stride in itertools.product(TYPES, (1, 3), PATHS, STRIDES):
            with self.subTest(dtype=dtype, channels=channels, path=path, stride=stride):
                self.compare(samples(dtype, channels, path == "linear"), stride, path)

    def test_of_colours_that_are_grey(self):
        grey = samples("uint16", 1, False)
        colours = numpy.repeat(grey[:, :, None], 3, axis=2)
        expected = self.run_program(colours, 256)
        results = self.library.remove_stars(colours, stride=256)
        for of_program, of_library in zip(expected, results):
            for channel in range(3):
                self.assertTrue(numpy.array_equal(of_library[:, :, channel], of_program))

    def test_of_arrays_that_lie_otherwise_in_memory(self):
        image = samples("float32", 3, False)
        expected = self.library.remove_stars(image, stride=512)
        planar = numpy.moveaxis(numpy.ascontiguousarray(numpy.moveaxis(image, 2, 0)), 0, 2)
        upside_down = numpy.ascontiguousarray(image[::-1])[::-1]
        for other in (planar, upside_down, numpy.asfortranarray(image)):
            for of_other, of_image in zip(self.library.remove_stars(other, stride=512), expected):
                self.assertTrue(numpy.array_equal(of_other, of_image))


if __name__ == "__main__":
    unittest.main()
