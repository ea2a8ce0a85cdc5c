"""Figures of merit of pictures whose truth is known. Pictures are 3 x rows x columns tensors."""

import math

import torch

from .losses import fine_detail

STAR_CHANGE = 0.02  # a pixel that a star changed by more counts as the star's


def star_pixels(picture, truth):
    """rows x columns: where a star changed a channel by more than STAR_CHANGE."""
    return (picture - truth).abs().amax(dim=0) > STAR_CHANGE


class Sums:
    """Sums over pictures, so that each pixel of each picture counts the same."""

    def __init__(self):
        self._left = self._light = 0.0
        self._star_squares = self._other_squares = 0.0
        self._star_count = self._other_count = 0
        self._textures, self._residuals, self._other_psnrs = [], [], []

    def add(self, result, picture, truth):
        stars = star_pixels(picture, truth)
        error = (result - truth).double()
        left = float(error.abs()[:, stars].sum())
        light = float((picture - truth).abs()[:, stars].double().sum())
        self._left, self._light = self._left + left, self._light + light
        if light > 0.0:
            self._residuals.append(left / light)
        star_count, other_count = 3 * int(stars.sum()), 3 * int((~stars).sum())
        other_squares = float((error[:, ~stars] ** 2).sum())
        self._star_squares += float((error[:, stars] ** 2).sum())
        self._other_squares += other_squares
        self._star_count += star_count
        self._other_count += other_count
        if other_count:
            self._other_psnrs.append(_psnr(other_squares, other_count))
        if int(stars.sum()) > 200:
            strength = [float(fine_detail(x[None])[0][:, stars].std()) for x in (result, truth)]
            if strength[1] > 1e-4:
                self._textures.append(strength[0] / strength[1])

    @property
    def residual(self):
        """Sum of |result - truth| over that of |picture - truth|, over star pixels."""
        return self._left / self._light if self._light > 0.0 else math.nan

    @property
    def typical_residual(self):
        """Median over pictures of the residual, where each counts the same, bright or not."""
        return _median(self._residuals)

    @property
    def star_psnr(self):
        return _psnr(self._star_squares, self._star_count)

    @property
    def other_psnr(self):
        return _psnr(self._other_squares, self._other_count)

    @property
    def typical_other_psnr(self):
        """Median over pictures, where one wrong galaxy does not speak for all."""
        return _median(self._other_psnrs)

    @property
    def texture(self):
        """Median over pictures: fine detail in footprints, over that of the truth there."""
        return _median(self._textures)


def _median(values):
    return float(torch.tensor(values).median()) if values else math.nan


def _psnr(squares, count):
    if count == 0:
        return math.nan
    if squares == 0.0:
        return math.inf
    return -10.0 * math.log10(squares / count)
