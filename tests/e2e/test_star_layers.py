"""Star mask and unscreen layer as files."""

import unittest

import numpy

from program import ProgramTest, model, read_image, star_field, write_image


class StarLayers(ProgramTest):
    def layers(self, source, extension, *more, weights="pattern"):
        paths = [self.path(name + extension) for name in ("starless", "mask", "unscreen")]
        result = self.succeed("-i", source, "-o", paths[0], "-m", paths[1], "-n", paths[2], "-w",
                              model(weights), *more)
        return result, [read_image(path).astype(float) for path in paths]

    def check_rebuilding(self, source, extension, white):
        stored = read_image(source).astype(float)
        result, (starless, mask, unscreen) = self.layers(source, extension)
        self.assertEqual(result.warnings(), [])
        rebuilt = starless + unscreen / white * (white - starless)
        usable = starless <= stored
        self.assertGreater(usable.mean(), 0.5)
        self.assertLessEqual(numpy.abs(rebuilt - stored)[usable].max(), 1.0)
        self.assertTrue((unscreen[~usable] == 0).all())
        self.assertTrue((mask == numpy.clip(stored - starless, 0, white)).all())
        self.assertGreater(mask.max(), 0.05 * white)

    def test_sixteen_bit_colour_is_rebuilt_within_one_step(self):
        self.check_rebuilding(self.image("in.tif", 512, 640, seed=11), ".tif", 65535)

    def test_eight_bit_colour_is_rebuilt_within_one_step(self):
        self.check_rebuilding(self.image("in.png", 520, 512, dtype=numpy.uint8), ".png", 255)

    def test_sixteen_bit_grey_is_rebuilt_within_one_step(self):
        self.check_rebuilding(self.image("in.tif", 512, 512, channels=1, seed=5), ".tif", 65535)

    def test_grey_sources_give_grey_files(self):
        source = self.image("in.png", channels=1)
        _, images = self.layers(source, ".png")
        for image in images:
            self.assertEqual(image.shape, (512, 512))

    def test_three_equal_planes_give_grey_files(self):
        grey = star_field(512, 512, channels=1, dtype=numpy.uint8)
        source = write_image(self.path("in.tif"), numpy.repeat(grey[:, :, None], 3, axis=2))
        _, images = self.layers(source, ".tif", weights="identity")
        self.assertEqual(images[0].shape, (512, 512))
        self.assertTrue((images[0] == grey).all())

    def test_only_the_wanted_files_are_written(self):
        source = self.image("in.png")
        self.succeed("-i", source, "-o", self.path("o.png"), "-w", model("identity"))
        self.assertEqual(self.files(), ["in.png", "o.png"])
        self.succeed("-i", source, "-o", self.path("o.png"), "-n", self.path("u.png"), "-w",
                     model("identity"))
        self.assertEqual(self.files(), ["in.png", "o.png", "u.png"])

    def test_without_stars_both_layers_are_black(self):
        source = self.image("in.tif")
        _, (_, mask, unscreen) = self.layers(source, ".tif", weights="identity")
        self.assertEqual(mask.max(), 0)
        self.assertEqual(unscreen.max(), 0)

    def test_highlight_protection_keeps_near_white_and_can_be_switched_off(self):
        # A block of white that the model dims by less than a thousandth comes back with protection.
        stored = star_field(512, 512, seed=2)
        stored[200:260, 200:260] = 65535
        source = write_image(self.path("in.tif"), stored)
        _, (protected, _, _) = self.layers(source, ".tif", weights="slightly_dimmer")
        _, (plain, _, _) = self.layers(source, ".tif", "-d", weights="slightly_dimmer")
        self.assertGreater(protected[230, 230, 0], plain[230, 230, 0])
        self.assertEqual(plain[230, 230, 0], round(65535 * 0.9999))

    def test_a_model_that_overshoots_is_held_at_white(self):
        source = self.image("in.tif")
        _, (starless, mask, _) = self.layers(source, ".tif", weights="brighter")
        stored = read_image(source).astype(float)
        self.assertTrue((starless >= stored - 1).all())
        self.assertEqual(mask.max(), 0)


if __name__ == "__main__":
    unittest.main()
