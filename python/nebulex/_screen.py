"""Putting stars back."""

from typing import Any

import numpy as np
import numpy.typing as npt

from nebulex._arrays import checked_dtype, white_of

_ROWS = 256  # that are in float64 at a time


def screen(
    starless: npt.ArrayLike, unscreen: npt.ArrayLike, amount: float = 1.0, *, white: float = 1.0
) -> np.ndarray[Any, Any]:
    """Put the stars of a layer back into a starless image, edited or not.

    The blend mode "screen", white being 1: ``starless + amount * unscreen * (1 - starless)``.

    Parameters
    ----------
    starless : array_like
        uint8, uint16, float32 or float64, of any shape.
    unscreen : array_like
        The layer `remove_stars` made, of the same shape; its dtype may be another one. Integers are
        fractions of their greatest value, floating samples fractions within [0, 1].
    amount : float
        How much of the stars, 0 (none) to 1 (all).
    white : float
        The floating sample of `starless` that stands for white, as in `remove_stars`.

    Returns
    -------
    numpy.ndarray
        With the dtype and shape of `starless`. Integers are rounded to the nearest.

    Raises
    ------
    TypeError
        A dtype does not work.
    ValueError
        Shapes differ, or `amount` is outside [0, 1].

    Examples
    --------
    >>> import numpy as np
    >>> starless = np.array([[0, 100, 200]], np.uint8)
    >>> unscreen = np.array([[0, 51, 255]], np.uint8)
    >>> nebulex.screen(starless, unscreen)
    array([[  0, 131, 255]], dtype=uint8)
    >>> nebulex.screen(starless, unscreen, amount=0.5)
    array([[  0, 116, 228]], dtype=uint8)
    """
    base, layer = np.asarray(starless), np.asarray(unscreen)
    base_white = white_of(checked_dtype(base.dtype), white)
    layer_white = white_of(checked_dtype(layer.dtype), 1.0)
    if base.shape != layer.shape:
        raise ValueError(
            f"The starless image has the shape {base.shape}, the layer {layer.shape}: they differ.")
    if not 0 <= amount <= 1:
        raise ValueError(f"amount lies within [0, 1], and {amount} does not.")
    result = np.empty_like(base, subok=False)
    for first in range(0, len(base), _ROWS):
        rows = slice(first, first + _ROWS)
        below = base[rows].astype(np.float64)
        stars = layer[rows].astype(np.float64) * (amount / layer_white)
        blended = below + stars * (base_white - below)
        result[rows] = np.rint(blended) if base.dtype.kind == "u" else blended
    return result
