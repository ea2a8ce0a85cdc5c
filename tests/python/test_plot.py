"""Pictures of pairs."""

import sys
import unittest
import unittest.mock

import numpy as np
from astropy.nddata import CCDData
from matplotlib import pyplot

import nebulex


class Plot(unittest.TestCase):
    def shown(self, *images, **options):
        figure = nebulex.plot(*images, **options)
        self.addCleanup(pyplot.close, figure)
        return [axes.images[0] for axes in figure.axes]

    def test_both_in_the_same_tones(self):
        before = np.linspace(0, 65535, 600 * 700).reshape(600, 700).astype(np.uint16)
        for image, samples in zip(self.shown(before, before // 2), (before, before // 2)):
            np.testing.assert_allclose(image.get_array(), samples / 65535, atol=1e-6)
            self.assertEqual(image.get_clim(), (0, 1))

    def test_a_stretch_brightens_both_alike(self):
        rng = np.random.default_rng(1)
        before = rng.normal(0.01, 0.001, (600, 600))
        left, right = self.shown(before, before, stretch=True)
        np.testing.assert_array_equal(left.get_array(), right.get_array())
        sky = np.median(left.get_array().data)
        self.assertTrue(0.05 < sky < 0.35, sky)

    def test_every_kind_of_image(self):
        planes = np.zeros((3, 520, 530), ">f4")
        planes[1] = 0.5
        for image in (planes, CCDData(planes, unit="adu")):
            left, _ = self.shown(image, image, channel_axis=0, origin="lower")
            np.testing.assert_array_equal(left.get_array()[7, 8], [0, 0.5, 0])
            self.assertEqual(left.origin, "lower")
        bad = np.full((520, 530), np.nan)
        self.assertEqual(self.shown(bad, bad)[0].get_array().max(), 0)
        with self.assertRaisesRegex(ValueError, "^The shapes differ"):
            nebulex.plot(bad, bad[:, :5])

    def test_without_matplotlib_it_says_what_is_missing(self):
        with unittest.mock.patch.dict(sys.modules, {"matplotlib": None}):
            with self.assertRaisesRegex(ImportError, "matplotlib"):
                nebulex.plot(np.zeros((4, 4)), np.zeros((4, 4)))


if __name__ == "__main__":
    unittest.main()
