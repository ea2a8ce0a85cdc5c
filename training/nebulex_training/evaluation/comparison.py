"""Two ways beside each other, scene by scene."""

import math

import numpy as np

_DRAWS = 2000
_LEAST = 1e-9  # what is less counts as this, so that nothing at all has a logarithm


def paired_ratio(first, second, seed=1):
    """The median over scenes of first / second, with its bootstrap interval of 95 %.

    Values belong together by their order; pairs with a NaN are left out. Returns the ratio, low,
    high and the number of pairs; NaN where there are none.
    """
    pairs = [(a, b) for a, b in zip(first, second) if not math.isnan(a + b)]
    if not pairs:
        return math.nan, math.nan, math.nan, 0
    values = np.maximum(np.array(pairs, dtype=np.float64), _LEAST)
    logs = np.log(values[:, 0] / values[:, 1])
    drawn = np.random.default_rng(seed).integers(0, len(logs), (_DRAWS, len(logs)))
    low, high = np.percentile(np.median(logs[drawn], axis=1), (2.5, 97.5))
    return math.exp(np.median(logs)), math.exp(low), math.exp(high), len(logs)
