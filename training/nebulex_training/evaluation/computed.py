"""Measures on computed scenes, where the truth is known."""

import math

import cv2
import numpy as np

from ..scene_sets import SETS
from .spectra import texture_ratio

_STAR_CHANGE = 0.02  # a pixel that a star changed by more counts as the star's
_NO_STAR = 1e-4  # one that stars changed by less has none
_WIDE = 48.0  # pixels; what is wider of an error is offset
_PEAKS = (("faint stars", 0.0, 0.15), ("middle stars", 0.15, 0.5), ("bright stars", 0.5, 9.0))
_WIDTHS = (("sharp", 0.0, 2.2), ("usual", 2.2, 4.5), ("wide", 4.5, 99.0))
_CONTRASTS = (("faint", 0.0, 0.05), ("middle", 0.05, 0.2), ("bright", 0.2, 9.0))
_SIZES = (("small", 0.0, 3.0), ("middle-sized", 3.0, 8.0), ("large", 8.0, 999.0))
_KEPT, _LOST = 0.02, 0.1  # shares of a galaxy's light


class MeasuredScene:
    """One scene of a set: picture and truth as rows x columns x 3, star width, galaxies.

    stars: rows x columns booleans; galaxies: rows of row, column, half-light radius.
    """

    def __init__(self, scene_set, number, size):
        (picture, truth), layers = SETS[scene_set].scene(number, size)
        self.number = number
        self.picture = picture[0].permute(1, 2, 0).numpy()
        self.truth = truth[0].permute(1, 2, 0).numpy()
        self.width = float(layers.width[0])
        self.galaxies = layers.galaxies[:, 1:].numpy()
        self.change = np.abs(self.picture - self.truth).max(axis=2)
        self.stars = self.change > _STAR_CHANGE
        self.star_classes = _star_classes(self.change, self.stars)


def _star_classes(change, stars):
    """rows x columns: 0 without a star, else 1 + the class of the brightness of what is there."""
    count, labels = cv2.connectedComponents(stars.astype(np.uint8))
    peaks = np.zeros(count)
    np.maximum.at(peaks, labels.ravel(), change.ravel())
    edges = [low for _, low, _ in _PEAKS[1:]]
    classes = 1 + np.digitize(peaks[labels], edges)
    return np.where(stars, classes, 0)


def knowing_the_truth(scene):
    """The best that can be done: the truth, but grain of its own kind where stars saturate.

    What a saturated pixel hid cannot be known, only what is smooth around it.
    """
    ceiling = scene.picture.reshape(-1, 3).max(axis=0)
    hidden = scene.stars[..., None] & (scene.picture >= 0.98 * ceiling)
    smooth = cv2.GaussianBlur(scene.truth, (0, 0), 2.0)
    grain = np.roll(scene.truth - smooth, (37, 53), axis=(0, 1))
    return np.where(hidden, np.clip(smooth + grain, 0.0, 1.0), scene.truth).astype(np.float32)


def scene_figures(scene, result):
    """The figures of one way on one scene, as numbers, lists and dictionaries of them.

    Sums are over pixels and channels, so that those of scenes can be added.
    """
    error = (result - scene.truth).astype(np.float64)
    offset = np.stack([_blurred(error[..., c]) for c in range(3)], axis=2)
    light = np.abs(scene.picture - scene.truth).sum(axis=2)
    left, fine, wide = (np.abs(x).sum(axis=2) for x in (error, error - offset, offset))
    squares = (error**2).sum(axis=2)
    none = scene.change < _NO_STAR
    faint = ~none & ~scene.stars
    stars = scene.stars

    def sums(where):
        return {"light": light[where].sum(), "left": left[where].sum(), "fine": fine[where].sum(),
                "offset": wide[where].sum()}  # fmt: skip

    figures = {
        "number": scene.number,
        "width": scene.width,
        "stars": sums(stars),
        "faint light": sums(faint),
        "peaks": {name: sums(scene.star_classes == k + 1) for k, (name, _, _) in enumerate(_PEAKS)},
        "star squares": squares[stars].sum(),
        "star count": 3 * int(stars.sum()),
        "other squares": squares[~stars].sum(),
        "other count": 3 * int((~stars).sum()),
        "harm squares": squares[none].sum(),
        "harm count": 3 * int(none.sum()),
        "texture": _texture(scene, result),
        "galaxies": _galaxies(scene, result),
    }
    return _plain(figures)


