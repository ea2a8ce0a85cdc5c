"""Squares of different sizes that galaxies are drawn in, each as large as its galaxy needs."""

import math


def size_classes(radius, sides, radii):
    """Pairs of a side and booleans: which of the radius go into it.

    A square holds so many radii; what is too large for all goes into the last of the sides, and
    one that none needs is left out.
    """
    needed = radius * radii
    lower = (0.0, *sides[:-1])
    upper = (*sides[:-1], math.inf)
    for side, low, high in zip(sides, lower, upper):
        chosen = (needed > low) & (needed <= high)
        if bool(chosen.any()):
            yield side, chosen
