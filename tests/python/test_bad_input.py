"""Every mistake has its sentence, and nothing else happens."""

import unittest
import warnings

import numpy as np

import nebulex
from images import network, star_field


class BadInput(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.model = nebulex.Model(network("identity"))
        cls.image = star_field(dtype=np.float32)

    def refuse(self, image, error, message, **settings):
        with self.assertRaises(error) as caught:
            nebulex.remove_stars(image, **{"model": self.model, **settings})
        self.assertRegex(str(caught.exception), message)
        return caught.exception

    def test_dtypes_that_do_not_work_name_those_that_do(self):
        for dtype in (bool, np.int8, np.int16, np.uint32, np.int64, np.float16, np.longdouble,
                      complex, object, "S3"):
            self.refuse(np.zeros((512, 512), dtype), TypeError,
                        "^Samples are .*; uint8, uint16, float32 and float64 work")

    def test_axes(self):
        for shape, axis, hint in (((3, 512, 600), -1, "channel_axis=0 would fit"),
                                  ((512, 3, 600), 0, "channel_axis=1 would fit"),
                                  ((512, 600, 3), 0, "channel_axis=2 would fit"),
                                  ((512, 600, 4), -1, r"the shape is \(512, 600, 4\)"),
                                  ((512, 600, 2), -1, "rows x columns"),
                                  ((600,), -1, "rows x columns"),
                                  ((1, 3, 512, 512), 1, "rows x columns"),
                                  ((512, 512, 3), 3, "channel_axis is 3"),
                                  ((512, 512, 3), -4, "channel_axis is -4")):
            self.refuse(np.zeros(shape, np.float32), ValueError, hint, channel_axis=axis)

    def test_empty_arrays(self):
        for shape in ((0, 0), (0, 600), (512, 0, 3)):
            self.refuse(np.zeros(shape, np.float32), ValueError, "^The image is empty")

    def test_numbers_and_nothing(self):
        self.refuse(0.5, ValueError, "rows x columns")
        self.refuse(None, TypeError, "^Samples are object")

    def test_small_images_with_the_hint_to_upsample(self):
        error = self.refuse(np.zeros((511, 600), np.uint8), nebulex.ImageError, "512.*upsample")
        self.assertIsInstance(error, ValueError)
        self.refuse(np.zeros((255, 600), np.uint8), nebulex.ImageError, "256", upsample=True)

    def test_samples_out_of_range_with_the_range_found(self):
        image = self.image.copy()
        image[5, 6, 1], image[7, 8, 2] = -0.25, 1.5
        self.refuse(image, nebulex.ImageError, r"-0\.25.*1\.5.*white")
        self.refuse(image, nebulex.ImageError, r"1\.5", linear=True)
        self.refuse(image * 65535, nebulex.ImageError, "white", white=4095.0)

    def test_samples_that_are_not_finite(self):
        for value in (np.nan, np.inf, -np.inf):
            for dtype in (np.float32, np.float64):
                for linear in (False, True):
                    image = self.image.astype(dtype)
                    image[100, 100, 0] = value
                    self.refuse(image, nebulex.ImageError, "finite", linear=linear)

    def test_settings(self):
        for settings in ({"stride": 0}, {"stride": 3}, {"stride": 514}, {"stride": -2},
                         {"stride": 10**30}, {"stride": -(10**30)},
                         {"linear": True, "shadows_clipping": 0.0},
                         {"linear": True, "shadows_clipping": np.nan},
                         {"linear": True, "target_background": 1.0},
                         {"white": 0.0}, {"white": -1.0}, {"white": np.inf}):
            with self.subTest(settings=settings):
                self.refuse(self.image, ValueError, f"^{list(settings)[-1]} .*It is ", **settings)
        self.refuse(np.zeros((512, 512), np.uint8), ValueError, "white", white=255.0)
        for settings in ({"stride": 256.0}, {"stride": "256"}, {"stride": None},
                         {"shadows_clipping": "deep"}, {"white": None}):
            with self.subTest(settings=settings):
                self.refuse(self.image, TypeError, ".", **settings)

    def test_what_would_lose_a_unit_or_a_mask(self):
        from astropy import units
        from astropy.nddata import CCDData

        for image in (CCDData(self.image, unit="adu"), self.image * units.adu):
            self.refuse(image, TypeError, "unit, which would be lost.*nebulex.astropy")
        masked = np.ma.masked_less(self.image, self.image.mean())
        self.refuse(masked, ValueError, f"masked, {masked.mask.sum()} of them")
        unmasked = nebulex.remove_stars(np.ma.array(self.image), model=self.model, stride=512).starless
        np.testing.assert_array_equal(unmasked, self.image)

    def test_a_model_that_is_none(self):
        for model in ("network.onnx", 3, object(), nebulex.Model):
            self.refuse(self.image, TypeError, "^model is a nebulex.Model or None", model=model)

    def test_a_progress_that_is_none(self):
        self.refuse(self.image, TypeError, "^progress is None, True or a function", progress="bar")

    def test_settings_go_by_name_alone(self):
        with self.assertRaises(TypeError):
            nebulex.remove_stars(self.image, True)

    def test_a_network_that_fails_on_a_tile(self):
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            failing = nebulex.Model(network("fails_on_tiles"))
            error = self.refuse(self.image, nebulex.InternalError, ".", model=failing)
        self.assertIsInstance(error, RuntimeError)

    def test_the_model_works_after_each_mistake(self):
        self.refuse(self.image * np.nan, nebulex.ImageError, ".")
        got = nebulex.remove_stars(self.image, model=self.model, stride=512).starless
        np.testing.assert_array_equal(got, self.image)


if __name__ == "__main__":
    unittest.main()