def _blurred(plane):
    return cv2.GaussianBlur(plane, (0, 0), _WIDE / 2.0, borderType=cv2.BORDER_REFLECT)


def _plain(value):
    """The value with Python's own numbers, as JSON takes them."""
    if isinstance(value, dict):
        return {key: _plain(each) for key, each in value.items()}
    if isinstance(value, list):
        return [_plain(each) for each in value]
    return value.item() if isinstance(value, np.generic) else value


def _texture(scene, result):
    """Grain in footprints over that beside them, in units of what the truth has; NaN if none."""
    seen, expected = (texture_ratio(x, scene.stars, scene.stars) for x in (result, scene.truth))
    return seen / expected if expected > 0.0 else math.nan


def _galaxies(scene, result):
    """Light of each measurable galaxy in the result, over that in the truth, and what it is like.

    Left out are those at the edge, those too faint for their noise, and those with a star. One is
    keepable if knowing the truth keeps nine tenths of it.
    """
    height, width = scene.truth.shape[:2]
    ways = (scene.truth, result, scene.picture, knowing_the_truth(scene))
    planes = [x.mean(axis=2, dtype=np.float64) for x in ways]
    found = []
    for row, column, radius in scene.galaxies:
        reach = 1.5 * radius + 0.7 * scene.width
        outer = 1.6 * reach + 3.0
        low_row, low_column = int(row - outer), int(column - outer)
        high_row, high_column = int(row + outer) + 2, int(column + outer) + 2
        if low_row < 0 or low_column < 0 or high_row > height or high_column > width:
            continue
        rows, columns = np.mgrid[low_row:high_row, low_column:high_column]
        distance = np.hypot(rows - row, columns - column)
        inside, around = distance <= reach, (distance > 1.2 * reach) & (distance <= outer)
        truth, seen, picture, best = (x[low_row:high_row, low_column:high_column] for x in planes)
        sky = np.median(truth[around])
        noise = 1.4826 * np.median(np.abs(truth[around] - sky))
        light = (truth[inside] - sky).sum()
        if light < 30.0 * (noise + 5e-4) * math.sqrt(inside.sum()):
            continue
        if np.abs(picture - truth)[inside].sum() > 0.05 * light:
            continue
        # The background of the truth serves for both: a hole around the galaxy counts as well.
        found.append({
            "ratio": (seen[inside] - sky).sum() / light,
            "keepable": bool((best[inside] - sky).sum() >= (1.0 - _LOST) * light),
            "contrast": np.percentile(truth[inside], 98.0) - sky,
            "radius": radius,
        })  # fmt: skip
    return found


def summary(scenes):
    """Name and value of each measure over the figures of scenes."""
    yield "residual", _ratio(scenes, "stars", "left")
    yield "residual, typical scene", _typical(scenes, "left")
    yield "residual less offset", _ratio(scenes, "stars", "fine")
    yield "residual less offset, typical scene", _typical(scenes, "fine")
    yield "offset", _ratio(scenes, "stars", "offset")
    for kind in ("star", "other"):
        yield f"PSNR, {kind} pixels", _psnr(scenes, kind)
    yield "PSNR, other pixels, typical scene", _median(_psnr([s], "other") for s in scenes)
    yield "PSNR, where no star shines", _psnr(scenes, "harm")
    yield "PSNR, where no star shines, typical scene", _median(_psnr([s], "harm") for s in scenes)
    yield "faint light left", _ratio(scenes, "faint light", "left")
    yield "texture (1 is best)", _median(scene["texture"] for scene in scenes)
    for name, _, _ in _PEAKS:
        peaks = [scene["peaks"] for scene in scenes]
        yield f"residual, {name}", _ratio(peaks, name, "left")
        yield f"residual less offset, {name}", _ratio(peaks, name, "fine")
    for name, low, high in _WIDTHS:
        chosen = of_width(scenes, low, high)
        yield f"residual, {name} stars", _ratio(chosen, "stars", "left")
        yield f"residual less offset, {name} stars", _ratio(chosen, "stars", "fine")
        yield f"PSNR, {name} stars", _psnr(chosen, "star")
    yield from _galaxy_rows(scenes)


