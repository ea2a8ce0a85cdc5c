"""What the training makes small: wrong pixels, wrong edges, and fillings without texture."""

import torch
import torch.nn.functional as F

CHANGED = 0.01  # a pixel that a star changed by more counts as the star's
_COMPACT = 0.03  # what rises so much above its wider surroundings could be taken for a star,
_FAINTEST = 0.012  # and so much where nothing else does,
_OUTSTANDING = 3.0  # more than so many mean deviations: 2.4 standard ones of even noise
_BRIGHT = 0.06  # what rises less than this there counts more, in proportion
_WHITE = 0.7  # what is so bright in all channels could be taken for the core of a star
_CELL = 8  # pixels; surroundings are 5 x 5 cells


def star_mask(picture, target):
    """batch x 1 x rows x columns: 1 where stars changed a channel."""
    return ((picture - target).abs().amax(dim=1, keepdim=True) > CHANGED).float()


def compact_light(target):
    """batch x 1 x rows x columns: above 0 where the target itself has what looks like a star.

    It is 1 where that is bright and up to 5 where it is faint and stands alone: small galaxies and
    knots are few pixels of a scene, and little light; a network that is not asked for them takes
    them all away.
    """
    fine = F.avg_pool2d(F.pad(target, (1, 1, 1, 1), mode="replicate"), 3, stride=1)
    rise = fine - _wide(target)
    alone = rise * (rise > _OUTSTANDING * _wide(rise.abs()))
    rise, alone = (plane.amax(dim=1, keepdim=True) for plane in (rise, alone))
    times = (_BRIGHT / alone.clamp(min=_FAINTEST)).clamp(min=1.0)
    return torch.maximum((rise > _COMPACT).float(), (alone > _FAINTEST) * times)


def _wide(picture):
    """Averages of the wider surroundings, of the picture's size."""
    cells = F.pad(F.avg_pool2d(picture, _CELL), (2, 2, 2, 2), mode="replicate")
    return F.interpolate(F.avg_pool2d(cells, 5, stride=1), picture.shape[-2:], mode="bilinear")


def pixel_weights(mask, target, weights):
    """batch x 1 x rows x columns: how much the pixels count, by the weights of a LossWeights.

    White pixels that stay, as in the core of a galaxy, have a weight of their own.
    """
    white = (target.amin(dim=1, keepdim=True) > _WHITE).float()
    kinds = ((weights.star, mask), (weights.white, white), (weights.compact, compact_light(target)))
    return torch.stack([1.0 + (weight - 1.0) * times for weight, times in kinds]).amax(dim=0)


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
