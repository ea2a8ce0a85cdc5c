"""The measures, on ways of taking stars out whose figures are known beforehand."""

import pathlib
import sys
import tempfile
import unittest

import cv2
import numpy as np

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from nebulex_training.evaluation.computed import (
    ComputedMeasures,
    HeldOutScene,
    other_error,
    star_error,
)
from nebulex_training.evaluation.photographs import (
    find_photographs,
    measure_photograph,
    typical_measures,
)
from nebulex_training.evaluation.program import (
    InpaintingRemover,
    OpeningRemover,
    read_picture,
    write_picture,
)
from nebulex_training.evaluation.worst import WorstScenes


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
        cls.scenes = [HeldOutScene(number, 256) for number in range(16)]

    def measured(self, way):
        measures = ComputedMeasures()
        for scene in self.scenes:
            measures.add(scene, way(scene))
        return dict(measures.rows())

    def test_the_truth_itself_is_perfect(self):
        rows = self.measured(lambda scene: scene.truth)
        self.assertEqual(rows["residual"], 0.0)
        self.assertEqual(rows["PSNR, other pixels"], float("inf"))
        self.assertAlmostEqual(rows["texture"], 1.0)

    def test_doing_nothing_leaves_all_the_light(self):
        rows = self.measured(lambda scene: scene.picture)
        self.assertAlmostEqual(rows["residual"], 1.0)
        self.assertAlmostEqual(rows["residual, bright stars"], 1.0)
        self.assertLess(rows["PSNR, star pixels"], 30.0)

    def test_galaxies_count_as_kept_within_two_percent_only(self):
        def shares(factor):
            rows = self.measured(lambda scene: scene.truth * np.float32(factor))
            name = next(name for name in rows if name.startswith("galaxies kept"))
            self.assertNotEqual(name, "galaxies kept of 0")
            return rows[name], rows["galaxies that lost light"]

        self.assertEqual(shares(1.0), (1.0, 0.0))
        self.assertEqual(shares(0.8), (0.0, 1.0))
        self.assertEqual(shares(1.2), (0.0, 0.0))  # brighter, as with a star that stays on it

    def test_the_same_scene_is_computed_again(self):
        again = HeldOutScene(2, 256)
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
            scene = HeldOutScene(number, 512)
            scene.truth = scene.picture
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
        self.assertAlmostEqual(rows["added, absolute"], 1.0, places=4)
        self.assertAlmostEqual(rows["added, signed"], 1.0, places=4)
        self.assertEqual(rows["sky"], 0.0)
        self.assertEqual(rows["sky, root mean square"], 0.0)

    def test_a_perfect_way_leaves_none_and_all_of_the_texture(self):
        picture, sky = star_field(30)
        rows, _ = measure_photograph(lambda image: sky.copy(), picture)
        self.assertEqual(rows["left"], 0.0)
        self.assertEqual(rows["added, absolute"], 0.0)
        self.assertAlmostEqual(rows["texture"], 1.0, delta=0.1)

    def test_what_happens_far_from_added_stars_is_not_theirs(self):
        picture, _ = star_field(30)

        def restless(image):
            untouched = np.abs(image - picture).max(axis=2, keepdims=True) < 3e-7
            return image + untouched * np.float32(not np.array_equal(image, picture))

        rows, _ = measure_photograph(restless, picture)
        self.assertAlmostEqual(rows["added, absolute"], 1.0, places=3)

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


class ClassicalWays(unittest.TestCase):
    def test_both_take_small_stars_away(self):
        picture, sky = star_field(12)
        for way in (InpaintingRemover(), OpeningRemover(15)):
            result = way(picture)
            self.assertLess(float(np.abs(result - sky)[30, 30].max()), 0.08, way.name)

    def test_pictures_survive_the_file(self):
        picture, _ = star_field(1)
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "picture.tif")
            write_picture(path, picture)
            self.assertLess(float(np.abs(read_picture(path) - picture).max()), 1e-5)


if __name__ == "__main__":
    unittest.main()
