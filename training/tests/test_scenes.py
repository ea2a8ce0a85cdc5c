"""Scenes: light adds up, seeds repeat, stars are all that differs."""

import itertools
import pathlib
import sys
import unittest
from dataclasses import replace

import torch
from torch.nn.functional import avg_pool2d

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from nebulex_training.deep_fields import deep_fields
from nebulex_training.dice import Dice
from nebulex_training.emulsion import in_emulsion
from nebulex_training.fields import convolve, power_law_field, torus_offsets
from nebulex_training.galaxies import _places, large_galaxies, small_galaxies
from nebulex_training.mix import DEEP, FORMER, HARD, USUAL, Mix
from nebulex_training.optics import _reflection, _tints, draw_optics
from nebulex_training.processing import _jpeg, shrink_pair
from nebulex_training.reflections import reflection_nebulae
from nebulex_training.saturation import draw_saturation, fading
from nebulex_training.scene_sets import SETS
from nebulex_training.scenes import compute_layers, develop
from nebulex_training.spikes import long_spikes
from nebulex_training.stamps import size_classes
from nebulex_training.stars import Surroundings, _peaks, _points, _stars, _within_reason, star_layer
from nebulex_training.stretch import ProgramTransfer, mtf, stretch_pair
from preview import draw_sheet

SIZE = 128


