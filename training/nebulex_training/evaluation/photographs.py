"""Measures on photographs without a truth."""

import pathlib

import cv2
import numpy as np
import sep

from .program import read_picture

_FITS_SUFFIXES = (".fit", ".fits", ".fts")
_PICTURE_SUFFIXES = (".png", ".tif", ".tiff")
_MIDDLE_GREY = 0.15  # where the sky of a linear photograph is stretched to


def find_photographs(places):
    """The files among the places, and those in the folders among them, by name."""
    found = []
    for place in map(pathlib.Path, places):
        inside = sorted(place.iterdir()) if place.is_dir() else [place]
        found += [p for p in inside if p.suffix.lower() in _PICTURE_SUFFIXES + _FITS_SUFFIXES]
    return found


def load_photograph(path):
    """rows x columns x 3 float32 in [0, 1]; a FITS image gets a midtones stretch."""
    if path.suffix.lower() not in _FITS_SUFFIXES:
        return read_picture(path)
    from astropy.io import fits

    with fits.open(path) as units:
        images = [unit.data for unit in units if unit.is_image and unit.data is not None]
    shape = images[0].shape if images else ()
    if len(shape) != 2 and (len(shape) != 3 or shape[0] != 3):
        raise ValueError("it holds no image of one plane or of three")
    data = np.nan_to_num(images[0].astype(np.float64))
    planes = data if data.ndim == 3 else np.stack((data,) * 3)
    low = np.median(planes) - 4.0 * 1.4826 * np.median(np.abs(planes - np.median(planes)))
    scaled = np.clip((planes - low) / max(np.percentile(planes, 99.95) - low, 1e-12), 0.0, 1.0)
    level = float(np.clip(np.median(scaled), 1e-4, 0.9))
    midtones = level * (1.0 - _MIDDLE_GREY) / (level - 2.0 * _MIDDLE_GREY * level + _MIDDLE_GREY)
    stretched = (midtones - 1.0) * scaled / ((2.0 * midtones - 1.0) * scaled - midtones)
    return np.ascontiguousarray(stretched.transpose(1, 2, 0)).astype(np.float32)


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
    absolute, signed = _added_stars(remove, picture, result, sources, seed)
    typical, all_of_it = _sky_change(picture, result, sources)
    rows = {
        "stars": float(len(sources.x)),
        "left": _share_left(sources, after),
        "added, absolute": absolute,
        "added, signed": signed,
        "sky": typical,
        "sky, root mean square": all_of_it,
        "texture": _texture(picture, result, sources),
    }
    return rows, result


def typical_measures(rows):
    """The median over photographs of each measure, over the absolute values where it is signed.

    Photographs that lack a measure do not count for it.
    """
    medians = {}
    for name in rows[0]:
        values = np.abs([each[name] for each in rows])
        known = values[np.isfinite(values)]
        medians[name] = float(np.median(known)) if known.size else float("nan")
    return medians


def _share_left(before, after):
    if len(before.x) == 0:
        return float("nan")
    if len(after.x) == 0:
        return 0.0
    distance = np.hypot(before.x[:, None] - after.x[None], before.y[:, None] - after.y[None])
    return float((distance.min(axis=1) <= before.width).mean())


def _added_stars(remove, picture, result, sources, seed):
    """How much is left of stars that were added, absolute and signed, over their light.

    Counted where they were added: what the network then sees elsewhere is another question.
    """
    rng = np.random.default_rng(seed)
    height, width = picture.shape[:2]
    count = int(np.clip(height * width / 8000, 20, 300))
    light = np.zeros((height, width, 3), np.float32)
    near = np.zeros((height, width), bool)
    reach = int(np.ceil(5.0 * sources.width))
    scale = sources.width / (2.0 * np.sqrt(2.0 ** (1.0 / 3.0) - 1.0))
    is_grey = np.array_equal(picture[:, :, 0], picture[:, :, 2])
    for _ in range(count):
        x, y = rng.uniform(reach, width - reach - 1), rng.uniform(reach, height - reach - 1)
        rows, columns = np.mgrid[int(y) - reach : int(y) + reach, int(x) - reach : int(x) + reach]
        profile = (1.0 + ((columns - x) ** 2 + (rows - y) ** 2) / scale**2) ** -3.0
        colour = np.ones(3) if is_grey else np.exp(0.2 * rng.standard_normal(3))
        peak = np.exp(rng.uniform(np.log(0.03), np.log(1.5)))
        near[rows, columns] = True
        light[rows, columns] += (peak * profile[:, :, None] * colour).astype(np.float32)
    # A power of 2.2 stands for the unknown stretch.
    crowded = np.clip(picture**2.2 + light, 0.0, 1.0) ** (1.0 / 2.2)
    added = crowded - picture
    left = (remove(crowded) - result)[near]
    total = float(added.sum())
    return float(np.abs(left).sum()) / total, float(left.sum()) / total


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
    """Fine detail in the footprints of removed stars, over that around them: the median."""
    detail = (result - cv2.blur(result, (3, 3))).mean(axis=2)
    removed = (np.abs(picture - result).max(axis=2) > 5.0 * sources.noise).astype(np.uint8)
    outside = cv2.dilate(removed, _disc(1.0)) == 0
    height, width = removed.shape
    reach = int(np.ceil(4.0 * sources.width))
    ratios = []
    for x, y in zip(sources.x, sources.y):
        rows = slice(max(0, int(y) - reach), min(height, int(y) + reach + 1))
        columns = slice(max(0, int(x) - reach), min(width, int(x) + reach + 1))
        inside, around = removed[rows, columns] > 0, outside[rows, columns]
        if inside.sum() < 20 or around.sum() < 20:
            continue
        surrounding = detail[rows, columns][around].std()
        if surrounding > 1e-5:
            ratios.append(detail[rows, columns][inside].std() / surrounding)
    return float(np.median(ratios)) if ratios else float("nan")
