"""A pool of computed scenes, some of them replaced at every step, and batches drawn from it."""

import torch

from .dice import Dice
from .mix import HARD
from .processing import shrink_pair
from .scenes import coarse_sample, compute_layers, develop

_SEED_STRIDE = 100_000_000
_SHRUNK = 0.15  # share of the batches
_WIDE = 0.5  # share of the batches, of few wide pictures: those show a large halo whole
# Pixels of seeing before. In a picture of smaller stars a galaxy of two or three star widths is
# the image of a star.
_LEAST_SHRUNK = 2.8


def scene_dice(seed, number, device):
    """The dice of one numbered scene."""
    return Dice(seed * _SEED_STRIDE + number, device)


class ScenePool:
    """Layers of the latest scenes of an endless, numbered series.

    The scenes that are in the pool depend on nothing but the seed and the number of the next one,
    so that a resumed training goes on with the same ones.
    """

    def __init__(self, seed, device, count, size, next_number=0):
        self._seed, self._device, self._size = seed, device, size
        # A GPU is busy only when it computes several scenes at a time.
        self._group = 16 if torch.device(device).type == "cuda" else 1
        count = -(-count // self._group) * self._group
        self._entries = [None] * count
        self.next_number = max(0, next_number - count)
        self._owed = 0
        self.refresh(count)

    def refresh(self, count):
        """Replaces the count oldest scenes; on a GPU in whole groups, as soon as one is full."""
        self._owed += count
        while self._owed >= self._group:
            dice = scene_dice(self._seed, self.next_number, self._device)
            layers = compute_layers(dice, self._group, self._size, HARD)
            for scene in range(self._group):
                self._put(layers, scene)
            self._owed -= self._group

    def _put(self, layers, scene):
        sky, stars = layers.sky[scene], layers.stars[scene]
        place = self.next_number % len(self._entries)
        self.next_number += 1
        # One scene in many thousands cannot be computed; its place keeps what it had.
        if bool(torch.isfinite(sky).all() & torch.isfinite(stars).all()):
            width = float(layers.width[scene])
            self._entries[place] = (sky, stars, layers.level[scene], width)

    def draw_batch(self, dice, batch, patch):
        """Pictures with and without stars, batch x 3 x patch x patch.

        Where the scenes have twice the size, some are developed at that and shrunk, and some
        batches are a quarter as many pictures of twice the patch.
        """
        filled = [entry for entry in self._entries if entry is not None]
        if 2 * patch <= self._size and dice.happens(_SHRUNK):
            wide = [entry for entry in filled if entry[3] >= _LEAST_SHRUNK]
            if wide:
                return shrink_pair(dice, *_develop_some(dice, wide, batch, 2 * patch))
        if 2 * patch <= self._size and batch % 4 == 0 and dice.happens(_WIDE):
            batch, patch = batch // 4, 2 * patch
        return _develop_some(dice, filled, batch, patch)

    def draw_whole(self, dice, batch, tile):
        """As many pictures of tiles as the program takes them, with all that can be in one."""
        filled = [entry for entry in self._entries if entry is not None]
        return _develop_some(dice, filled, batch, tile)


def _develop_some(dice, entries, batch, patch):
    cut = [_cut(dice, *entries[dice.whole(0, len(entries))][:3], patch) for _ in range(batch)]
    sky, stars, level, *whole = (torch.stack(parts) for parts in zip(*cut))
    return develop(dice, sky, stars, level, mix=HARD, whole=whole)


def _cut(dice, sky, stars, level, patch):
    """A part of a scene, turned and mirrored, its level and coarse samples of all of the scene."""
    room = sky.shape[-1] - patch + 1
    row, column = dice.whole(0, room), dice.whole(0, room)
    both = torch.stack((sky, stars))[..., row : row + patch, column : column + patch]
    both = torch.rot90(both, dice.whole(0, 4), dims=(-2, -1))
    if dice.happens(0.5):
        both = both.flip(-1)
    return both[0], both[1], level, coarse_sample(sky), coarse_sample(stars)