class Scenes(unittest.TestCase):
    def test_pictures_are_finite_and_in_range_for_many_seeds(self):
        for seed in range(40):
            dice = Dice(seed)
            layers = compute_layers(dice, 1, SIZE)
            for picture in develop(dice, layers.sky, layers.stars, layers.level):
                self.assertTrue(torch.isfinite(picture).all(), f"seed {seed}")
                self.assertGreaterEqual(float(picture.min()), 0.0)
                self.assertLessEqual(float(picture.max()), 1.0)

    def test_what_leaves_the_frame_does_not_come_back_on_the_other_side(self):
        alike = []
        for seed in range(16):
            light = compute_layers(Dice(seed), 1, SIZE).stars[0, 1]
            edges = torch.stack((light[0], light[-1]))
            alike.append(float(torch.nan_to_num(torch.corrcoef(edges))[0, 1]))
        # Neighbours on a torus would be nearly the same.
        self.assertLess(sorted(alike)[8], 0.5)

    def test_nothing_but_stars_saturates(self):
        skies = [compute_layers(Dice(seed), 2, SIZE, Mix(1.0, 1.0)).sky for seed in range(12)]
        peaks = torch.cat(skies).flatten(1).amax(dim=1)
        self.assertLess(float(peaks.max()), 1.0)
        self.assertGreater(float(peaks.max()), 0.85)

    def test_catalogued_galaxies_are_where_the_light_is(self):
        layers = compute_layers(Dice(2), 8, SIZE, HARD)
        scene, row, column, _ = layers.galaxies.T
        self.assertGreater(row.numel(), 20)
        self.assertGreaterEqual(float(torch.minimum(row, column).min()), 0.0)
        self.assertLessEqual(float(torch.maximum(row, column).max()), SIZE - 1.0)
        scene, row, column = scene.long(), row.round().long(), column.round().long()
        sky = layers.sky[:, 1]
        around = avg_pool2d(sky[:, None], 25, stride=1, padding=12, count_include_pad=False)[:, 0]
        here, beside = sky[scene, row, column], around[scene, row, column]
        # Beside galaxies it is about half; some lie on steep nebulae.
        self.assertGreater(float((here > beside).float().mean()), 0.7)

    def test_the_hard_mix_has_more_of_what_stays(self):
        usual, hard = (_places(Dice(1), 400, SIZE, mix)[0].numel() for mix in (FORMER, HARD))
        self.assertGreater(hard, 1.3 * usual)

    def test_bright_stars_come_as_often_as_the_mix_says(self):
        # The law alone has none brighter than 0.045 in most of these scenes of ten stars.
        for share in (0.0, 0.5, 1.0):
            mix = Mix(bright_stars=share)
            brightest = [_peaks(Dice(seed), 10, 1e-6, mix).max() for seed in range(400)]
            bright = (torch.stack(brightest) > 0.045).float().mean()
            self.assertAlmostEqual(float(bright), share, delta=0.06)

    def test_bright_stars_stand_in_reflection_nebulae(self):
        size = 192
        light, stars = reflection_nebulae(Dice(4), 24, size, 0.5)
        self.assertEqual(light.shape, (24, 3, size, size))
        self.assertGreaterEqual(float(light.min()), 0.0)
        with_one = light.flatten(1).amax(dim=1) > 0.0
        self.assertEqual(stars[:, 0].tolist(), torch.nonzero(with_one)[:, 0].tolist())
        self.assertTrue(8 <= len(stars) <= 16)
        self.assertTrue(((stars[:, 1:] >= 0.0) & (stars[:, 1:] <= size - 1.0)).all())
        # It is light around the star: the nearest quarter of the frame has the more of it.
        steps = torch.arange(float(size))
        nearer = 0
        for scene, row, column in stars.tolist():
            distance = torch.hypot(steps[:, None] - row, steps[None] - column)
            near = distance <= distance.flatten().quantile(0.25)
            plane = light[int(scene), 2]
            nearer += bool(plane[near].mean() > plane[~near].mean())
        self.assertGreaterEqual(nearer, 0.8 * len(stars))

    def test_a_share_of_0_draws_no_reflection_nebulae(self):
        dice = Dice(4)
        light, stars = reflection_nebulae(dice, 2, 32, 0.0)
        self.assertEqual((float(light.max()), len(stars)), (0.0, 0))
        self.assertEqual(float(dice.uniform(0.0, 1.0, 1)), float(Dice(4).uniform(0.0, 1.0, 1)))

    def test_a_star_stands_where_a_nebula_is_lit(self):
        optics = draw_optics(Dice(1), 2, SIZE, FORMER)
        lighting = torch.tensor([[1.0, 40.0, 90.0]])
        none = torch.zeros(0, 3)
        level = torch.full((2,), 0.06)
        light, without = (
            star_layer(Dice(8), 2, SIZE, optics, Surroundings(level, rows), FORMER)
            for rows in (lighting, none)
        )
        added = (light - without)[:, 1]
        self.assertEqual(divmod(int(added[1].argmax()), SIZE), (40, 90))
        self.assertGreater(float(added[1].max()), 0.2)

    def test_beacons_come_as_often_as_the_mix_says(self):
        for share in (0.0, 0.5):
            mix = Mix(beacons=share)
            peaks = torch.stack([_peaks(Dice(seed), 10, 1e-6, mix).max() for seed in range(400)])
            self.assertAlmostEqual(float((peaks > 400.0).float().mean()), share, delta=0.06)
            self.assertLessEqual(float(peaks.max()), 4000.0)

    def test_the_same_seed_gives_the_same_pictures(self):
        pictures = []
        for _ in range(2):
            dice = Dice(5)
            layers = compute_layers(dice, 2, SIZE)
            pictures.append(develop(dice, layers.sky, layers.stars, layers.level)[0])
        self.assertTrue(torch.equal(*pictures))

    def test_scenes_of_every_mix_are_finite_and_in_range(self):
        for seed, mix in itertools.product(range(12), (USUAL, HARD, DEEP)):
            dice = Dice(seed)
            layers = compute_layers(dice, 1, SIZE, mix)
            pictures = develop(dice, layers.sky, layers.stars, layers.level, mix=mix)
            self.assertFalse(torch.equal(pictures[1], torch.full_like(pictures[1], 0.2)), seed)
            for picture in pictures:
                self.assertGreaterEqual(float(picture.min()), 0.0)
                self.assertLessEqual(float(picture.max()), 1.0)

    def test_the_scenes_that_measured_the_first_networks_are_the_same_for_ever(self):
        (picture, truth), layers = SETS["former-held-out"].scene(0, 64)
        # Sums of what the code before gave that had this mix alone.
        self.assertAlmostEqual(float(picture.sum()), 5544.4, delta=0.5)
        self.assertAlmostEqual(float(truth.sum()), 5542.5, delta=0.5)
        self.assertEqual(len(layers.galaxies), 1)

    def test_without_starlight_both_pictures_are_the_same(self):
        dice = Dice(7)
        layers = compute_layers(dice, 4, SIZE)
        picture, target = develop(dice, layers.sky, torch.zeros_like(layers.sky), layers.level)
        self.assertTrue(torch.equal(picture, target))
        self.assertGreater(float(picture.std()), 0.005)

    def test_stars_only_add_light(self):
        layers = compute_layers(Dice(9), 4, SIZE)
        self.assertGreaterEqual(float(layers.stars.min()), 0.0)
        self.assertGreater(float(layers.stars.max()), 0.01)

    def test_a_galaxy_of_few_star_widths_is_no_beacon(self):
        def brightest(width):
            light = large_galaxies(Dice(3), 24, SIZE, torch.full((24,), width), Mix(1.0, 0.0))
            return float(light.max())

        # Half-light radii of bulges are 20.5 pixels at most: 2.05 of the wide stars.
        self.assertLessEqual(brightest(10.0), 400.0 * (2.05 / 10.0) ** 3)
        self.assertGreater(brightest(1.2), 100.0)

    def test_elliptical_galaxies_are_no_images_of_stars(self):
        light = large_galaxies(Dice(3), 24, SIZE, torch.full((24,), 4.0), Mix(0.0, 1.0))[:, 1]
        peak = light.flatten(1).amax(dim=1)[:, None, None]
        area = (light > 0.5 * peak).flatten(1).sum(dim=1)
        # With a half-light radius of 8 widths, index 1.6 and core 0.076 one is half as bright 0.259
        # radii from its middle; flattened to 0.4 that is an ellipse of 86 pixels, a star's is 13.
        self.assertGreaterEqual(int(area.min()), 80)

    def test_starlight_never_drowns_a_scene(self):
        flood = torch.full((2, 3, 64, 64), 3.0)
        few = torch.zeros(2, 3, 64, 64)
        few[:, :, 5, 5] = 50.0
        level = torch.tensor((0.01, 0.02))
        dimmed = _within_reason(flood, level)
        # A glow everywhere: no more than three tenths of the sky stay of it.
        self.assertAlmostEqual(float(dimmed[0].max()), 0.003, places=6)
        self.assertAlmostEqual(float(dimmed[1].max()), 0.006, places=6)
        self.assertTrue(torch.equal(_within_reason(few, level), few))

    def test_a_scene_that_is_not_finite_becomes_the_same_grey_twice(self):
        dice = Dice(11)
        layers = compute_layers(dice, 2, SIZE)
        layers.sky[0, :, 5, 5] = float("nan")
        picture, target = develop(dice, layers.sky, layers.stars, layers.level)
        self.assertTrue(torch.isfinite(picture).all() and torch.isfinite(target).all())
        self.assertTrue(torch.equal(picture[0], target[0]))
        self.assertFalse(torch.equal(picture[1], target[1]))

    def test_a_flat_scene_without_noise_survives_the_stretch(self):
        flat = torch.full((2, 3, 64, 64), 0.01)
        for picture in stretch_pair(Dice(1), flat, flat, flat):
            self.assertTrue(torch.isfinite(picture).all())

    def test_pictures_with_stars_are_mostly_as_bright_as_those_without(self):
        darker = []
        for seed in range(12):
            dice = Dice(100 + seed)
            layers = compute_layers(dice, 1, SIZE)
            picture, target = develop(dice, layers.sky, layers.stars, layers.level)
            darker.append(float((picture < target - 0.02).float().mean()))
        # Only sharpening's rings and the losses of JPEG make a pixel darker.
        self.assertLess(sum(darker) / len(darker), 0.02)


