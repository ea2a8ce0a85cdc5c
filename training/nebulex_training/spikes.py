"""Spikes as long as the frame, of its brightest stars.

Drawn star by star: what comes out of a discrete Fourier transform ends at half a frame, cut off.
"""

import math

import torch

from .fields import unit_grid

_STARS = 8  # that have them, at most
_LEAST_PEAK = 2.0  # times what saturates
_WAVELENGTHS = (1.14, 1.0, 0.86)  # of red, green and blue light, over that of green


def long_spikes(dice, stars, batch, size, width, share):
    """batch x 3 x size x size light of the spikes, in so many of the scenes.

    stars are the scene, row, column, peak and count x 3 colours of all stars, width the scenes'
    full widths at half maximum in pixels. A share of 0 draws nothing.
    """
    light = torch.zeros(batch, 3, size, size, device=dice.device)
    if share == 0.0:
        return light
    scene, row, column, peak, colour = stars
    for number in torch.nonzero(dice.chance(share, batch))[:, 0].tolist():
        bright = torch.nonzero((scene == number) & (peak > _LEAST_PEAK))[:, 0]
        bright = bright[peak[bright].argsort(descending=True)[:_STARS]]
        if bright.numel():
            lines = _lines(dice, row[bright], column[bright], size, float(width[number]))
            light[number] = torch.einsum("scyx,s,sc->cyx", lines, peak[bright], colour[bright])
    return light


def _lines(dice, row, column, size, width):
    """stars x 3 x size x size: rays of one telescope, over the peak of the star."""
    rows, columns = (0.5 * size * (grid + 1.0) - 0.5 for grid in unit_grid(size, dice.device))
    y, x = rows - row[:, None, None, None], columns - column[:, None, None, None]
    turn, count = dice.one(0.0, math.pi), (2, 2, 3, 4)[dice.whole(0, 4)]
    length = dice.one_log(100.0, 1500.0)
    thickness = min(2.5, max(0.5, 0.3 * width * dice.one(0.6, 1.6)))
    strength = dice.one_log(0.0007, 0.015)
    beads, period = dice.one(0.0, 0.6) * dice.happens(0.4), dice.one_log(4.0, 30.0)
    wavelength = torch.tensor(_WAVELENGTHS, device=dice.device)[None, :, None, None]
    total = 0.0
    for line in range(count):
        angle = turn + line * math.pi / count + 0.01 * dice.one(-1.0, 1.0)
        along = (x * math.cos(angle) + y * math.sin(angle)).abs()
        across = y * math.cos(angle) - x * math.sin(angle)
        fall = torch.exp(-along / length) / (1.0 + along / 30.0)
        bead = 1.0 + beads * torch.cos(2.0 * math.pi * along / (period * wavelength))
        total = total + fall * bead * torch.exp(-0.5 * (across / thickness) ** 2)
    return strength * total
