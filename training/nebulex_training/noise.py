"""Photon and read noise, of the same realisation with and without stars."""

from dataclasses import dataclass

import torch
import torch.nn.functional as F

from .fields import gaussian_blur, change_some


@dataclass
class Noise:
    """The noise of each exposure of a batch.

    pattern: of deviation 1 for each pixel; deviation, level: batch x 1 x 1 x 1, that of the sky's
    noise and the sky's brightness; read_share: the share of read noise in it.
    """

    pattern: torch.Tensor
    deviation: torch.Tensor
    level: torch.Tensor
    read_share: torch.Tensor

    def on(self, image, pattern=None):
        """The image with noise, of another pattern if one is given."""
        photons = (image / self.level).clamp(min=0.0)
        strength = torch.sqrt(self.read_share + (1.0 - self.read_share) * photons)
        return image + self.deviation * strength * (self.pattern if pattern is None else pattern)


def draw_noise(dice, shape, sky_level, relative):
    """Noise for exposures of a batch x 3 x rows x columns shape.

    That of the sky has a standard deviation of relative times sky_level (each batch), of which a
    drawn share is read noise. Images with and without stars get the same pattern; where stars
    shine, their photons make more of it.
    """
    pattern = _pattern(dice, shape)
    level = sky_level[:, None, None, None]
    read_share = dice.uniform(0.0, 0.7, shape[0], 1, 1, 1)
    return Noise(pattern, relative[:, None, None, None] * level, level, read_share)


def _pattern(dice, shape):
    """Gaussian noise of deviation 1 as it is after debayering, registration or drizzling."""
    batch = shape[0]
    pattern = dice.normal(*shape)
    kind = dice.uniform(0.0, 1.0, batch)
    debayered = kind > 0.65
    pattern = change_some(pattern, debayered, lambda part: _unit(_debayered(part)))
    wide, narrow = dice.uniform(0.35, 1.3, batch), dice.uniform(0.3, 0.7, batch)
    sigma = torch.where(debayered, narrow, wide)
    smooth = ((kind > 0.35) & ~debayered) | (kind > 0.85)
    pattern = change_some(pattern, smooth, lambda part, s: _unit(gaussian_blur(part, s)), sigma)
    rows = dice.chance(0.05, batch, 1, 1, 1) * 0.3 * dice.normal(batch, 1, shape[2], 1)
    return pattern + rows


def _unit(pattern):
    return pattern / pattern.flatten(1).std(dim=1).clamp(min=1e-6)[:, None, None, None]


def _debayered(white):
    """Bilinear interpolation of the noise of a sensor with a red, green, green, blue mosaic."""
    height, width = white.shape[2:]
    mask = torch.zeros(1, 3, height, width, device=white.device)
    mask[:, 0, 0::2, 0::2] = 1.0
    mask[:, 1, 0::2, 1::2] = 1.0
    mask[:, 1, 1::2, 0::2] = 1.0
    mask[:, 2, 1::2, 1::2] = 1.0
    corners = torch.tensor(((1.0, 2.0, 1.0), (2.0, 4.0, 2.0), (1.0, 2.0, 1.0))) / 4.0
    cross = torch.tensor(((0.0, 1.0, 0.0), (1.0, 4.0, 1.0), (0.0, 1.0, 0.0))) / 4.0
    kernel = torch.stack((corners, cross, corners))[:, None].to(white.device)
    return F.conv2d(F.pad(white * mask, (1, 1, 1, 1), mode="reflect"), kernel, groups=3)