class Streams(unittest.TestCase):
    def test_the_host_draws_other_numbers_than_the_device(self):
        device = [float(Dice(seed).uniform(0.0, 1.0, 1)) for seed in range(400)]
        host = [Dice(seed).one(0.0, 1.0) for seed in range(400)]
        correlation = torch.corrcoef(torch.tensor((device, host)))[0, 1]
        # Of 400 independent pairs it has a deviation of 0.05.
        self.assertLess(abs(float(correlation)), 0.2)

    def test_the_host_can_share_the_seed(self):
        dice = Dice(5, host_seed=5)
        self.assertAlmostEqual(float(dice.uniform(0.0, 1.0, 1)), dice.one(0.0, 1.0), places=6)

    def test_lattices_of_microlenses_come_with_any_seeing(self):
        widths = []
        for seed in range(1500):
            dice = Dice(seed)
            width = float(dice.log_uniform(1.2, 7.5, 1))
            if dice.happens(0.06):
                widths.append(width)
        self.assertGreater(max(widths), 5.0)

    def test_field_galaxies_come_in_any_number_with_wide_stars(self):
        # The seeing of 7 to 11 pixels is that of one scene in seventeen.
        counts = set()
        for seed in range(600):
            dice = Dice(seed)
            if float(dice.uniform(0.0, 1.0, 1)) < 0.06:
                counts.add(int(dice.one_log(2.0, 30.0)))
        self.assertGreater(len(counts), 8)


