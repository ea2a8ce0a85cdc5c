"""Whole scenes: layers of linear light, and the pictures that are developed from them."""

from dataclasses import dataclass

import torch

from .background import sky_background
from .comets import comets
from .fields import convolve
from .galaxies import large_galaxies, small_galaxies
from .nebulae import dust_transmission, emission
from .noise import add_noise
from .optics import draw_optics
from .processing import process_pair
from .stars import star_layer
from .stretch import stretch_pair


@dataclass
class Layers:
    """Linear light behind the same optics; 1 is where the camera saturates.

    sky and stars: batch x 3 x size x size; level: batch, brightness of the empty sky; width:
    batch, full width at half maximum of the seeing in pixels; galaxies: rows of scene, row,
    column, half-light radius of the small galaxies.
    """

    sky: torch.Tensor
    stars: torch.Tensor
    level: torch.Tensor
    width: torch.Tensor
    galaxies: torch.Tensor


def compute_layers(dice, batch, size):
    """Draws the layers of a batch of scenes."""
    optics = draw_optics(dice, batch, size)
    small, catalogue = small_galaxies(dice, batch, size, optics.width)
    objects = emission(dice, batch, size) + large_galaxies(dice, batch, size, optics.width)
    objects = (objects + small) * dust_transmission(dice, batch, size)
    objects = objects + comets(dice, batch, size)
    level = dice.log_uniform(0.0003, 0.06, batch)
    sky = sky_background(dice, batch, size) + objects
    sky = convolve(sky * level[:, None, None, None], optics.transfer).clamp(min=0.0)
    stars = star_layer(dice, batch, size, optics, level)
    return Layers(sky, stars, level, optics.width, catalogue)


def develop(dice, sky, stars, level, star_scale=None):
    """Pictures with and without stars, batch x 3 x rows x columns in [0, 1].

    sky, stars and level are those of Layers, or a part of them. Each call draws another exposure
    and another treatment. Where one cannot be developed into finite numbers, both pictures of it
    are the same grey.
    """
    batch = sky.shape[0]
    if star_scale is None:
        star_scale = dice.log_uniform(0.4, 2.5, batch)
    relative = dice.log_uniform(0.004, 0.2, batch)
    total = sky + star_scale[:, None, None, None] * stars
    noisy, target = add_noise(dice, total, sky, level, relative)
    noisy, target = noisy.clamp(max=1.0), target.clamp(max=1.0)
    noisy, target = stretch_pair(dice, noisy, target)
    noisy, target = process_pair(dice, noisy, target)
    noisy, target = noisy.clamp(0.0, 1.0), target.clamp(0.0, 1.0)
    good = torch.isfinite(noisy + target).flatten(1).all(dim=1)[:, None, None, None]
    grey = torch.full_like(noisy, 0.2)
    return torch.where(good, noisy, grey), torch.where(good, target, grey)
