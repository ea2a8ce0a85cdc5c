"""Measures on photographs without a truth."""

import pathlib

import cv2
import numpy as np
import sep

from .added_stars import add_stars, knowing_the_truth, rows_of_shares, shares_left
from .invariance import forms
from .linear_photographs import Stretch, is_linear, read_planes
from .program import read_picture
from .spectra import texture_ratio

_PICTURE_SUFFIXES = (".png", ".tif", ".tiff")
_PLACES = 4000  # random ones, to see what chance finds


def find_photographs(places):
    """The files among the places, and those in the folders among them, by name."""
    found = []
    for place in map(pathlib.Path, places):
        inside = sorted(place.iterdir()) if place.is_dir() else [place]
        found += [p for p in inside if p.suffix.lower() in _PICTURE_SUFFIXES or is_linear(p)]
    return found


def load_photograph(path):
    """rows x columns x 3 float32 in [0, 1]; a FITS image gets a midtones stretch."""
    if not is_linear(path):
        return read_picture(path)
    planes, _ = read_planes(path)
    return Stretch(planes)(planes)


class Sources:
    """Compact sources that SEP finds above 8 sigma, and everything above 3."""

    def __init__(self, picture, noise=None):
        data = np.ascontiguousarray(picture.mean(axis=2))
        background = sep.Background(data, bw=32, bh=32)
        self.noise = noise if noise is not None else max(float(background.globalrms), 1e-4)
        sep.set_extract_pixstack(5_000_000)
        flat = data - background.back()
        found = sep.extract(flat, 8.0, err=self.noise)
        width = 2.0 * np.sqrt(np.log(2.0) * (found["a"] ** 2 + found["b"] ** 2))
        self.width = float(np.median(width)) if len(width) else 3.0
        compact = width < 2.2 * self.width
        self.x, self.y = found["x"][compact], found["y"][compact]
        self._flat = flat

    def covered(self):
        """rows x columns: True where anything is above 3 sigma."""
        _, segments = sep.extract(self._flat, 3.0, err=self.noise, segmentation_map=True,
                                  deblend_cont=1.0)  # fmt: skip
        return segments > 0


def measure_photograph(remove, picture, seed=1):
    """The measures of one way on one photograph, and its result: (rows, result)."""
    sources = Sources(picture)
    result = remove(picture)
    after = Sources(result, sources.noise)
    added = add_stars(picture, sources.width, sources.noise, seed)
    typical, all_of_it = _sky_change(picture, result, sources)
    rows = {
        "stars": float(len(sources.x)),
        "left": _share_left(sources, after),
        "left by chance": _share_left_by_chance(sources, after, picture.shape, seed),
        **dict(rows_of_shares(added, shares_left(added, result, remove(added.picture)))),
        "sky": typical,
        "sky, root mean square": all_of_it,
        "texture": _texture(picture, result, sources),
    }
    rows["left, less chance"] = less_chance(rows["left"], rows["left by chance"])
    return rows, result


def best_of_photograph(picture, seed=1):
    """The added stars' measures of one who knows the picture without them."""
    sources = Sources(picture)
    added = add_stars(picture, sources.width, sources.noise, seed)
    best = knowing_the_truth(picture, added)
    return dict(rows_of_shares(added, shares_left(added, picture, best)))


def less_chance(left, by_chance):
    """The share of the sources that are left beyond what any place would count as one."""
    return (left - by_chance) / (1.0 - by_chance) if by_chance < 1.0 else float("nan")


def measure_forms(remove, picture):
    """The share of the sources left, less chance, of the picture in each form; by name."""
    sources = Sources(picture)
    rows = {}
    for form in forms(picture):
        there = np.ascontiguousarray(form.there(picture)).astype(np.float32)
        result = np.ascontiguousarray(form.back(remove(there, linear=form.linear)))
        after = Sources(result.astype(np.float32), sources.noise)
        chance = _share_left_by_chance(sources, after, picture.shape, 1)
        rows[f"left, {form.name}"] = less_chance(_share_left(sources, after), chance)
    return rows


def measure_linear(remove, path):
    """The share of a linear photograph's sources left, less chance, as it is stored; by name.

    Sources are looked for after the stretch of load_photograph, before and after the same one.
    """
    planes, white = read_planes(path)
    stretch = Stretch(planes)
    picture = stretch(planes)
    before = Sources(picture)
    stored = np.clip(planes / white, 0.0, 1.0).astype(np.float32)
    after = Sources(stretch(remove(stored, linear=True) * white), before.noise)
    chance = _share_left_by_chance(before, after, picture.shape, 1)
    return {"left, linear as stored": less_chance(_share_left(before, after), chance)}


def typical_measures(rows):
    """The median over photographs of each measure, over the absolute values where it is signed.

    Photographs that lack a measure do not count for it.
    """
    medians = {}
    for name in rows[0]:
        values = np.abs([each.get(name, np.nan) for each in rows])
        known = values[np.isfinite(values)]
        medians[name] = float(np.median(known)) if known.size else float("nan")
    return medians


def _share_left(before, after):
    return _share_near(before.x, before.y, after, before.width)


def _share_left_by_chance(before, after, shape, seed):
    """The share of random places that have a source of the result within one star width."""
    rng = np.random.default_rng(seed)
    x, y = rng.uniform(0.0, shape[1], _PLACES), rng.uniform(0.0, shape[0], _PLACES)
    return _share_near(x, y, after, before.width)


def _share_near(x, y, after, width):
    if len(x) == 0:
        return float("nan")
    if len(after.x) == 0:
        return 0.0
    distance = np.hypot(x[:, None] - after.x[None], y[:, None] - after.y[None])
    return float((distance.min(axis=1) <= width).mean())


def _disc(radius):
    side = 2 * int(np.ceil(radius)) + 1
    return cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (side, side))


def _sky_change(picture, result, sources):
    """The change far from all sources, over the noise: of the typical pixel, root mean square.

    The second one is that of the faint stars and wide halos that are no sources and go too. Of
    Gaussian changes both are the standard deviation.
    """
    near = cv2.dilate(sources.covered().astype(np.uint8), _disc(4.0 * sources.width))
    far = near == 0
    if far.sum() < 500:
        return float("nan"), float("nan")
    change = (result - picture).mean(axis=2)[far]
    typical = 1.4826 * float(np.median(np.abs(change)))
    return typical / sources.noise, float(np.sqrt((change**2).mean())) / sources.noise


def _texture(picture, result, sources):
    """Grain in the footprints of what was removed, over that outside."""
    removed = np.abs(picture - result).max(axis=2) > 5.0 * sources.noise
    near = cv2.dilate(removed.astype(np.uint8), _disc(2.0)) > 0
    return texture_ratio(result, removed, near)
