"""The program, the C interface and the package give the same samples, bit for bit."""

import itertools

import numpy as np
import tifffile
from astropy.io import fits

import nebulex
from c_library import Library
from images import network, star_field
from program import ProgramTest, read_tiff

NETWORK = "pattern"  # tells each place of a tile from every other one
DTYPES = ("uint8", "uint16", "float32", "float64")
MODES = {"plain": {}, "linear": {"linear": True}, "upsample": {"upsample": True}}
STRIDES = (160, 256, 510)
LAYERS = ("starless", "mask", "unscreen")


def bits(samples):
    return np.ascontiguousarray(samples).tobytes()


class SamePixels(ProgramTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.model = nebulex.Model(network(NETWORK))
        cls.library = Library(network(NETWORK))
        cls.addClassCleanup(cls.library.close)

    def write(self, image):
        """Integers as TIFF, floating samples as FITS, whose planes come first."""
        if image.dtype.kind == "u":
            path = self.path("in.tif")
            tifffile.imwrite(path, image, photometric="rgb" if image.ndim == 3 else "minisblack")
        else:
            path = self.path("in.fits")
            planes = np.moveaxis(image, 2, 0) if image.ndim == 3 else image
            fits.PrimaryHDU(planes).writeto(path, overwrite=True)
        return path

    def read(self, path):
        if path.suffix == ".tif":
            return read_tiff(path)
        stored = fits.getdata(path)
        planes = stored.astype(stored.dtype.newbyteorder("="))
        return np.moveaxis(planes, 0, 2) if planes.ndim == 3 else planes

    def run_program(self, image, mode, stride):
        source = self.write(image)
        outputs = [self.path(f"{layer}{source.suffix}") for layer in LAYERS]
        self.succeed("-i", source, "-w", network(NETWORK), "-s", stride, "-o", outputs[0],
                     "-m", outputs[1], "-n", outputs[2], *(f"--{name}" for name in MODES[mode]))
        return [self.read(path) for path in outputs]

    def compare(self, dtype, channels, mode, stride):
        small = "upsample" in MODES[mode]
        image = star_field(260 if small else 513, 271 if small else 540, channels, dtype)
        of_program = self.run_program(image, mode, stride)
        of_library = self.library.remove_stars(image, stride=stride, **MODES[mode])
        of_package = nebulex.remove_stars(image, stride=stride, mask=True, unscreen=True,
                                          model=self.model, **MODES[mode])
        for layer, ours, c_result in zip(LAYERS, of_program, of_library):
            python_result = getattr(of_package, layer)
            self.assertEqual((ours.dtype, ours.shape), (image.dtype, image.shape))
            self.assertEqual(bits(c_result), bits(ours), f"{layer} of the C interface")
            self.assertEqual(bits(python_result), bits(ours), f"{layer} of the package")
        self.assertNotEqual(bits(of_program[0]), bits(image))

    def test_all_types_modes_layers_and_strides(self):
        for case in itertools.product(DTYPES, (1, 3), MODES, STRIDES):
            with self.subTest(case=case):
                self.compare(*case)

    def test_a_single_layer_changes_nothing_else(self):
        image = star_field(530, 600, dtype=np.uint16)
        every = nebulex.remove_stars(image, mask=True, unscreen=True, model=self.model)
        for layers in ({}, {"mask": True}, {"unscreen": True}):
            some = nebulex.remove_stars(image, model=self.model, **layers)
            for layer in ("starless", *layers):
                self.assertEqual(bits(getattr(some, layer)), bits(getattr(every, layer)))

    def test_the_two_numbers_of_linear_data(self):
        image = star_field(530, 600, dtype=np.float64)
        source = self.write(image)
        self.succeed("-i", source, "-w", network(NETWORK), "-o", self.path("out.fits"), "--linear",
                     "--shadows-clipping", -1.5, "--target-background", 0.125)
        got = nebulex.remove_stars(image, model=self.model, linear=True, shadows_clipping=-1.5,
                                   target_background=0.125).starless
        self.assertEqual(bits(got), bits(self.read(self.path("out.fits"))))
