"""Linear data: stretched for the network and returned to linear values."""

import unittest

import numpy

from program import ProgramTest, model, read_image, star_field, write_image

MULTIPLIER = -2.8
TARGET = 0.25


def median(values):
    ordered = numpy.sort(values.ravel())
    n = ordered.size
    return ordered[n // 2] if n % 2 else ordered[n // 2 - 1] / 2 + ordered[n // 2] / 2


class ChannelStatistics:
    """Computed apart from the program, with sorted lists."""

    def __init__(self, samples):
        self.median = median(samples)
        self.mad = median(numpy.abs(samples - self.median)) * 1.4826
        self.shadows = (
            min(max(self.median + MULTIPLIER * self.mad, 0.0), 1.0) if self.mad > 0 else 0.0
        )
        d = self.median - self.shadows
        self.midtones = (TARGET - 1) * d / ((2 * TARGET - 1) * d - TARGET)
        self.clipped = int((samples <= self.shadows).sum())


def faint(rows, columns, channels=3, seed=4):
    """A linear frame: a dark sky with noise, and stars."""
    stored = star_field(rows, columns, channels=channels, seed=seed).astype(float)
    return numpy.rint(stored * 0.2).astype(numpy.uint16)


def fields(message):
    return dict(part.split("=", 1) for part in message.split(";")[0].split())


class Linear(ProgramTest):
    def linear_run(self, source, *more, weights="identity"):
        output = self.path("out.tif")
        result = self.succeed("-i", source, "-o", output, "--linear", "-w", model(weights), *more)
        return result, read_image(output)

    def test_statistics_agree_with_an_independent_computation(self):
        stored = faint(512, 513)
        result, _ = self.linear_run(write_image(self.path("in.tif"), stored))
        messages = result.messages("linear_mtf")
        self.assertEqual(len(messages), 3)
        for number, message in enumerate(messages, start=1):
            expected = ChannelStatistics(stored[:, :, number - 1] / 65535.0)
            record = fields(message)
            self.assertEqual(
                list(record),
                ["channel", "median", "normalized_MAD", "shadows", "physical_shadows", "midtones",
                 "shadows_multiplier", "target_background", "working_grid_clipped", "constant"],
            )
            self.assertTrue(
                message.endswith(" constant=0; MTF/inverse=float64; inference=float32")
            )
            self.assertEqual(record["channel"], str(number))
            self.assertEqual(record["shadows_multiplier"], "-2.7999999999999998")
            self.assertEqual(record["target_background"], "0.25")
            for key, value in (("median", expected.median), ("normalized_MAD", expected.mad),
                               ("shadows", expected.shadows), ("midtones", expected.midtones),
                               ("physical_shadows", expected.shadows * 65535)):
                self.assertAlmostEqual(float(record[key]), value, delta=1e-12 * 65535, msg=key)
            self.assertEqual(int(record["working_grid_clipped"]), expected.clipped)

    def check_identity(self, stored, *more):
        source = write_image(self.path("in.tif"), stored)
        result, got = self.linear_run(source, *more)
        planes = stored[:, :, None] if stored.ndim == 2 else stored
        results = got[:, :, None] if got.ndim == 2 else got
        for c in range(planes.shape[2]):
            samples = planes[:, :, c] / 65535.0
            statistics = ChannelStatistics(samples)
            m = statistics.midtones
            error = numpy.abs(results[:, :, c].astype(float) - planes[:, :, c])
            if statistics.median - statistics.shadows >= 0.005:
                self.assertLessEqual(error.max(), 1)
            else:
                self.assertLessEqual(error.max(), (1 - m) / m * 2**-22 * 65535 + 0.5)
            restored = samples <= statistics.shadows
            self.assertEqual(error[restored].max() if restored.any() else 0, 0)
            if not more:
                self.assertEqual(
                    result.messages("shadow_restoration")[c],
                    f"final_source_grid channel={c + 1} restored_shadow_samples="
                    f"{int(restored.sum())} additional_constant_samples=0",
                )
        self.assertEqual(result.warnings(), [])
        return result

    def test_an_identity_model_returns_colour(self):
        self.check_identity(faint(512, 600))

    def test_an_identity_model_returns_grey_with_three_statistics_and_one_restoration(self):
        result = self.check_identity(faint(530, 512, channels=1))
        self.assertEqual(len(result.messages("linear_mtf")), 3)
        self.assertEqual(len(result.messages("shadow_restoration")), 1)
        self.assertEqual(read_image(self.path("out.tif")).ndim, 2)

    def test_a_very_narrow_sky_stays_within_the_amplified_rounding(self):
        random = numpy.random.default_rng(3)
        stored = numpy.rint(100 + random.normal(0, 3, (512, 512, 3))).astype(numpy.uint16)
        self.check_identity(stored)

    def test_a_constant_channel_comes_back_exactly(self):
        stored = faint(512, 512)
        stored[:, :, 1] = 777
        result, got = self.linear_run(write_image(self.path("in.tif"), stored), weights="scaling")
        self.assertTrue((got[:, :, 1] == 777).all())
        self.assertIn(" constant=1;", result.messages("linear_mtf")[1])
        self.assertEqual(
            result.messages("shadow_restoration")[1],
            "final_source_grid channel=2 restored_shadow_samples=0 "
            f"additional_constant_samples={512 * 512}",
        )

    def test_with_upsampling_the_input_grid_comes_back(self):
        stored = faint(300, 301)
        source = write_image(self.path("in.tif"), stored)
        result, got = self.linear_run(source, "--upsample")
        self.assertEqual(got.shape, stored.shape)
        self.assertLessEqual(numpy.abs(got.astype(int) - stored).max(), 1)
        self.assertEqual(len(result.messages("shadow_restoration")), 3)

    def test_a_model_that_removes_light_acts_on_the_stretched_image(self):
        stored = faint(512, 512, channels=1)
        source = write_image(self.path("in.tif"), stored)
        _, got = self.linear_run(source, "-d", weights="scaling")
        samples = stored / 65535.0
        statistics = ChannelStatistics(samples)
        s, m = statistics.shadows, statistics.midtones
        x = numpy.clip(samples - s, 0, 1)
        y = (m - 1) * x / ((2 * m - 1) * x - m) / 2
        expected = m * y / ((1 - m) * (1 - y) + m * y) + s
        expected[samples <= s] = samples[samples <= s]
        self.assertLessEqual(numpy.abs(got - expected * 65535).max(), 1)
        self.assertLess(got.mean(), stored.mean())

    def test_a_channel_without_a_usable_background_is_refused(self):
        # More than half of the samples are 0, so median, MAD and midtones are 0.
        stored = faint(512, 512)
        stored[:400, :, 2] = 0
        source = write_image(self.path("in.tif"), stored)
        self.fail_with(
            "Linear input has a non-invertible MTF background in channel 3. Normalize or prepare "
            "the image upstream.",
            "-i", source, "-o", self.path("out.tif"), "--linear", "-w", model("identity"),
        )
        self.assertFalse(self.path("out.tif").exists())

    def test_tuning_values_out_of_range_are_refused(self):
        source = write_image(self.path("in.tif"), faint(512, 512))
        for option in (["--shadows-clipping", "0"], ["--shadows-clipping", "1"],
                       ["--target-background", "0"], ["--target-background", "1"],
                       ["--target-background", "-0.5"]):
            with self.subTest(option=option):
                self.fail_with(
                    "Linear MTF requires a negative shadows multiplier and target between 0 and "
                    "1.",
                    "-i", source, "-o", self.path("out.tif"), "--linear", *option, "-w",
                    model("identity"),
                )

    def test_tuning_values_reach_the_statistics(self):
        source = write_image(self.path("in.tif"), faint(512, 512))
        result, _ = self.linear_run(source, "--shadows-clipping", "-1.5", "--target-background",
                                    "0.125")
        record = fields(result.messages("linear_mtf")[0])
        self.assertEqual(record["shadows_multiplier"], "-1.5")
        self.assertEqual(record["target_background"], "0.125")

    def test_without_linear_one_record_says_so(self):
        source = write_image(self.path("in.tif"), faint(512, 512))
        result = self.succeed("-i", source, "-o", self.path("out.tif"), "-w", model("identity"))
        self.assertEqual(result.messages("linear_mtf"),
                         ["disabled; no automatic stretch or inverse transform"])
        self.assertEqual(result.messages("shadow_restoration"), [])

    def test_layers_rebuild_the_linear_source(self):
        stored = faint(512, 512)
        source = write_image(self.path("in.tif"), stored)
        names = [self.path(name) for name in ("o.tif", "m.tif", "u.tif")]
        self.succeed("-i", source, "-o", names[0], "-m", names[1], "-n", names[2], "--linear",
                     "-w", model("scaling"))
        starless, mask, unscreen = (read_image(name).astype(float) for name in names)
        usable = starless <= stored
        rebuilt = starless + unscreen / 65535 * (65535 - starless)
        self.assertLessEqual(numpy.abs(rebuilt - stored)[usable].max(), 1.0)
        self.assertTrue((mask == numpy.clip(stored - starless, 0, 65535)).all())


if __name__ == "__main__":
    unittest.main()
