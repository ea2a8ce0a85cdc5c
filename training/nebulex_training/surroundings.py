"""What lies around the pixels that cannot be trusted, spread over them."""

import torch.nn.functional as F

_HALVINGS = 5
_LEAST_WEIGHT = 1e-4


def spread(picture, trust):
    """batch x 3 x rows x columns: each pixel by its trust, the rest of it from what is around.

    trust is batch x 1 x rows x columns in [0, 1]; rows and columns are multiples of 32. This is
    pull and push over a pyramid after Gortler et al., "The Lumigraph" (1996), section 3.6: averages
    of trusted light go up, and come down where trust lacks. A flat picture stays as it is,
    whatever the trust.
    """
    light, weight = [picture * trust], [trust]
    for _ in range(_HALVINGS):
        light.append(_averages(light[-1], 2, stride=2))
        weight.append(_averages(weight[-1], 2, stride=2))
    result = _wide(light[-1]) / (_wide(weight[-1]) + _LEAST_WEIGHT)
    result = light.pop() + (1.0 - weight.pop()) * result
    while light:
        wider = F.interpolate(result, scale_factor=2.0, mode="bilinear", align_corners=False)
        result = light.pop() + (1.0 - weight.pop()) * wider
    return result


def _wide(plane):
    """Averages of 5 x 5 cells, which see past a star that is larger than a cell."""
    return _averages(plane, 5, stride=1, padding=2)


def _averages(plane, side, **steps):
    return F.avg_pool2d(plane, side, count_include_pad=False, **steps)  # else exported with a Pad
