"""Measures on computed scenes that no training has seen, where the truth is known."""

import math

import cv2
import numpy as np
import torch

from ..measures import Sums, star_pixels
from ..pool import HELD_OUT_SCENES, fixed_scenes

_PEAKS = (("faint stars", 0.0, 0.15), ("middle stars", 0.15, 0.5), ("bright stars", 0.5, 9.0))
_WIDTHS = (("sharp", 0.0, 2.2), ("usual", 2.2, 4.5), ("wide", 4.5, 99.0))


class HeldOutScene:
    """One scene: picture and truth as rows x columns x 3, its star width and its galaxies."""

    def __init__(self, number, size):
        ((picture, truth), layers) = fixed_scenes(HELD_OUT_SCENES + number, 1, size)[0]
        self.picture = picture[0].permute(1, 2, 0).numpy()
        self.truth = truth[0].permute(1, 2, 0).numpy()
        self.width = float(layers.width[0])
        self.galaxies = layers.galaxies[:, 1:].numpy()
        self.star_classes = _star_classes(self.picture, self.truth)


def _star_classes(picture, truth):
    """rows x columns: 0 without a star, else 1 + the class of the brightness of what is there."""
    change = np.abs(picture - truth).max(axis=2)
    stars = (change > 0.02).astype(np.uint8)
    count, labels = cv2.connectedComponents(stars)
    peaks = np.zeros(count)
    np.maximum.at(peaks, labels.ravel(), change.ravel())
    edges = [low for _, low, _ in _PEAKS[1:]]
    classes = 1 + np.digitize(peaks[labels], edges)
    return np.where(stars > 0, classes, 0)


class ComputedMeasures:
    """Gathers the measures of one way of taking stars out."""

    def __init__(self):
        self._all = Sums()
        self._by_width = {name: Sums() for name, _, _ in _WIDTHS}
        self._by_peak = {name: [0.0, 0.0] for name, _, _ in _PEAKS}
        self._kept = self._lost = self._galaxies = 0

    def add(self, scene, result):
        as_planes = [torch.from_numpy(np.ascontiguousarray(x.transpose(2, 0, 1))) for x in
                     (result, scene.picture, scene.truth)]  # fmt: skip
        self._all.add(*as_planes)
        for name, low, high in _WIDTHS:
            if low <= scene.width < high:
                self._by_width[name].add(*as_planes)
        left = np.abs(result - scene.truth).sum(axis=2)
        light = np.abs(scene.picture - scene.truth).sum(axis=2)
        for index, (name, _, _) in enumerate(_PEAKS):
            chosen = scene.star_classes == index + 1
            self._by_peak[name][0] += float(left[chosen].sum())
            self._by_peak[name][1] += float(light[chosen].sum())
        for ratio in _galaxy_ratios(scene, result):
            self._galaxies += 1
            self._kept += abs(ratio - 1.0) <= 0.02
            self._lost += ratio < 0.98

    def rows(self):
        """Name and value of each measure."""
        yield "residual", self._all.residual
        yield "residual, typical scene", self._all.typical_residual
        yield "PSNR, star pixels", self._all.star_psnr
        yield "PSNR, other pixels", self._all.other_psnr
        yield "PSNR, other pixels, typical scene", self._all.typical_other_psnr
        yield "texture", self._all.texture
        for name, (left, light) in self._by_peak.items():
            yield f"residual, {name}", left / light if light else math.nan
        for name, sums in self._by_width.items():
            yield f"residual, {name} stars", sums.residual
            yield f"PSNR, {name} stars", sums.star_psnr
        count = self._galaxies
        yield f"galaxies kept of {count}", self._kept / count if count else math.nan
        yield "galaxies that lost light", self._lost / count if count else math.nan


def _galaxy_ratios(scene, result):
    """Light of each measurable galaxy in the result, over that in the truth.

    Left out are those at the edge, those too faint for their noise, and those with a star.
    """
    height, width = scene.truth.shape[:2]
    planes = [x.mean(axis=2) for x in (scene.truth, result, scene.picture)]
    for row, column, radius in scene.galaxies:
        reach = 1.5 * radius + 0.7 * scene.width
        outer = 1.6 * reach + 3.0
        low_row, low_column = int(row - outer), int(column - outer)
        high_row, high_column = int(row + outer) + 2, int(column + outer) + 2
        if low_row < 0 or low_column < 0 or high_row > height or high_column > width:
            continue
        rows, columns = np.mgrid[low_row:high_row, low_column:high_column]
        distance = np.hypot(rows - row, columns - column)
        inside, around = distance <= reach, (distance > 1.2 * reach) & (distance <= outer)
        truth, seen, picture = (x[low_row:high_row, low_column:high_column] for x in planes)
        noise = 1.4826 * np.median(np.abs(truth[around] - np.median(truth[around])))
        light = (truth[inside] - np.median(truth[around])).sum()
        if light < 30.0 * (noise + 5e-4) * math.sqrt(inside.sum()):
            continue
        if np.abs(picture - truth)[inside].sum() > 0.05 * light:
            continue
        # The background of the truth serves for both: a hole around the galaxy counts as well.
        yield (seen[inside] - np.median(truth[around])).sum() / light


def star_error(scene, result):
    """Sum of squared differences over star pixels, for choosing the best opening."""
    return float(_squares(scene, result)[_stars(scene)].sum())


def other_error(scene, result):
    """rows x columns: squared differences over the pixels that are no star's, 0 on the others."""
    return np.where(_stars(scene)[..., None], 0.0, _squares(scene, result)).sum(axis=2)


def _squares(scene, result):
    return (result - scene.truth) ** 2


def _stars(scene):
    planes = [torch.from_numpy(np.ascontiguousarray(x.transpose(2, 0, 1))) for x in
              (scene.picture, scene.truth)]  # fmt: skip
    return star_pixels(*planes).numpy()
