"""Stars put back."""

import unittest

import numpy as np

import nebulex
from images import network, star_field


class Screen(unittest.TestCase):
    def test_the_formula(self):
        starless = np.array([[0.0, 0.5, 0.25], [1.0, 0.5, 0.0]])
        unscreen = np.array([[0.5, 0.5, 0.0], [1.0, 1.0, 0.25]])
        np.testing.assert_array_equal(nebulex.screen(starless, unscreen),
                                      [[0.5, 0.75, 0.25], [1.0, 1.0, 0.25]])
        np.testing.assert_array_equal(nebulex.screen(starless, unscreen, 0.5),
                                      [[0.25, 0.625, 0.25], [1.0, 0.75, 0.125]])
        np.testing.assert_array_equal(nebulex.screen(starless, unscreen, 0), starless)
        np.testing.assert_array_equal(nebulex.screen(starless * 8, unscreen, white=8.0),
                                      [[4.0, 6.0, 2.0], [8.0, 8.0, 2.0]])

    def test_it_rebuilds_the_image(self):
        # The network works on float32, and the layers belong to that.
        tolerance = {"uint8": 1, "uint16": 1, "float32": 2**-22, "float64": 2**-24}
        model = nebulex.Model(network("pattern"))
        for dtype, error in tolerance.items():
            image = star_field(700, 600, dtype=np.dtype(dtype))
            result = nebulex.remove_stars(image, unscreen=True, model=model)
            rebuilt = nebulex.screen(result.starless, result.unscreen)
            self.assertEqual((rebuilt.dtype, rebuilt.shape), (image.dtype, image.shape))
            differences = np.abs(rebuilt.astype(float) - image.astype(float))
            self.assertLessEqual(differences.max(), error, dtype)

    def test_an_edited_image_of_another_type(self):
        layer = np.array([[0, 32768, 65535]], np.uint16)
        edited = np.full((1, 3), 0.5, np.float32)
        np.testing.assert_allclose(nebulex.screen(edited, layer), [[0.5, 0.75, 1.0]], rtol=1e-5)
        self.assertEqual(nebulex.screen(edited, layer).dtype, np.float32)
        self.assertEqual(nebulex.screen(edited.astype(">f4"), layer).dtype, np.dtype(">f4"))

    def test_mistakes(self):
        image = np.zeros((4, 4), np.uint8)
        with self.assertRaisesRegex(ValueError, r"shape \(4, 4\), the layer \(4, 3\)"):
            nebulex.screen(image, image[:, :3])
        for amount in (-0.1, 1.1, np.nan):
            with self.assertRaisesRegex(ValueError, r"within \[0, 1\]"):
                nebulex.screen(image, image, amount)
        with self.assertRaisesRegex(TypeError, "^Samples are int64"):
            nebulex.screen(image.astype(np.int64), image)


if __name__ == "__main__":
    unittest.main()
