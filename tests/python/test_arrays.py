"""What arrays go in, and what comes out."""

import unittest

import numpy as np

import nebulex
from images import MODELS, network, star_field
from nebulex import _arrays

PATTERN = np.load(MODELS / "pattern.npy")


class Arrays(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.model = nebulex.Model(network("pattern"))

    def remove(self, image, **settings):
        return nebulex.remove_stars(image, model=self.model, **settings)

    def same(self, got, expected):
        self.assertEqual((got.dtype, got.shape), (expected.dtype, expected.shape))
        np.testing.assert_array_equal(got, expected)

    def test_one_tile_is_what_the_network_makes_of_the_samples(self):
        image = star_field(dtype=np.float32)
        result = self.remove(image, stride=512, protect_highlights=False, mask=True, unscreen=True)
        starless = image * PATTERN
        self.same(result.starless, starless)
        exact, base = image.astype(float), starless.astype(float)
        self.same(result.mask, (exact - base).astype(np.float32))
        np.testing.assert_allclose(result.unscreen, (exact - base) / (1 - base), rtol=1e-6)

    def test_integers_are_rounded_to_the_nearest(self):
        for dtype in (np.uint8, np.uint16):
            image = star_field(dtype=dtype)
            got = self.remove(image, stride=512, protect_highlights=False).starless
            self.assertEqual(got.dtype, dtype)
            # Float32 in between is good for a hundredth of a count.
            self.assertLess(np.abs(got - image * PATTERN.astype(float)).max(), 0.51)

    def test_layers_that_nobody_asked_for_are_none(self):
        image = star_field(channels=1)
        for mask in (False, True):
            for unscreen in (False, True):
                result = self.remove(image, mask=mask, unscreen=unscreen)
                self.assertEqual(result.mask is not None, mask)
                self.assertEqual(result.unscreen is not None, unscreen)

    def test_the_image_stays_as_it_was(self):
        image = star_field(dtype=np.float64)
        before = image.copy()
        self.remove(image, mask=True, unscreen=True)
        self.same(image, before)

    def test_byte_orders_strides_and_read_only_arrays_give_the_same(self):
        rng = np.random.default_rng(1)
        for dtype in ("u1", "u2", "f4", "f8"):
            image = star_field(520, 530, dtype=np.dtype(dtype))
            expected = self.remove(image, mask=True, unscreen=True)
            wide = rng.random((2 * 520, 3 * 530, 5)).astype(dtype)
            wide[::2, ::3, 1:4] = image
            read_only = image.copy()
            read_only.flags.writeable = False
            odd = np.frombuffer(b"\0" + image.tobytes(), np.uint8)[1:].view(dtype)
            variants = {
                "big-endian": image.astype(">" + dtype),
                "every second row, every third column": wide[::2, ::3, 1:4],
                "from bottom to top": image[::-1].copy()[::-1],
                "from right to left": image[:, ::-1].copy()[:, ::-1],
                "columns first in memory": np.asfortranarray(image),
                "read-only": read_only,
                "at odd addresses": odd.reshape(image.shape),
                "a matrix of lists": image.tolist() if dtype == "f8" else image,
            }
            for name, variant in variants.items():
                with self.subTest(dtype=dtype, variant=name):
                    got = self.remove(variant, mask=True, unscreen=True)
                    for field in ("starless", "mask", "unscreen"):
                        result = getattr(got, field)
                        self.assertEqual(result.dtype, np.asarray(variant).dtype)
                        self.assertTrue(result.flags.writeable)
                        np.testing.assert_array_equal(result, getattr(expected, field))

    def test_the_channels_may_lie_on_any_axis(self):
        image = star_field(520, 530)
        expected = self.remove(image).starless
        for axis in range(3):
            for named in (axis, axis - 3):
                got = self.remove(np.moveaxis(image, 2, axis).copy(), channel_axis=named).starless
                self.same(got, np.moveaxis(expected, 2, axis))

    def test_one_channel_on_an_axis_of_its_own_is_grey(self):
        grey = star_field(channels=1)
        self.same(self.remove(grey[:, :, None]).starless, self.remove(grey).starless[:, :, None])
        self.same(self.remove(grey[None], channel_axis=0).starless, self.remove(grey).starless[None])

    def test_repeated_samples_work(self):
        grey = star_field(channels=1)
        colour = np.broadcast_to(grey[:, :, None], (512, 512, 3))
        self.same(self.remove(colour).starless, self.remove(colour.copy()).starless)

    def test_overlapping_windows_work(self):
        line = star_field(1, 1400, channels=1, dtype=np.float32)[0]
        windows = np.lib.stride_tricks.sliding_window_view(line, 600)[:600]
        self.same(self.remove(windows).starless, self.remove(windows.copy()).starless)

    def test_white_divides_floating_samples_alone(self):
        fraction = star_field(dtype=np.float64)
        counts = fraction * 4096
        at_one = self.remove(fraction, mask=True, unscreen=True)
        at_4096 = self.remove(counts, white=4096.0, mask=True, unscreen=True)
        # A power of two changes exponents alone.
        self.same(at_4096.starless, at_one.starless * 4096)
        self.same(at_4096.mask, at_one.mask * 4096)
        self.same(at_4096.unscreen, at_one.unscreen)

    def test_linear_data_may_lie_below_0(self):
        image = star_field(dtype=np.float64) - 0.05
        self.assertLess(image.min(), 0)
        self.assertLess(self.remove(image, linear=True).starless.min(), 0)


class Copies(unittest.TestCase):
    def handed_over(self, image, channel_axis=-1):
        return _arrays.library_array(_arrays.channels_last(image, channel_axis))

    def test_arrays_in_the_byte_order_of_the_machine_are_not_copied(self):
        image = np.zeros((20, 30, 3), np.float32)
        for variant in (image, image[::-1], image[:, ::-2], image[..., ::-1], image[..., 1:2],
                        np.asfortranarray(image), np.zeros((600, 600)).T):
            self.assertTrue(np.shares_memory(self.handed_over(variant), variant))
        planes = np.zeros((3, 20, 30))
        self.assertTrue(np.shares_memory(self.handed_over(planes, 0), planes))

    def test_others_are_copied_once(self):
        big_endian = np.zeros((20, 30), ">f4")
        shared = np.broadcast_to(np.float32(1), (20, 30))
        for variant in (big_endian, shared):
            copy = self.handed_over(variant)
            self.assertFalse(np.shares_memory(copy, variant))
            self.assertTrue(copy.flags.c_contiguous and copy.dtype.isnative)

    def test_results_of_another_byte_order_are_turned_in_place(self):
        native = np.array([1.0, 2.0])
        turned = _arrays.to_byte_order_of(np.dtype(">f8"), native)
        self.assertTrue(np.shares_memory(turned, native))
        np.testing.assert_array_equal(turned, [1.0, 2.0])


if __name__ == "__main__":
    unittest.main()