class Development(unittest.TestCase):
    """What a Mix says of pictures, each alone."""

    def setUp(self):
        self.dice = Dice(3)
        self.sky = 0.02 * (1.0 + 0.3 * self.dice.uniform(0.0, 1.0, 12, 3, 64, 64))
        self.level = torch.full((12,), 0.02)
        self.stars = torch.zeros_like(self.sky)
        self.stars[:, :, 30:34, 40:44] = 60.0

    def developed(self, stars, **shares):
        mix = replace(FORMER, **shares)
        return develop(Dice(7), self.sky, stars, self.level, mix=mix)

    def test_an_even_floor_of_starlight_counts_as_sky(self):
        pedestal = torch.full_like(self.stars, 0.006)
        picture, target = self.developed(pedestal, even_light_stays=True)
        self.assertLess(float((picture - target).abs().max()), 1e-4)
        picture, target = self.developed(pedestal)
        self.assertGreater(float((picture - target).mean()), 0.005)

    def test_the_stars_on_an_even_floor_go(self):
        picture, target = self.developed(self.stars + 0.006, even_light_stays=True)
        # Sharpening and JPEG reach some pixels around a star.
        self.assertGreater(float((picture - target)[..., 30:34, 40:44].mean()), 0.2)
        self.assertLess(float((picture - target)[..., :12, :20].abs().max()), 1e-4)

    def test_a_low_white_is_a_ceiling_below_1(self):
        light = torch.full((500, 3, 2, 2), 30.0)
        recorded = draw_saturation(Dice(1), 500, Mix(low_whites=0.5)).on(light)[:, 0, 0, 0]
        self.assertAlmostEqual(float((recorded < 1.0).float().mean()), 0.5, delta=0.07)
        self.assertGreaterEqual(float(recorded.min()), 0.25)
        self.assertTrue(bool((recorded == 0.25).any()))
        everywhere = draw_saturation(Dice(1), 500, FORMER).on(light)
        self.assertTrue(torch.equal(everywhere, torch.ones_like(light)))

    def test_a_gradual_saturation_tells_stars_above_it_apart(self):
        light = torch.tensor((0.01, 0.5, 1.0, 3.0))[None, None, None].expand(50, 3, 1, 4)
        recorded = draw_saturation(Dice(1), 50, Mix(rounded_whites=1.0)).on(light)
        self.assertTrue(bool((recorded[..., 1:] > recorded[..., :-1]).all()))
        self.assertTrue(bool((recorded < 1.0).all()))
        # x / (1 + x^p)^(1/p) at x = 1 is 2^(-1/p), p from 1 to 6.
        self.assertGreaterEqual(float(recorded[..., 2].min()), 0.5 - 1e-6)
        self.assertLessEqual(float(recorded[..., 2].max()), 2.0 ** (-1.0 / 6.0) + 1e-6)

    def test_finished_pictures_fade_to_three_tenths_at_most(self):
        factors = fading(Dice(2), 500, 0.4)
        self.assertAlmostEqual(float((factors < 1.0).float().mean()), 0.4, delta=0.07)
        self.assertGreaterEqual(float(factors.min()), 0.3)

    def test_bright_goals_make_bright_skies(self):
        flat = 0.01 + 0.001 * Dice(2).normal(200, 3, 16, 16)

        def medians(share):
            picture, _ = stretch_pair(Dice(5), flat, flat, flat, share)
            return picture.flatten(1).median(dim=1).values

        self.assertLess(float(medians(0.0).max()), 0.48)
        bright = medians(1.0)
        self.assertGreater(float(bright.min()), 0.3)
        self.assertGreater(float(bright.max()), 0.75)

    def test_a_stretch_by_the_whole_scene_leaves_its_bright_parts_bright(self):
        bright, dark = (torch.full((8, 3, 32, 32), light) for light in (0.2, 0.01))
        noise = 0.0005 * Dice(1).normal(8, 3, 32, 32)
        by_itself, _ = stretch_pair(Dice(2), bright + noise, bright, bright + noise)
        by_all, _ = stretch_pair(Dice(2), bright + noise, bright, dark + noise)
        lifted = (by_all - by_itself).mean(dim=(1, 2, 3))
        self.assertGreater(float(lifted.min()), 0.1)

    def test_linear_data_is_stretched_as_the_program_does_it(self):
        # Median 0.1 and normalised deviation 0.01: shadows 0.072, and 0.1 becomes 0.25.
        deviation = 0.01 / 1.4826
        values = torch.tensor((0.1 - 2 * deviation, 0.1 - deviation, 0.1, 0.1 + deviation, 0.9))
        image = values[None, None, None].expand(1, 3, 1, 5)
        transfer = ProgramTransfer(image)
        self.assertAlmostEqual(float(transfer.shadows[0, 0]), 0.072, places=5)
        values = torch.tensor((0.0, 0.072, 0.1, 1.0))
        result = transfer.on(values[None, None, None].expand(1, 3, 1, 4))
        midtones = 0.75 * 0.028 / (0.25 - 2 * 0.25 * 0.028 + 0.028)  # what takes 0.028 to 0.25
        white = (midtones - 1.0) * 0.928 / ((2.0 * midtones - 1.0) * 0.928 - midtones)
        for value, expected in zip(result[0, 0, 0].tolist(), (0.0, 0.0, 0.25, white)):
            self.assertAlmostEqual(value, expected, places=4)

    def test_a_share_of_the_pictures_goes_through_the_programs_transfer(self):
        picture, target = self.developed(self.stars, program_transfers=1.0)
        median = picture.flatten(2).median(dim=2).values
        self.assertTrue(torch.allclose(median, torch.tensor(0.25), atol=0.02))
        self.assertTrue(bool((target <= picture + 1e-6).all()))


