"""What lies around the pixels that cannot be trusted, spread over them: light, and its grain.

Pictures are batch x 3 x rows x columns, trust is batch x 1 x rows x columns in [0, 1].
"""

import math

import torch
import torch.nn.functional as F

_MOST_HALVINGS = 8  # a tile of 512 pixels becomes 2 x 2 cells
_LEAST_WEIGHT = 1e-4
_LEAST_TRUST = 1e-6  # so that there is a mean where nothing is trusted
_GRAIN_SIDE = 7  # pixels; what is wider is no grain
_GRAIN_CELL = 8  # pixels, of which 3 x 3 tell how strong grain is there
_MOST_GRAIN = 3.5  # times the usual detail, 2.4 standard deviations of Gaussian noise
# Places beside a pixel, in rows and columns, that its grain is taken from; the far ones are for the
# middle of large stars. No two lie in a row, so that no pattern repeats along one.
_BESIDE = (
    (3, 8), (8, -3), (-3, -8), (-8, 3),
    (17, 11), (11, -17), (-17, -11), (-11, 17),
    (19, 41), (41, -19), (-19, -41), (-41, 19),
    (59, 31), (31, -59), (-59, -31), (-31, 59),
)  # fmt: skip
_FARTHEST = max(abs(step) for place in _BESIDE for step in place)


def spread(picture, trust):
    """Each pixel by its trust, the rest of it from what is around.

    Rows and columns are multiples of 32. This is pull and push over a pyramid after Gortler et al.,
    "The Lumigraph" (1996), section 3.6: sums of trusted light go up, where trust above 1 counts as
    1, and come down where trust lacks. So a little trust nearby counts more than much of it far
    away. What no trust reaches gets the mean of the trusted pixels, of all pixels where there are
    none. A flat picture stays as it is, whatever the trust.
    """
    light, weight = [picture * trust], [trust]
    for _ in range(_halvings(picture)):
        average = averages(weight[-1], 2, stride=2)
        enough = average.clamp(min=0.25)  # a quarter of four cells is one
        light.append(averages(light[-1], 2, stride=2) / enough)
        weight.append(average / enough)
    rest = wide_averages(light[-1], 5) + _LEAST_WEIGHT * _mean(picture, trust)
    result = rest / (wide_averages(weight[-1], 5) + _LEAST_WEIGHT)
    result = light.pop() + (1.0 - weight.pop()) * result
    while light:
        wider = F.interpolate(result, scale_factor=2.0, mode="bilinear", align_corners=False)
        result = light.pop() + (1.0 - weight.pop()) * wider
    return result


def _halvings(picture):
    """How often both sides of the picture can be halved, up to _MOST_HALVINGS."""
    common = math.gcd(*(int(side) for side in picture.shape[-2:]))
    return min(_MOST_HALVINGS, (common & -common).bit_length() - 1)


def _mean(picture, trust):
    """batch x 3 x 1 x 1: the mean of the pixels, counted by their trust."""
    weight = trust + _LEAST_TRUST
    light = (picture * weight).mean(dim=(-2, -1), keepdim=True)
    return light / weight.mean(dim=(-2, -1), keepdim=True)


def grain(picture, trust):
    """For each pixel the grain of trusted places beside it: what noise and fine structure would add.

    The sum over the places is divided by the root of the sum of their squared weights, so that it
    is as strong as the grain of one of them; their mean would be a smooth disc. Rows and columns are
    at least as many as the farthest place is away; over the edge, the far side of the picture serves.
    """
    weights = wide_averages(trust, _GRAIN_SIDE) + _LEAST_WEIGHT
    smooth = wide_averages(picture * trust, _GRAIN_SIDE) / weights
    detail = _without_outliers(picture - smooth, trust)
    detail, squares = _framed(detail * trust), _framed(trust * trust)
    rows, columns = (int(side) for side in picture.shape[-2:])
    total, power = 0.0, _LEAST_WEIGHT
    for row, column in _BESIDE:
        top, left = _FARTHEST + row, _FARTHEST + column
        part = (..., slice(top, top + rows), slice(left, left + columns))
        total = total + detail[part]
        power = power + squares[part]
    return total / torch.sqrt(power)


def _without_outliers(detail, trust):
    """The detail limited to what is usual around, so that no rest of a star is copied with it.

    What is usual is the square of the mean root, which few large values move less than a mean.
    """
    roots = averages(torch.sqrt(detail.abs()) * trust, _GRAIN_CELL, stride=_GRAIN_CELL)
    weights = averages(trust, _GRAIN_CELL, stride=_GRAIN_CELL) + _LEAST_WEIGHT
    root = F.interpolate(
        wide_averages(roots, 3) / wide_averages(weights, 3),
        scale_factor=float(_GRAIN_CELL), mode="bilinear", align_corners=False,
    )  # fmt: skip
    limit = _MOST_GRAIN * root * root
    return torch.minimum(torch.maximum(detail, -limit), limit)


def _framed(plane):
    """The plane with as much of its far sides around it as the farthest place needs."""
    plane = torch.cat((plane[..., -_FARTHEST:, :], plane, plane[..., :_FARTHEST, :]), dim=-2)
    return torch.cat((plane[..., -_FARTHEST:], plane, plane[..., :_FARTHEST]), dim=-1)


def wide_averages(plane, side):
    """Averages of side x side cells around each, as many of them as there are at the edge."""
    return averages(plane, side, stride=1, padding=side // 2)


def averages(plane, side, **steps):
    """Averages of side x side cells."""
    return F.avg_pool2d(plane, side, count_include_pad=False, **steps)  # else exported with a Pad
