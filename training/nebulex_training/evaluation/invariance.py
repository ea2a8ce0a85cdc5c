"""The same picture in other forms: multiplied, on a lifted background, turned, doubled, linear.

Each form is made of a picture, goes through the program, and comes back.
"""

from dataclasses import dataclass
from typing import Callable

import cv2
import numpy as np

_LINEAR_MEDIAN = 0.01  # of the range, what the sky of linear data is like


@dataclass(frozen=True)
class Form:
    """there makes the form of a picture, back makes a picture of it; both take and give rows x
    columns x 3. linear: whether the program is told that the data is."""

    name: str
    there: Callable
    back: Callable
    linear: bool = False


def forms(picture):
    """The forms that a picture is measured in, itself first."""
    midtones = _midtones(float(np.median(picture)))
    side = picture.shape[1], picture.shape[0]
    double = side[0] * 2, side[1] * 2
    return [
        Form("as it is", lambda x: x, lambda x: x),
        Form("times 0.7", lambda x: 0.7 * x, lambda x: x / 0.7),
        Form("times 0.5", lambda x: 0.5 * x, lambda x: x / 0.5),
        Form("lifted by 0.3", lambda x: 0.3 + 0.7 * x, lambda x: (x - 0.3) / 0.7),
        Form("turned", lambda x: np.rot90(x), lambda x: np.rot90(x, -1)),
        Form(
            "doubled",
            lambda x: np.clip(cv2.resize(x, double, interpolation=cv2.INTER_CUBIC), 0.0, 1.0),
            lambda x: cv2.resize(x, side, interpolation=cv2.INTER_AREA),
        ),
        Form("linear", lambda x: _mtf(x, 1.0 - midtones), lambda x: _mtf(x, midtones), True),
    ]


def _midtones(median):
    """The balance of the function that takes _LINEAR_MEDIAN to the median of the picture."""
    return float(_mtf(np.float64(_LINEAR_MEDIAN), np.clip(median, 0.02, 0.9)))


def _mtf(x, midtones):
    """The midtones transfer function; that of 1 - midtones is its inverse."""
    x = np.clip(x, 0.0, 1.0)
    return (midtones - 1.0) * x / ((2.0 * midtones - 1.0) * x - midtones)
