"""What the training makes small: wrong pixels, wrong edges, and fillings without texture."""

import torch
import torch.nn.functional as F

CHANGED = 0.01  # a pixel that a star changed by more counts as the star's
_STANDS_OUT, _CLEARLY = 0.01, 0.03  # contrasts from which a pixel counts more, and fully more
_CELLS = (8, 32)  # pixels; surroundings are 5 x 5 cells


def star_mask(picture, target):
    """batch x 1 x rows x columns: 1 where stars changed a channel."""
    return ((picture - target).abs().amax(dim=1, keepdim=True) > CHANGED).float()


def pixel_weights(picture, target, weight):
    """batch x 1 x rows x columns: how much the pixels count, from 1 to the weight.

    What goes and what stays count by their contrast alone, the same for both: the light of a star,
    and what of the target rises above its surroundings, such as a galaxy, a knot or a core. So it
    pays to take something away where it is more probably a star than not.
    """
    goes = _smooth((picture - target).abs())
    contrast = torch.stack((goes, *(_smooth(target) - _around(target, cell) for cell in _CELLS)))
    contrast = contrast.amax(dim=0).amax(dim=1, keepdim=True)
    share = ((contrast - _STANDS_OUT) / (_CLEARLY - _STANDS_OUT)).clamp(0.0, 1.0)
    return 1.0 + (weight - 1.0) * share


def _smooth(picture):
    return F.avg_pool2d(F.pad(picture, (1, 1, 1, 1), mode="replicate"), 3, stride=1)


def _around(target, cell):
    """The averages of the 5 x 5 cells around each pixel, of as many as fit into the picture."""
    cell = min(cell, *target.shape[-2:])
    cells = F.pad(F.avg_pool2d(target, cell), (2, 2, 2, 2), mode="replicate")
    wide = F.avg_pool2d(cells, 5, stride=1)
    return F.interpolate(wide, target.shape[-2:], mode="bilinear", align_corners=False)


def pixel_loss(result, target, weight):
    """Mean absolute difference, each pixel counted by its weight."""
    return (weight * (result - target).abs()).mean()


def gradient_loss(result, target, scales=3):
    """Absolute difference of first differences, at full, half and quarter size."""
    total = 0.0
    difference = result - target
    for scale in range(scales):
        if scale:
            difference = F.avg_pool2d(difference, 2)
        rows = (difference[..., 1:, :] - difference[..., :-1, :]).abs().mean()
        columns = (difference[..., 1:] - difference[..., :-1]).abs().mean()
        total = total + 0.5**scale * (rows + columns)
    return total


def coarse_loss(result, target):
    """Absolute difference after averaging 2 x 2 and 4 x 4 pixels."""
    difference = F.avg_pool2d(result - target, 2)
    return difference.abs().mean() + F.avg_pool2d(difference, 2).abs().mean()


def fine_detail(picture):
    """The picture less its average over 3 x 3 pixels."""
    padded = F.pad(picture, (1, 1, 1, 1), mode="reflect")
    return picture - F.avg_pool2d(padded, 3, stride=1)


def detail_strength(picture):
    """Root mean square of the fine detail over the channels and 8 x 8 pixels, at a quarter size."""
    power = F.avg_pool2d((fine_detail(picture) ** 2).mean(dim=1, keepdim=True), 4)
    power = F.avg_pool2d(F.pad(power, (1, 0, 1, 0), mode="replicate"), 2, stride=1)
    return torch.sqrt(power + 1e-7)


def texture_loss(result, target, mask):
    """How far the strength of fine detail in the footprints is from that of the truth."""
    ratio = torch.log(detail_strength(result) / detail_strength(target))
    mask = F.avg_pool2d(mask, 4)
    return (mask * ratio.abs().clamp(max=6.0)).sum() / (mask.sum() + 6.0)


def removal_loss(result, picture, target, weights):
    """The sum of all, by the weights of a LossWeights."""
    loss = pixel_loss(result, target, pixel_weights(picture, target, weights.objects))
    loss = loss + weights.gradient * gradient_loss(result, target)
    loss = loss + weights.coarse * coarse_loss(result, target)
    if weights.texture > 0.0:
        mask = star_mask(picture, target)
        loss = loss + weights.texture * texture_loss(result, target, mask)
    return loss
