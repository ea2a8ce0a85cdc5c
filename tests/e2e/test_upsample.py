"""Processing on the doubled grid."""

import unittest

import numpy

from program import ProgramTest, model, read_image


class Upsample(ProgramTest):
    def test_small_images_pass_only_with_upsampling(self):
        for rows, columns in ((256, 256), (300, 301)):
            with self.subTest(rows=rows, columns=columns):
                source = self.image("in.tif", rows, columns)
                output = self.path("out.tif")
                self.fail_with("Image size is too small for the window!", "-i", source, "-o",
                               output, "-w", model("identity"))
                self.succeed("-i", source, "-o", output, "--upsample", "-w", model("identity"))
                self.assertEqual(read_image(output).shape, (rows, columns, 3))

    def test_too_small_even_for_upsampling(self):
        source = self.image("in.tif", 255, 400)
        self.fail_with("Image size is too small for the window!", "-i", source, "-o",
                       self.path("out.tif"), "-u", "-w", model("identity"))

    def test_an_identity_model_returns_the_stored_values(self):
        for dtype in (numpy.uint8, numpy.uint16):
            for channels in (1, 3):
                with self.subTest(dtype=dtype, channels=channels):
                    source = self.image("in.tif", 300, 301, dtype=dtype, channels=channels)
                    output = self.path("out.tif")
                    self.succeed("-i", source, "-o", output, "-u", "-w", model("identity"))
                    self.assertTrue((read_image(output) == read_image(source)).all())

    def test_records_say_what_happens(self):
        source = self.image("in.tif", 256, 256)
        result = self.succeed("-i", source, "-o", self.path("out.tif"), "-u", "-w",
                              model("identity"))
        self.assertEqual(
            result.messages("intermediate_sampling"),
            ["2x grid-aligned cubic upsampling; output selects original grid samples without "
             "averaging"],
        )
        self.assertEqual(result.messages("input_geometry"),
                         ["width=256 height=256 interpretation=RGB"])

    def test_layers_have_the_inputs_size(self):
        source = self.image("in.tif", 256, 300)
        names = [self.path(name) for name in ("o.tif", "m.tif", "u.tif")]
        self.succeed("-i", source, "-o", names[0], "-m", names[1], "-n", names[2], "-u", "-w",
                     model("scaling"))
        stored = read_image(source).astype(int)
        starless, mask, unscreen = (read_image(name).astype(int) for name in names)
        self.assertTrue((mask == stored - starless).all())
        rebuilt = starless + unscreen / 65535 * (65535 - starless)
        self.assertLessEqual(numpy.abs(rebuilt - stored).max(), 1.0)


if __name__ == "__main__":
    unittest.main()
