"""The example for images larger than memory, beside one call on the whole image."""

import importlib.util
import pathlib
import subprocess
import sys
import tempfile
import unittest

import dask
import dask.array as da
import numpy as np

import nebulex
from images import SOURCE, network, star_field

SCRIPT = SOURCE / "examples" / "dask_large.py"
spec = importlib.util.spec_from_file_location("dask_large", SCRIPT)
dask_large = importlib.util.module_from_spec(spec)
spec.loader.exec_module(dask_large)


class Grid(unittest.TestCase):
    def test_chunks_begin_on_the_grid_and_none_is_short(self):
        for length, stride, least, expected in (
            (3000, 256, 512, (512, 512, 512, 512, 952)),
            (1024, 256, 512, (512, 512)),
            (1023, 256, 512, (1023,)),
            (700, 256, 512, (700,)),
            (5000, 200, 1000, (1000, 1000, 1000, 1000, 1000)),
            (5000, 510, 1000, (1020, 1020, 1020, 1940)),
        ):
            self.assertEqual(dask_large.grid_chunks(length, stride, least), expected)


class Statistics(unittest.TestCase):
    def test_the_median_is_exact(self):
        rng = np.random.default_rng(1)
        for shape in ((400, 300), (401, 301), (1, 1), (1, 2)):
            for samples in (rng.normal(0, 1, shape), rng.integers(0, 5, shape) / 65535,
                            -rng.random(shape), np.zeros(shape)):
                lazy = da.from_array(samples, chunks=(150, 170))
                self.assertEqual(dask_large.exact_median(lazy), np.median(samples))


class Dask(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.network = str(network("pattern"))
        cls.model = nebulex.Model(cls.network)

    def both(self, image, **settings):
        chunked = dask_large.remove_stars(da.from_array(image), chunk=512, network=self.network,
                                          **settings)
        self.assertEqual((chunked.dtype, chunked.shape), (image.dtype, image.shape))
        self.assertGreater(chunked.npartitions, 1)
        with dask.config.set(scheduler="threads", num_workers=2):
            chunked = chunked.compute()
        whole = nebulex.remove_stars(image, model=self.model, **settings).starless
        self.assertTrue((whole != image).any())
        return chunked, whole

    def test_chunks_give_the_samples_of_the_whole_image_bit_for_bit(self):
        for stride, dtype, channels in ((200, np.uint8, 1), (256, np.uint16, 3),
                                        (510, np.float32, 3)):
            with self.subTest(stride=stride, dtype=dtype):
                image = star_field(2070, 1050, channels, dtype)
                np.testing.assert_array_equal(*self.both(image, stride=stride))

    def test_an_upsampled_image_too(self):
        np.testing.assert_array_equal(
            *self.both(star_field(1050, 600, 1), upsample=True, stride=512))

    def test_linear_colour_too_where_no_highlight_is_protected(self):
        for dtype in (np.float32, np.float64):
            with self.subTest(dtype=dtype):
                image = star_field(1050, 600, dtype=dtype)
                image[500:540, 200:240] = 1
                np.testing.assert_array_equal(
                    *self.both(image, linear=True, protect_highlights=False))

    def test_linear_integers_differ_by_one_count_where_they_are_near_a_half(self):
        # The library multiplies with white in float32 before it rounds, the example in float64.
        chunked, whole = self.both(star_field(1050, 600), linear=True, protect_highlights=False)
        differences = np.abs(chunked.astype(int) - whole)
        self.assertLessEqual(differences.max(), 1)
        self.assertLess(np.count_nonzero(differences), differences.size / 1000)

    def test_protected_highlights_of_linear_data_differ_by_a_thousandth_at_most(self):
        image = star_field(1050, 600, dtype=np.float64)
        image[500:540, 200:240] = 1
        self.model, self.network = nebulex.Model(network("slightly_dimmer")), str(
            network("slightly_dimmer"))
        chunked, whole = self.both(image, linear=True)
        different = chunked != whole
        self.assertTrue(different[500:540, 200:240].any())
        self.assertGreater(whole[different].min(), 0.94)
        self.assertLess(np.abs(chunked - whole).max(), 1e-3)

    def test_linear_grey_differs_by_rounding_alone_while_the_network_keeps_it_grey(self):
        image = star_field(1050, 600, channels=1, dtype=np.float64)
        chunked, whole = self.both(image, linear=True, protect_highlights=False)
        np.testing.assert_allclose(chunked, whole, rtol=1e-5)

    def test_bad_linear_data_is_refused_before_any_chunk(self):
        image = star_field(1050, 600, dtype=np.float64)
        image[700, 500, 1] = 1.25
        with self.assertRaisesRegex(ValueError, r"1\.25\], and white is 1"):
            dask_large.remove_stars(da.from_array(image), linear=True)
        image[700, 500, 1] = np.nan
        with self.assertRaisesRegex(ValueError, "nan"):
            dask_large.remove_stars(da.from_array(image), linear=True)

    def test_the_script(self):
        with tempfile.TemporaryDirectory() as folder:
            source, result = pathlib.Path(folder, "in.npy"), pathlib.Path(folder, "out.npy")
            image = star_field(700, 1100, dtype=np.float32) * np.float32(4095)
            np.save(source, image)
            subprocess.run([sys.executable, SCRIPT, source, result, "--white", "4095", "--network",
                            self.network], check=True)
            expected = nebulex.remove_stars(image, model=self.model, white=4095.0).starless
            np.testing.assert_array_equal(np.load(result), expected)


if __name__ == "__main__":
    unittest.main()