class StarsInPlaces(unittest.TestCase):
    def test_dust_dims_the_stars_behind_it(self):
        optics = draw_optics(Dice(1), 2, SIZE, FORMER)
        level, none = torch.full((2,), 0.001), torch.zeros(0, 3)
        dark, clear = torch.full((2, 3, SIZE, SIZE), 1e-3), torch.ones(2, 3, SIZE, SIZE)
        mix = replace(FORMER, dimmed_stars=1.0)
        shares = []
        for seed in range(6):
            dimmed, full = (
                star_layer(Dice(seed), 2, SIZE, optics, Surroundings(level, none, dust=dust), mix)
                for dust in (dark, clear)
            )
            sums = [light.flatten(1).sum(dim=1).clamp(min=1e-9) for light in (dimmed, full)]
            shares += (sums[0] / sums[1]).tolist()
        # 40 to 100 % of the stars are behind it, the brightest of which decide.
        self.assertLess(sorted(shares)[4], 0.7)

    def test_few_stars_stand_in_deep_fields(self):
        optics = draw_optics(Dice(1), 1, SIZE, FORMER)
        counts = {True: 0, False: 0}
        for seed, few in itertools.product(range(60), (True, False)):
            around = Surroundings(torch.full((1,), 0.01), torch.zeros(0, 3), torch.tensor([few]))
            counts[few] += _stars(Dice(seed), 1, SIZE, optics.width, around, FORMER)[0].numel()
        self.assertLess(10 * counts[True], counts[False])

    def test_spikes_reach_the_edges_of_the_frame(self):
        stars = (torch.tensor([0]), torch.tensor([10.0]), torch.tensor([12.0]),
                 torch.tensor([300.0]), torch.ones(1, 3))  # fmt: skip
        light = long_spikes(Dice(4), stars, 1, 256, torch.tensor([2.0]), 1.0)
        ends = torch.cat((light[0, 1, 255], light[0, 1, :, 255]))
        self.assertGreater(float(ends.max()), 0.001)
        # No jump at half a frame, where a transform would cut them off: along the brightest line
        # what follows is never much less than what is before.
        steps = torch.arange(256.0)
        distance = torch.hypot(steps[:, None] - 10.0, steps[None] - 12.0)
        rings = [
            float(light[0, 1][(distance > low) & (distance <= low + 4)].max())
            for low in range(20, 240, 4)
        ]
        self.assertGreater(min(b / a for a, b in zip(rings, rings[1:])), 0.5)

    def test_faint_stars_have_no_long_spikes(self):
        stars = (torch.tensor([0]), torch.tensor([10.0]), torch.tensor([12.0]),
                 torch.tensor([1.0]), torch.ones(1, 3))  # fmt: skip
        light = long_spikes(Dice(4), stars, 1, 64, torch.tensor([2.0]), 1.0)
        self.assertEqual(float(light.max()), 0.0)

    def test_an_emulsion_makes_bright_stars_larger_and_leaves_faint_ones(self):
        light = torch.zeros(1, 3, 128, 128)
        light[..., 30, 30], light[..., 90, 90] = 0.9, 30.0
        spread = in_emulsion(Dice(1), light, 1.0)
        faint = (..., slice(26, 34), slice(26, 34))
        self.assertTrue(torch.allclose(spread[faint], light[faint], atol=0.02))
        self.assertGreater(float((spread - light)[..., 90, 91].min()), 0.01)
        self.assertTrue(torch.equal(in_emulsion(Dice(1), light, 0.0), light))


