"""Leaves as it was what a network took only a little of.

A star goes with nearly all of its light. Where only a small part of what stands out was taken, it
was from a galaxy, a knot, or the noise of the sky.
"""

import torch.nn.functional as F

from .surroundings import averages, wide_averages

_CELL = 4  # pixels
_SURROUNDINGS = 7  # cells on a side; what rises above their average stands out
_NOTHING = 0.005  # what stands out of any sky, so that it is left where next to nothing was taken
_LEAVES, _TAKES = 0.15, 0.3  # of what stands out: up to here all is left, from there on nothing


def restrained(picture, result):
    """The result with what it takes given back where that is little: batch x 3 x rows x columns.

    Rows and columns are multiples of 4. Where all is given back the pixels are the picture's, to
    the last bit.
    """
    taken = picture - result
    light = _cells(picture)
    standing_out = _most_around((light - wide_averages(light, _SURROUNDINGS)).abs())
    share = _most_around(_cells(taken.abs())) / (standing_out + _NOTHING)
    keeping = ((share - _LEAVES) / (_TAKES - _LEAVES)).clamp(0.0, 1.0)
    return picture - taken * F.interpolate(
        keeping, scale_factor=float(_CELL), mode="bilinear", align_corners=False
    )


def _cells(picture):
    return averages(picture, _CELL, stride=_CELL).mean(dim=1, keepdim=True)


def _most_around(plane):
    return F.max_pool2d(plane, 3, stride=1, padding=1)
