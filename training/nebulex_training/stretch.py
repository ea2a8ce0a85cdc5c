"""From linear light to a picture: what a person does first, by the picture's own statistics."""

import torch

from .fields import change_some

_MOST_BLACK = 0.012  # share of the pixels that may become black


def mtf(x, midtones):
    """The midtones transfer function: 0 to 0, midtones to 0.5, 1 to 1."""
    return (midtones - 1.0) * x / ((2.0 * midtones - 1.0) * x - midtones)


def stretch_pair(dice, with_stars, without_stars, sample, bright_goals=0.0):
    """Both images through the same stretch, chosen from the statistics of a sample with stars.

    Linear images of any range that saturate at 1 become pictures in [0, 1]. bright_goals is the
    share of those whose sky becomes brighter than most people have it.
    """
    batch = with_stars.shape[0]
    black, median = _black_and_median(dice, sample)
    span = (1.0 - black).clamp(min=1e-3)
    level = ((median - black) / span).clamp(2e-5, 0.9)
    goal = dice.log_uniform(0.05, 0.4, batch, 1, 1, 1)
    if bright_goals:
        bright = dice.uniform(0.4, 0.85, batch, 1, 1, 1)
        goal = torch.where(dice.chance(bright_goals, batch, 1, 1, 1) > 0, bright, goal)
    goal = torch.maximum(goal, level).clamp(max=0.9)  # a stretch never darkens

    midtones = mtf(level, goal)  # the function is its own inverse in this sense
    softening = _asinh_softening(level, goal)
    exponent = (torch.log(goal) / torch.log(level)).clamp(0.1, 1.0)
    kind = dice.uniform(0.0, 1.0, batch)

    def stretched(image):
        x = ((image - black) / span).clamp(0.0, 1.0)
        x = change_some(x, kind < 0.65, mtf, midtones)
        x = change_some(x, (kind >= 0.65) & (kind <= 0.92), _asinh, softening)
        x = change_some(x, kind > 0.92, _power, exponent)
        return x.clamp(0.0, 1.0)

    return stretched(with_stars), stretched(without_stars)


class ProgramTransfer:
    """What the program does to linear data before the network sees it.

    The median of each channel goes to a quarter, what is 2.8 normalised deviations below it, and
    less, to 0. sample: batch x 3 x rows x columns, whose statistics count.
    """

    _SHADOWS, _BACKGROUND = -2.8, 0.25

    def __init__(self, sample):
        values = sample.clamp(max=1.0).flatten(2)
        median = values.median(dim=2, keepdim=True).values
        deviation = 1.4826 * (values - median).abs().median(dim=2, keepdim=True).values
        shadows = (median + self._SHADOWS * deviation).clamp(0.0, 1.0)
        self.shadows = torch.where(deviation > 0.0, shadows, torch.zeros_like(shadows))[..., None]
        self.midtones = mtf(median[..., None] - self.shadows, self._BACKGROUND)

    def on(self, image):
        """batch x 3 x rows x columns linear images stretched, in [0, 1]; not rescaled to white."""
        x = (image.clamp(max=1.0) - self.shadows).clamp(0.0, 1.0)
        return mtf(x, self.midtones)


def _power(x, exponent):
    return x.clamp(min=1e-7) ** exponent


def _asinh(x, softening):
    return torch.asinh(x / softening) / torch.asinh(1.0 / softening)


def _black_and_median(dice, image):
    """Black point and median, batch x 3 x 1 x 1: each channel's own, or one for all channels."""
    sample = image.flatten(2)
    median = sample.median(dim=2).values
    deviation = 1.4826 * (sample - median[:, :, None]).abs().median(dim=2).values
    low = torch.kthvalue(sample, max(1, int(_MOST_BLACK * sample.shape[2])), dim=2).values
    factor = dice.log_uniform(1.3, 8.0, image.shape[0], 1)
    black = torch.minimum(median - factor * deviation.clamp(min=1e-6), low)

    linked = dice.chance(0.55, image.shape[0], 1)
    neutral = dice.chance(0.75, image.shape[0], 1)
    # A linked stretch of a sky that was made grey before keeps the channels' distances equal.
    depth = (median - black).amax(dim=1, keepdim=True)
    linked_black = neutral * (median - depth) + (1.0 - neutral) * black.amin(dim=1, keepdim=True)
    linked_median = neutral * median + (1.0 - neutral) * median.mean(dim=1, keepdim=True)
    black = linked * linked_black + (1.0 - linked) * black
    median = linked * linked_median + (1.0 - linked) * median
    return black[:, :, None, None], median[:, :, None, None]


def _asinh_softening(level, goal):
    """The softening of an asinh stretch that takes level to goal, by bisection."""
    low, high = torch.full_like(level, 1e-7), torch.full_like(level, 50.0)
    for _ in range(40):
        middle = torch.sqrt(low * high)
        value = _asinh(level, middle)
        low = torch.where(value > goal, middle, low)
        high = torch.where(value > goal, high, middle)
    return torch.sqrt(low * high)
