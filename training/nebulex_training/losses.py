"""What the training makes small: wrong pixels, wrong edges, and fillings without texture."""

import torch
import torch.nn.functional as F

CHANGED = 0.01  # a pixel that a star changed by more counts as the star's
_COMPACT = 0.03  # what rises so much above its wider surroundings could be taken for a star
_WHITE = 0.7  # what is so bright in all channels could be taken for the core of a star
_CELL = 8  # pixels; surroundings are 5 x 5 cells


def star_mask(picture, target):
    """batch x 1 x rows x columns: 1 where stars changed a channel."""
    return ((picture - target).abs().amax(dim=1, keepdim=True) > CHANGED).float()


def compact_mask(target):
    """batch x 1 x rows x columns: 1 where the target itself has what looks like a star.

    Small galaxies, knots and cores are few pixels of a scene; a network that is not asked for them
    takes them all away.
    """
    fine = F.avg_pool2d(F.pad(target, (1, 1, 1, 1), mode="replicate"), 3, stride=1)
    cells = F.pad(F.avg_pool2d(target, _CELL), (2, 2, 2, 2), mode="replicate")
    wide = F.interpolate(F.avg_pool2d(cells, 5, stride=1), target.shape[-2:], mode="bilinear")
    return ((fine - wide).amax(dim=1, keepdim=True) > _COMPACT).float()


def pixel_weights(mask, target, weights):
    """batch x 1 x rows x columns: how much the pixels count, by the weights of a LossWeights.

    White pixels that stay, as in the core of a galaxy, have a weight of their own.
    """
    white = (target.amin(dim=1, keepdim=True) > _WHITE).float()
    kinds = ((weights.star, mask), (weights.white, white), (weights.compact, compact_mask(target)))
    return torch.stack([1.0 + (weight - 1.0) * where for weight, where in kinds]).amax(dim=0)


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
    mask = star_mask(picture, target)
    loss = pixel_loss(result, target, pixel_weights(mask, target, weights))
    loss = loss + weights.gradient * gradient_loss(result, target)
    loss = loss + weights.coarse * coarse_loss(result, target)
    if weights.texture > 0.0:
        loss = loss + weights.texture * texture_loss(result, target, mask)
    return loss