class DeepFields(unittest.TestCase):
    def test_they_hold_many_galaxies_of_all_sizes(self):
        light, rows, deep = deep_fields(Dice(2), 12, 512, torch.full((12,), 2.0), 1.0)
        self.assertTrue(bool(deep.all()))
        self.assertTrue(torch.isfinite(light).all())
        self.assertGreaterEqual(float(light.min()), 0.0)
        counts = torch.bincount(rows[:, 0].long(), minlength=12)
        self.assertGreater(int(counts.min()), 5)
        self.assertGreater(int(counts.max()), 150)
        self.assertGreater(int((rows[:, 3] > 10.0).sum()), 10)
        self.assertTrue(bool(((rows[:, 1:3] >= 0.0) & (rows[:, 1:3] <= 511.0)).all()))

    def test_galaxies_are_where_the_catalogue_says(self):
        light, rows, _ = deep_fields(Dice(5), 4, 256, torch.full((4,), 2.0), 1.0)
        around = avg_pool2d(light[:, 1:2], 33, stride=1, padding=16, count_include_pad=False)[:, 0]
        scene, row, column = (rows[:, axis].round().long() for axis in range(3))
        above = light[scene, 1, row, column] > around[scene, row, column]
        self.assertGreater(float(above.float().mean()), 0.85)

    def test_there_are_none_among_wide_stars_and_with_a_share_of_0(self):
        wide = torch.full((4,), 8.0)
        for light, rows, deep in (deep_fields(Dice(2), 4, 64, wide, 1.0),
                                  deep_fields(Dice(2), 4, 64, wide / 4.0, 0.0)):  # fmt: skip
            self.assertEqual((float(light.max()), len(rows), bool(deep.any())), (0.0, 0, False))

    def test_a_large_galaxy_in_wide_seeing_is_not_cut_off(self):
        def corner(whole):
            mix = replace(FORMER, whole_galaxies=whole)
            _, rows = small_galaxies(Dice(2), 30, 256, torch.full((30,), 11.0), mix)
            return float(rows[:, 3].max())

        # Four star widths; a square of 64 pixels ends at a sixth of that.
        self.assertAlmostEqual(corner(False), 64.0 / 6.0, places=4)
        self.assertGreater(corner(True), 20.0)


