"""The measures, on ways of taking stars out whose figures are known beforehand."""

import json
import math
import pathlib
import sys
import tempfile
import unittest

import cv2
import numpy as np
from astropy.io import fits

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from nebulex_training.evaluation.added_stars import add_stars, shares_left
from nebulex_training.evaluation.comparison import paired_ratio
from nebulex_training.evaluation.computed import (
    MeasuredScene,
    knowing_the_truth,
    other_error,
    paired_values,
    scene_figures,
    star_error,
    summary,
)
from nebulex_training.evaluation.invariance import forms
from nebulex_training.evaluation.photographs import (
    best_of_photograph,
    find_photographs,
    less_chance,
    load_photograph,
    measure_forms,
    measure_linear,
    measure_photograph,
    typical_measures,
)
from nebulex_training.evaluation.program import (
    InpaintingRemover,
    NothingRemover,
    OpeningRemover,
    read_picture,
    write_picture,
)
from nebulex_training.evaluation.spectra import texture_ratio
from nebulex_training.evaluation.worst import WorstScenes
from nebulex_training.scene_sets import SETS


def star_field(stars):
    """Sky of 0.2 with noise of 0.01, and as many stars of 3.5 pixels width on a lattice."""
    rng = np.random.default_rng(8)
    sky = 0.2 + 0.01 * rng.standard_normal((256, 256, 3)).astype(np.float32)
    light = np.zeros_like(sky)
    rows, columns = np.mgrid[:256, :256]
    for star in range(stars):
        row, column = 30 + 40 * (star // 6), 30 + 40 * (star % 6)
        light += 0.5 * np.exp(-((rows - row) ** 2 + (columns - column) ** 2) / 4.5)[..., None]
    return np.clip(sky + light, 0.0, 1.0).astype(np.float32), sky


class Computed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scenes = [MeasuredScene("former-held-out", number, 256) for number in range(12)]

    def measured(self, way):
        return dict(summary([scene_figures(scene, way(scene)) for scene in self.scenes]))

    def test_the_truth_itself_is_perfect(self):
        rows = self.measured(lambda scene: scene.truth)
        self.assertEqual(rows["residual"], 0.0)
        self.assertEqual(rows["residual less offset"], 0.0)
        self.assertEqual(rows["PSNR, other pixels"], float("inf"))
        self.assertEqual(rows["PSNR, where no star shines"], float("inf"))
        self.assertEqual(rows["faint light left"], 0.0)
        self.assertAlmostEqual(rows["texture (1 is best)"], 1.0)

    def test_doing_nothing_leaves_all_the_light(self):
        rows = self.measured(lambda scene: scene.picture)
        self.assertAlmostEqual(rows["residual"], 1.0, places=5)
        self.assertAlmostEqual(rows["residual, bright stars"], 1.0, places=5)
        self.assertAlmostEqual(rows["faint light left"], 1.0, places=5)
        self.assertLess(rows["PSNR, star pixels"], 30.0)
        # It harms nothing: what stars gave less than 1e-4 to is as it was.
        self.assertGreater(rows["PSNR, where no star shines"], 80.0)

    def test_knowing_the_truth_is_wrong_where_stars_saturate_and_nowhere_else(self):
        saturated = 0
        for scene in self.scenes:
            wrong = (knowing_the_truth(scene) != scene.truth).any(axis=2)
            bright = (scene.picture >= 0.98 * scene.picture.max(axis=(0, 1))).any(axis=2)
            self.assertFalse((wrong & ~(bright & scene.stars)).any())
            saturated += int(wrong.sum())
        self.assertGreater(saturated, 100)
        rows = self.measured(knowing_the_truth)
        self.assertTrue(0.0 < rows["residual"] < 0.1, rows["residual"])

    def test_an_even_error_is_offset_and_nothing_else(self):
        rows = self.measured(lambda scene: scene.truth + np.float32(0.01))
        self.assertGreater(rows["offset"], 0.0)
        self.assertLess(rows["residual less offset"], 1e-4 * rows["offset"])

    def test_a_dot_is_no_offset(self):
        scene = self.scenes[0]
        row, column = np.argwhere(scene.stars)[0]
        result = scene.truth.copy()
        result[row, column] += np.float32(0.5)
        stars = scene_figures(scene, result)["stars"]
        # A blur of 24 pixels leaves 1 / (2 pi 24^2) of it in the pixel.
        self.assertGreater(stars["fine"], 0.99 * stars["left"])

    def test_harm_is_apart_from_faint_light(self):
        scene = self.scenes[0]
        none = scene.change < 1e-4
        faint = ~none & ~scene.stars
        for where, harms, leaves in ((none, True, False), (faint, False, True)):
            result = scene.truth + np.float32(0.01) * where[..., None]
            figures = scene_figures(scene, result)
            self.assertEqual(figures["harm squares"] > 0.0, harms)
            self.assertEqual(figures["faint light"]["left"] > 0.0, leaves)

    def test_galaxies_are_kept_within_two_percent_and_lost_by_classes(self):
        def rows(factor):
            return {
                name.split(" of ")[0]: value
                for name, value in self.measured(
                    lambda scene: scene.truth * np.float32(factor)
                ).items()
            }

        for factor, kept, tenth, half in ((1.0, 1.0, 0.0, 0.0), (0.5, 0.0, 1.0, 1.0),
                                          (1.2, 0.0, 0.0, 0.0)):  # fmt: skip
            measured = rows(factor)
            self.assertEqual(measured["galaxies kept within 2 %"], kept)
            self.assertEqual(measured["galaxies that lost a tenth"], tenth)
            self.assertEqual(measured["galaxies that lost half"], half)
        names = dict(self.measured(lambda scene: scene.truth))
        counts = {
            name: int(name.split(" of ")[1]) for name in names if "lost a tenth of" in name
        }
        whole = [count for name, count in counts.items() if name.startswith("galaxies")][0]
        self.assertGreater(whole, 5)
        for classes in (("faint", "middle", "bright"), ("small", "middle-sized", "large")):
            of_classes = [
                count for name, count in counts.items() if name.split(" galaxies")[0] in classes
            ]
            self.assertEqual(sum(of_classes), whole)

    def test_figures_of_scenes_are_what_json_takes(self):
        figures = [scene_figures(scene, scene.picture) for scene in self.scenes[:3]]
        again = json.loads(json.dumps(figures))
        self.assertEqual(dict(summary(again)), dict(summary(figures)))

    def test_the_same_scene_is_computed_again(self):
        again = MeasuredScene("former-held-out", 2, 256)
        self.assertTrue(np.array_equal(again.picture, self.scenes[2].picture))

    def test_star_error_counts_star_pixels_only(self):
        scene = self.scenes[0]
        self.assertEqual(star_error(scene, scene.truth), 0.0)
        self.assertGreater(star_error(scene, scene.picture), 0.0)

    def test_other_error_counts_the_rest_only(self):
        scene = self.scenes[0]
        where = np.abs(scene.picture - scene.truth).max(axis=2) <= 0.02
        error = other_error(scene, scene.truth + np.float32(0.5))
        self.assertTrue(np.allclose(error[where], 0.75))  # three channels
        self.assertFalse(error[~where].any())

    def test_the_worst_scenes_are_kept_the_worst_first_at_their_worst_place(self):
        worst = WorstScenes(2)
        # On a 4 x 4 square in the corner that is farthest from what a middle crop would show.
        for number, harm in enumerate((0.1, 0.3, 0.2)):
            scene = MeasuredScene("former-held-out", number, 512)
            scene.truth, scene.stars = scene.picture, np.zeros((512, 512), bool)
            harmed = scene.picture.copy()
            harmed[500:504, 4:8] += np.float32(harm)
            worst.add(number, scene, [harmed, scene.picture])
        self.assertEqual(worst.numbers(), [1, 2])
        before, truth, harmed, harmless = worst.rows()[0]
        self.assertEqual(harmed.shape, (320, 320, 3))
        self.assertAlmostEqual(float((harmed - before)[308:312, 4:8].mean()), 0.3, places=5)
        self.assertTrue(np.array_equal(truth, harmless))


class Photographs(unittest.TestCase):
    def test_doing_nothing_leaves_every_star(self):
        picture, _ = star_field(30)
        rows, _ = measure_photograph(lambda image: image.copy(), picture)
        self.assertEqual(rows["stars"], 30.0)
        self.assertEqual(rows["left"], 1.0)
        self.assertAlmostEqual(rows["added, clear, median"], 1.0, delta=0.02)
        self.assertEqual(rows["sky"], 0.0)
        self.assertEqual(rows["sky, root mean square"], 0.0)

    def test_a_perfect_way_leaves_none_and_all_of_the_texture(self):
        picture, sky = star_field(30)
        rows, _ = measure_photograph(lambda image: sky.copy(), picture)
        self.assertEqual(rows["left"], 0.0)
        self.assertEqual(rows["left, less chance"], 0.0)
        self.assertEqual(rows["added, clear, median"], 0.0)
        self.assertAlmostEqual(rows["texture"], 1.0, delta=0.1)

    def test_half_of_every_added_star_is_half(self):
        picture, _ = star_field(12)
        added = add_stars(picture, 3.5, 0.01, 1)
        self.assertTrue((added.rise > 0.0).all())
        shares = shares_left(added, picture, picture + 0.5 * added.light)
        self.assertTrue(np.allclose(shares, 0.5, atol=1e-6))

    def test_noise_hardly_counts_as_light_of_a_clear_star(self):
        picture, _ = star_field(12)
        added = add_stars(picture, 3.5, 0.01, 1)
        noise = 0.01 * np.random.default_rng(4).standard_normal(picture.shape)
        shares = shares_left(added, picture, picture + noise)
        # Summed pixel by pixel, such noise would be a good part of the light.
        self.assertLess(np.abs(shares[added.rise >= 0.2]).max(), 0.02)

    def test_what_happens_far_from_added_stars_is_not_theirs(self):
        picture, _ = star_field(12)
        added = add_stars(picture, 3.5, 0.01, 1)
        far = cv2.dilate((added.light.max(axis=2) > 0.0).astype(np.uint8), np.ones((3, 3))) == 0
        self.assertTrue(far.any())
        shares = shares_left(added, picture, picture + far[..., None])
        self.assertFalse(shares.any())

    def test_added_stars_do_not_touch(self):
        picture, _ = star_field(1)
        added = add_stars(picture, 3.0, 0.01, 1)
        apart = np.abs(added.places[:, None] - added.places[None]).max(axis=2)
        apart[np.diag_indices(len(apart))] = 1e9
        self.assertGreaterEqual(len(apart), 10)
        self.assertGreater(apart.min(), 2 * added.reach)

    def test_who_knows_the_truth_leaves_next_to_nothing(self):
        picture, _ = star_field(12)
        rows = best_of_photograph(picture)
        self.assertLess(rows["added, clear, 90th percentile"], 0.05)

    def test_sources_left_count_beyond_chance(self):
        self.assertAlmostEqual(less_chance(0.1, 0.1), 0.0)
        self.assertAlmostEqual(less_chance(1.0, 0.3), 1.0)
        self.assertAlmostEqual(less_chance(0.55, 0.1), 0.5)
        self.assertTrue(math.isnan(less_chance(1.0, 1.0)))
        picture, _ = star_field(30)
        rows, _ = measure_photograph(lambda image: image.copy(), picture)
        # 30 discs of one star width among 256 x 256 pixels.
        self.assertAlmostEqual(rows["left by chance"], 30 * math.pi * 3.5**2 / 256**2, delta=0.012)

    def test_forms_come_back_as_they_were(self):
        picture, _ = star_field(30)
        smooth = cv2.GaussianBlur(picture, (0, 0), 2.0)
        for form in forms(smooth):
            there = form.there(smooth)
            self.assertGreaterEqual(float(there.min()), 0.0, form.name)
            self.assertLessEqual(float(there.max()), 1.0 + 1e-6, form.name)
            back = form.back(there)
            self.assertLess(float(np.abs(back - smooth).max()), 0.01, form.name)
        linear = forms(smooth)[-1]
        self.assertTrue(linear.linear)
        self.assertAlmostEqual(float(np.median(linear.there(smooth))), 0.01, places=3)

    def test_a_way_that_knows_no_brightness_is_found_out(self):
        picture, sky = star_field(30)

        def only_as_it_is(image, linear=False):
            return sky.copy() if np.array_equal(image, picture) else image

        rows = measure_forms(only_as_it_is, picture)
        self.assertAlmostEqual(rows["left, as it is"], 0.0, delta=0.01)
        for form in ("times 0.7", "times 0.5", "lifted by 0.3", "turned", "doubled", "linear"):
            self.assertGreater(rows[f"left, {form}"], 0.8, form)

    def test_a_linear_photograph_is_measured_as_it_is_stored(self):
        rng = np.random.default_rng(5)
        planes = 800.0 + rng.normal(0.0, 4.0, (600, 600))
        rows, columns = np.mgrid[0:600, 0:600]
        for row, column in ((100, 120), (300, 410), (480, 210)):
            distance = (rows - row) ** 2 + (columns - column) ** 2
            planes += 3000.0 * np.exp(-distance / (2.0 * 1.6**2))
        told = []

        def nothing(picture, linear=False):
            told.append((linear, float(np.median(picture))))
            return picture

        def everything(picture, linear=False):
            return np.where(picture > 900.0 / 65535.0, np.median(picture), picture)

        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "frame.fits")
            fits.PrimaryHDU(np.round(planes).astype(np.uint16)).writeto(path)
            self.assertAlmostEqual(measure_linear(nothing, path)["left, linear as stored"], 1.0)
            self.assertLess(measure_linear(everything, path)["left, linear as stored"], 0.1)
            self.assertAlmostEqual(float(np.median(load_photograph(path))), 0.15, places=2)
        self.assertEqual(told[0][0], True)
        self.assertAlmostEqual(told[0][1], 800.0 / 65535.0, places=5)

    def test_smooth_discs_have_no_texture(self):
        picture, sky = star_field(30)

        def smooth(image):
            stars = cv2.dilate((np.abs(image - sky).max(axis=2) > 0.003).astype(np.uint8),
                               np.ones((5, 5), np.uint8))  # fmt: skip
            return np.where(stars[..., None] > 0, np.float32(0.2), sky)

        rows, _ = measure_photograph(smooth, picture)
        self.assertLess(rows["texture"], 0.2)

    def test_changes_of_the_sky_are_counted_in_units_of_its_noise(self):
        picture, _ = star_field(30)
        change = 0.01 * np.random.default_rng(9).standard_normal(picture.shape).astype(np.float32)
        rows, _ = measure_photograph(lambda image: image + change, picture)
        self.assertAlmostEqual(rows["sky"], 1.0, delta=0.15)
        self.assertAlmostEqual(rows["sky, root mean square"], 1.0, delta=0.15)

    def test_a_faint_star_that_goes_is_no_change_of_the_typical_sky(self):
        picture, _ = star_field(30)

        def one_less(image):
            result = image.copy()
            result[243:247, 243:247] -= np.float32(0.2)
            return result

        rows, _ = measure_photograph(one_less, picture)
        self.assertEqual(rows["sky"], 0.0)
        # 16 of the pixels that are far from stars, fewer than 256 x 256, changed by 34.6 sigma.
        self.assertGreater(rows["sky, root mean square"], 34.6 * (16 / 256**2) ** 0.5)

    def test_the_typical_photograph_is_the_median_of_each_measure(self):
        nothing = float("nan")
        rows = [
            {"left": 0.1, "added, signed": -0.2, "texture": nothing},
            {"left": nothing, "added, signed": 0.1, "texture": nothing},
            {"left": 0.3, "added, signed": 0.3, "texture": nothing},
            {"left": 0.9, "added, signed": -0.9, "texture": nothing},
        ]
        typical = typical_measures(rows)
        self.assertEqual(typical["left"], 0.3)
        self.assertAlmostEqual(typical["added, signed"], 0.25)
        self.assertTrue(np.isnan(typical["texture"]))

    def test_only_pictures_are_found(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in ("b.png", "a.TIF", "notes.txt", "c.fits"):
                pathlib.Path(folder, name).touch()
            self.assertEqual([p.name for p in find_photographs([folder])],
                             ["a.TIF", "b.png", "c.fits"])  # fmt: skip


class Comparison(unittest.TestCase):
    def test_pairs_with_one_ratio_have_no_interval(self):
        values = [0.1, 0.5, 2.0, 9.0]
        for got, expected in zip(paired_ratio([0.8 * v for v in values], values), (0.8,) * 3):
            self.assertAlmostEqual(got, expected)

    def test_the_interval_of_a_median_holds_it_19_times_of_20(self):
        rng = np.random.default_rng(3)
        held = 0
        for _ in range(200):
            logs = math.log(0.9) + 0.2 * rng.standard_normal(100)
            _, low, high, count = paired_ratio(np.exp(logs), np.ones(100))
            self.assertEqual(count, 100)
            held += low <= 0.9 <= high
        # Of 200 draws of 0.95 the deviation is 3.
        self.assertTrue(180 <= held <= 200, held)

    def test_pairs_that_lack_a_value_do_not_count(self):
        ratio, _, _, count = paired_ratio([1.0, math.nan, 3.0], [2.0, 1.0, math.nan])
        self.assertEqual((ratio, count), (0.5, 1))
        self.assertEqual(paired_ratio([], [])[3], 0)

    def test_doing_nothing_is_compared_by_the_same_names(self):
        scene = MeasuredScene("validation", 1, 128)
        first, second = (
            dict(paired_values([scene_figures(scene, result)]))
            for result in (scene.picture, scene.truth)
        )
        self.assertEqual(list(first), list(second))
        self.assertIn("residual less offset, all", first)


class Spectra(unittest.TestCase):
    def test_half_as_strong_grain_is_half(self):
        rng = np.random.default_rng(6)
        grain = 0.01 * rng.standard_normal((256, 256, 3))
        inside = np.zeros((256, 256), bool)
        inside[64:192, 64:192] = True
        slope = np.linspace(0.2, 0.6, 256)[:, None, None]
        for factor in (0.5, 1.0, 1.5):
            picture = slope + grain * np.where(inside, factor, 1.0)[..., None]
            self.assertAlmostEqual(texture_ratio(picture, inside, inside), factor, delta=0.06)

    def test_smooth_grain_of_the_right_strength_is_told_from_fine(self):
        rng = np.random.default_rng(6)
        grain = rng.standard_normal((256, 256, 3))
        smooth = cv2.GaussianBlur(grain, (0, 0), 1.5)
        inside = np.zeros((256, 256), bool)
        inside[64:192, 64:192] = True
        picture = np.where(inside[..., None], smooth / smooth.std(), grain / grain.std())
        self.assertLess(texture_ratio(picture, inside, inside), 0.6)

    def test_where_there_is_no_footprint_there_is_no_ratio(self):
        nothing = np.zeros((64, 64), bool)
        self.assertTrue(math.isnan(texture_ratio(np.zeros((64, 64, 3)), nothing, nothing)))


class Sets(unittest.TestCase):
    def test_no_scene_serves_two_purposes(self):
        ranges = sorted((each.first, each.first + each.count) for each in SETS.values())
        for (_, end), (first, _) in zip(ranges, ranges[1:]):
            self.assertLessEqual(end, first)
        self.assertEqual((SETS["validation"].count, SETS["held-out"].count), (400, 200))

    def test_there_are_no_scenes_beyond_the_set(self):
        for number in (-1, 200):
            with self.assertRaisesRegex(ValueError, "has scenes 0 to 199"):
                SETS["held-out"].scene(number, 64)


class ClassicalWays(unittest.TestCase):
    def test_both_take_small_stars_away(self):
        picture, sky = star_field(12)
        for way in (InpaintingRemover(), OpeningRemover(15)):
            result = way(picture)
            self.assertLess(float(np.abs(result - sky)[30, 30].max()), 0.08, way.name)

    def test_doing_nothing_does_nothing_but_round(self):
        picture, _ = star_field(1)
        rounded = NothingRemover()(picture)
        self.assertLessEqual(float(np.abs(rounded - picture).max()), 0.6 / 65535.0)

    def test_pictures_survive_the_file(self):
        picture, _ = star_field(1)
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "picture.tif")
            write_picture(path, picture)
            self.assertLess(float(np.abs(read_picture(path) - picture).max()), 1e-5)


if __name__ == "__main__":
    unittest.main()
