"""Photon and read noise, of the same realisation with and without stars."""

import torch
import torch.nn.functional as F

from .fields import gaussian_blur, change_some


def add_noise(dice, with_stars, without_stars, sky_level, relative):
    """Both images with noise.

    The noise of the sky has a standard deviation of relative times sky_level (each batch), of
    which a drawn share is read noise. Its pattern is the same in both images; where stars shine,
    their photons make more of it.
    """
    batch = with_stars.shape[0]
    pattern = _pattern(dice, with_stars.shape)
    deviation = (relative * sky_level)[:, None, None, None]
    read_share = dice.uniform(0.0, 0.7, batch, 1, 1, 1)
    level = sky_level[:, None, None, None]

    def noise(image):
        photons = (image / level).clamp(min=0.0)
        return deviation * torch.sqrt(read_share + (1.0 - read_share) * photons) * pattern

    return with_stars + noise(with_stars), without_stars + noise(without_stars)


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