class Stamps(unittest.TestCase):
    def test_each_galaxy_goes_into_one_square_that_holds_it(self):
        radius = torch.tensor((0.5, 3.2, 3.3, 6.4, 12.0, 99.0))
        classes = {side: chosen.tolist() for side, chosen in size_classes(radius, (32, 64, 96), 10.0)}
        self.assertEqual(classes, {
            32: [True, True, False, False, False, False],
            64: [False, False, True, True, False, False],
            96: [False, False, False, False, True, True],
        })  # fmt: skip
        self.assertEqual([side for side, _ in size_classes(radius[:1], (32, 64), 10.0)], [32])


class Preview(unittest.TestCase):
    def test_a_sheet_has_three_pictures_of_each_scene_and_black_ones_to_fill_it(self):
        sheet = draw_sheet(seed=3, count=3, size=64)
        self.assertEqual(sheet.shape, (2 * 64, 2 * 3 * 64, 3))
        self.assertEqual(int(sheet[64:, 3 * 64 :].max()), 0)
        with_stars, without, difference = (
            sheet[:64, at : at + 64].astype(int) for at in (0, 64, 128)
        )
        # Each is rounded to a byte of its own.
        self.assertLessEqual(abs(abs(with_stars - without) - difference).max(), 1)

    def test_a_sheet_of_the_hard_mix_is_another_one(self):
        usual, hard = (draw_sheet(3, 1, 64, mix) for mix in (FORMER, HARD))
        self.assertTrue((usual != hard).any())


