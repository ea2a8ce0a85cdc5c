"""Stars that are added to a photograph, and how much of each is left."""

import math
from dataclasses import dataclass

import cv2
import numpy as np

_GAMMA = 2.2  # stands for the unknown stretch
_FAINTEST, _BRIGHTEST = 0.03, 1.5  # peaks in linear light
CLASSES = (("faint", 0.0, 0.05), ("middle", 0.05, 0.2), ("bright", 0.2, 9.0))
CLEAR = 0.05  # those that rise so much above their surroundings are counted together


@dataclass
class AddedStars:
    """A photograph with stars more in it.

    picture: rows x columns x 3; places: count x 2 rows and columns; reach: pixels that a star's
    light goes at most; rise: how much each is brighter than its surroundings.
    """

    picture: np.ndarray
    light: np.ndarray
    places: np.ndarray
    reach: int
    rise: np.ndarray


def add_stars(picture, width, noise, seed):
    """Adds stars of such a width, in pixels, with their photons' noise; none touches another.

    noise is that of the sky in the picture. Photons are counted so that the sky's would make it.
    """
    rng = np.random.default_rng(seed)
    height, columns = picture.shape[:2]
    reach = int(np.ceil(5.0 * width))
    places = _places(rng, height, columns, reach)
    linear = picture.astype(np.float64) ** _GAMMA
    scale = width / (2.0 * math.sqrt(2.0 ** (1.0 / 3.0) - 1.0))
    is_grey = np.array_equal(picture[:, :, 0], picture[:, :, 2])
    light = np.zeros(picture.shape)
    for x, y in places:
        part = _around(x, y, reach)
        rows, cols = np.mgrid[part]
        profile = (1.0 + ((cols - x) ** 2 + (rows - y) ** 2) / scale**2) ** -3.0
        colour = np.ones(3) if is_grey else np.exp(0.2 * rng.standard_normal(3))
        peak = math.exp(rng.uniform(math.log(_FAINTEST), math.log(_BRIGHTEST)))
        light[part] = peak * profile[:, :, None] * colour
    sky = max(float(np.median(picture)), 1e-3)
    noise_of_linear = noise * _GAMMA * sky ** (_GAMMA - 1.0)
    photons = noise_of_linear**2 / sky**_GAMMA  # variance for each unit of light
    grain = rng.standard_normal((height, columns, 1 if is_grey else 3))
    lit = linear + light + np.sqrt(photons * light) * grain
    crowded = (np.clip(lit, 0.0, 1.0) ** (1.0 / _GAMMA)).astype(np.float32)
    clean = np.clip(linear + light, 0.0, 1.0) ** (1.0 / _GAMMA) - picture
    rise = np.array([_rise(clean, x, y) for x, y in places])
    return AddedStars(crowded, clean, places, reach, rise)


def _places(rng, height, columns, reach):
    """Columns and rows of places at least two reaches apart."""
    wanted = int(np.clip(height * columns / 8000, 20, 300))
    places = []
    for _ in range(20 * wanted):
        place = rng.uniform(reach, (columns - reach - 1, height - reach - 1))
        if all(np.abs(place - other).max() > 2 * reach + 1 for other in places):
            places.append(place)
        if len(places) == wanted:
            break
    return np.array(places)


def _around(x, y, reach):
    return (slice(int(y) - reach, int(y) + reach), slice(int(x) - reach, int(x) + reach))


def _rise(light, x, y):
    return float(light[int(y) : int(y) + 2, int(x) : int(x) + 2].mean(axis=2).max())


def shares_left(added, before, after):
    """For each star the sum of its profile times the light left, over that times the light added.

    before and after are the results without and with the stars added.
    """
    left = after.astype(np.float64) - before
    shares = []
    for x, y in added.places:
        part = _around(x, y, added.reach)
        profile = added.light[part]
        power = (profile**2).sum()
        shares.append((profile * left[part]).sum() / power if power > 0.0 else math.nan)
    return np.array(shares)


def knowing_the_truth(picture, added):
    """The picture without the added stars, but for grain of its own kind where they saturate."""
    hidden = (added.light > 0.01) & (added.picture >= 0.98)
    smooth = cv2.GaussianBlur(picture, (0, 0), 2.0)
    grain = np.roll(picture - smooth, (37, 53), axis=(0, 1))
    return np.where(hidden, np.clip(smooth + grain, 0.0, 1.0), picture)


def rows_of_shares(added, shares):
    """Name and value: median and 90th percentile of what is left, of all clear stars by class."""
    yield from _two_rows("added, clear", np.abs(shares[added.rise >= CLEAR]))
    for name, low, high in CLASSES:
        chosen = (added.rise >= low) & (added.rise < high)
        yield from _two_rows(f"added, {name}", np.abs(shares[chosen]))


def _two_rows(name, shares):
    known = shares[np.isfinite(shares)]
    yield f"{name}, median", float(np.median(known)) if known.size else math.nan
    yield f"{name}, 90th percentile", float(np.percentile(known, 90)) if known.size else math.nan