def of_width(scenes, low, high):
    """The figures of the scenes whose stars are of such a width in pixels."""
    return [scene for scene in scenes if low <= scene["width"] < high]


def paired_values(scenes):
    """Name and one value a scene of what two ways are compared by, scene by scene."""
    classes = [("all", scenes)]
    classes += [(f"{name} stars", of_width(scenes, low, high)) for name, low, high in _WIDTHS]
    for measure, key in (("residual", "left"), ("residual less offset", "fine")):
        for name, chosen in classes:
            yield f"{measure}, {name}", [_share(s["stars"], key) for s in chosen]
        for name, _, _ in _PEAKS:
            yield f"{measure}, {name}", [_share(s["peaks"][name], key) for s in scenes]
    yield "squared error at stars", [_mean(s, "star") for s in scenes]
    yield "squared error where no star shines", [_mean(s, "harm") for s in scenes]


def _share(sums, key):
    return sums[key] / sums["light"] if sums["light"] > 0.0 else math.nan


def _mean(scene, kind):
    count = scene[f"{kind} count"]
    return scene[f"{kind} squares"] / count if count else math.nan


def _ratio(scenes, kind, key):
    light = sum(scene[kind]["light"] for scene in scenes)
    return sum(scene[kind][key] for scene in scenes) / light if light else math.nan


def _typical(scenes, key):
    return _median(_share(scene["stars"], key) for scene in scenes)


def _median(values):
    known = [value for value in values if not math.isnan(value)]
    return float(np.median(known)) if known else math.nan


def _psnr(scenes, kind):
    squares = sum(scene[f"{kind} squares"] for scene in scenes)
    count = sum(scene[f"{kind} count"] for scene in scenes)
    if count == 0:
        return math.nan
    return math.inf if squares == 0.0 else -10.0 * math.log10(squares / count)


def _galaxy_rows(scenes):
    found = [galaxy for scene in scenes for galaxy in scene["galaxies"]]
    yield f"galaxies kept within 2 % of {len(found)}", _part(
        found, lambda g: abs(g["ratio"] - 1.0) <= _KEPT
    )
    keepable = [galaxy for galaxy in found if galaxy["keepable"]]
    yield from _losses("galaxies", keepable)
    for name, low, high in _CONTRASTS:
        yield from _losses(f"{name} galaxies", [g for g in keepable if low <= g["contrast"] < high])
    for name, low, high in _SIZES:
        yield from _losses(f"{name} galaxies", [g for g in keepable if low <= g["radius"] < high])


def _losses(name, galaxies):
    count = len(galaxies)
    yield f"{name} that lost a tenth of {count}", _part(
        galaxies, lambda g: g["ratio"] < 1.0 - _LOST
    )
    yield f"{name} that lost half of {count}", _part(galaxies, lambda g: g["ratio"] < 0.5)


def _part(galaxies, holds):
    return sum(map(holds, galaxies)) / len(galaxies) if galaxies else math.nan


def star_error(scene, result):
    """Sum of squared differences over star pixels, for choosing the best opening."""
    return float(((result - scene.truth) ** 2)[scene.stars].sum())


def other_error(scene, result):
    """rows x columns: squared differences over the pixels that are no star's, 0 on the others."""
    return np.where(scene.stars, 0.0, ((result - scene.truth) ** 2).sum(axis=2))