class Optics(unittest.TestCase):
    def test_a_point_keeps_its_light(self):
        optics = draw_optics(Dice(3), 6, SIZE, FORMER)
        totals = optics.transfer[:, :, 0, 0].real
        self.assertTrue(torch.allclose(totals, torch.ones_like(totals), atol=1e-3))

    def test_halos_and_small_reflections_never_take_more_light_than_there_is(self):
        mix = Mix(small_reflections=1.0, coloured_halos=1.0)
        optics = draw_optics(Dice(3), 60, SIZE, mix)
        totals = optics.transfer[:, :, 0, 0].real
        self.assertTrue(torch.allclose(totals, torch.ones_like(totals), atol=1e-3))
        spread = torch.fft.irfft2(optics.transfer, s=(SIZE, SIZE))
        self.assertGreater(float((spread.amin(dim=(2, 3)) / optics.peak).min()), -1e-5)

    def test_halos_have_a_colour_as_often_as_the_mix_says(self):
        for share in (0.0, 0.3):
            tints = _tints(Dice(2), 600, share)
            self.assertTrue(torch.equal(tints.amax(dim=1), torch.ones(600, 1, 1)))
            coloured = (tints.amin(dim=1) < 1.0).float().mean()
            self.assertAlmostEqual(float(coloured), share, delta=0.06)

    def test_small_reflections_lie_close_to_the_star(self):
        rows, columns = torus_offsets(SIZE, "cpu")
        disc = _reflection(Dice(6), 40, rows, columns, 3.0, 14.0)
        distance = torch.hypot(rows, columns).expand(SIZE, SIZE)
        # A radius of 14, its soft edge, and three deviations of 1.02 pixels both ways.
        close = disc[..., distance <= 14.0 + 15.0 + 4.4].sum(dim=2)
        self.assertTrue((close > 0.9 * disc.flatten(2).sum(dim=2)).all())

    def test_a_star_between_pixels_has_its_light_and_its_place(self):
        points = _points(
            torch.tensor([0]), torch.tensor([20.25]), torch.tensor([30.6]),
            torch.tensor([[2.0, 4.0, 8.0]]), 1, 64,
        )[0]  # fmt: skip
        steps = torch.arange(64.0)
        for plane, light in zip(points, (2.0, 4.0, 8.0)):
            self.assertAlmostEqual(float(plane.sum()), light, places=4)
            self.assertAlmostEqual(float((plane.sum(1) * steps).sum()) / light, 20.25, places=4)
            self.assertAlmostEqual(float((plane.sum(0) * steps).sum()) / light, 30.6, places=4)

    def test_no_optics_ring(self):
        for seed in range(40):
            optics = draw_optics(Dice(seed), 1, SIZE, FORMER)
            spread = torch.fft.irfft2(optics.transfer, s=(SIZE, SIZE))
            self.assertGreater(float(spread.min() / spread.max()), -1e-5, seed)

    def test_a_transfer_of_one_changes_nothing(self):
        image = Dice(4).uniform(0.0, 1.0, 1, 3, 32, 32)
        same = convolve(image, torch.ones(1, 3, 32, 17, dtype=torch.complex64))
        self.assertTrue(torch.allclose(image, same, atol=1e-5))


class Steps(unittest.TestCase):
    def test_fields_have_mean_0_and_deviation_1(self):
        field = power_law_field(Dice(2), torch.tensor([2.5, 4.0]), 64)
        for plane in field:
            self.assertAlmostEqual(float(plane.mean()), 0.0, places=3)
            self.assertAlmostEqual(float(plane.std()), 1.0, places=3)

    def test_midtones_function_has_its_three_fixed_values(self):
        values = mtf(torch.tensor([0.0, 0.2, 1.0]), torch.tensor(0.2))
        self.assertTrue(torch.allclose(values, torch.tensor([0.0, 0.5, 1.0])))

    def test_shrinking_halves_both_pictures_alike(self):
        picture = Dice(4).uniform(0.0, 1.0, 3, 3, 64, 64)
        for seed in range(8):
            small, same = shrink_pair(Dice(seed), picture, picture)
            self.assertEqual(small.shape, (3, 3, 32, 32))
            self.assertTrue(torch.equal(small, same))
        flat, _ = shrink_pair(Dice(0), torch.full((1, 3, 64, 64), 0.3), picture[:1])
        self.assertTrue(torch.allclose(flat, torch.tensor(0.3), atol=1e-5))

    def test_jpeg_leaves_a_grey_picture_grey(self):
        grey = torch.full((40, 3, 32, 32), 128.0 / 255.0)
        coded = _jpeg(Dice(1), grey)
        self.assertTrue(torch.allclose(coded, grey, atol=0.6 / 255.0))

    def test_jpeg_loses_little_but_something(self):
        pictures = Dice(1).uniform(0.3, 0.7, 40, 3, 32, 32)
        coded = _jpeg(Dice(1), pictures)
        changed = (coded - pictures).flatten(1).abs().mean(dim=1)
        self.assertGreater(float(changed.max()), 0.001)
        self.assertLess(float(changed.max()), 0.15)
        self.assertEqual(float(changed.min()), 0.0)


if __name__ == "__main__":
    unittest.main()
