"""Texture: radial power spectra inside and outside of footprints."""

import math

import cv2
import numpy as np
from numpy.lib.stride_tricks import sliding_window_view

_SIDE = 8  # pixels of the squares that a spectrum is taken of
_BANDS = ((0.2, 0.35), (0.35, 0.5))  # cycles a pixel
_FEWEST, _MOST = 20, 4000  # squares; fewer tell nothing
_INSIDE = 0.75  # share of a square, counted by its window's power, that lies in footprints
_LEAST = 1e-12  # power of what has no grain at all
# A window of Hann without the zeros at its ends.
_WINDOW = np.outer(*(np.hanning(_SIDE + 2)[1:-1],) * 2)


def texture_ratio(picture, footprints, excluded):
    """Root of the power inside of footprints over that outside: the geometric mean of the bands.

    picture: rows x columns x 3; footprints, excluded: rows x columns booleans; squares count as
    outside where nothing is excluded. NaN where there are too few of either.
    """
    squares = sliding_window_view(picture.mean(axis=2, dtype=np.float64), (_SIDE, _SIDE))
    inside = _shares(footprints, _WINDOW**2) >= _INSIDE
    outside = _shares(excluded, np.ones((_SIDE, _SIDE))) == 0.0
    powers = [_typical_powers(squares, where) for where in (inside, outside)]
    if any(each is None for each in powers):
        return math.nan
    ratios = (powers[0] + _LEAST) / (powers[1] + _LEAST)
    return float(np.exp(0.5 * np.log(ratios).mean()))


def _shares(mask, weights):
    """For each square, by its first row and column, how much of it the mask holds."""
    kernel = weights / weights.sum()
    shares = cv2.filter2D(mask.astype(np.float64), -1, kernel, anchor=(0, 0),
                          borderType=cv2.BORDER_CONSTANT)  # fmt: skip
    return shares[: mask.shape[0] - _SIDE + 1, : mask.shape[1] - _SIDE + 1].round(9)


def _typical_powers(squares, where):
    """The power of the typical square in each band; None where there are too few."""
    rows, columns = np.nonzero(where)
    if len(rows) < _FEWEST:
        return None
    step = -(-len(rows) // _MOST)
    chosen = squares[rows[::step], columns[::step]]
    power = np.abs(np.fft.fft2((chosen - _planes(chosen)) * _WINDOW)) ** 2
    frequency = np.fft.fftfreq(_SIDE)
    radius = np.hypot(frequency[:, None], frequency[None])
    bands = [power[:, (radius >= low) & (radius < high)].mean(axis=1) for low, high in _BANDS]
    # Medians, since a nebula's edge or a rest of a star is no grain.
    return np.median(bands, axis=1)


def _planes(squares):
    """The planes that fit best, so that a slope leaks into no band."""
    steps = np.arange(_SIDE) - (_SIDE - 1) / 2.0
    mean = squares.mean(axis=(1, 2), keepdims=True)
    rows = (squares.mean(axis=2) * steps).sum(axis=1)[:, None, None] / (steps**2).sum()
    columns = (squares.mean(axis=1) * steps).sum(axis=1)[:, None, None] / (steps**2).sum()
    return mean + rows * steps[:, None] + columns * steps[None]
