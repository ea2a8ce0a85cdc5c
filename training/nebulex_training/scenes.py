"""Whole scenes: layers of linear light, and the pictures that are developed from them."""

from dataclasses import dataclass

import torch

from .background import sky_background
from .comets import comets
from .fields import convolve
from .galaxies import large_galaxies, small_galaxies
from .mix import USUAL
from .nebulae import dust_transmission, emission
from .noise import add_noise
from .optics import draw_optics
from .processing import process_pair
from .reflections import reflection_nebulae
from .stars import star_layer
from .stretch import stretch_pair

# Pixels around each frame: what leaves it on one side comes back on the other, as everything that
# comes out of a discrete Fourier transform.
_MARGIN = 32
_BRIGHTEST_SKY = 0.9  # times what saturates


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


def compute_layers(dice, batch, size, mix=USUAL):
    """Draws the layers of a batch of scenes that have things as often as the mix says."""
    wide = size + 2 * _MARGIN
    optics = draw_optics(dice, batch, wide, mix)
    small, catalogue = small_galaxies(dice, batch, wide, optics.width, mix)
    objects = emission(dice, batch, wide, mix) + large_galaxies(
        dice, batch, wide, optics.width, mix
    )
    lit, lighting = reflection_nebulae(dice, batch, wide, mix.reflection_nebulae)
    objects = (objects + small + lit) * dust_transmission(dice, batch, wide)
    objects = objects + comets(dice, batch, wide)
    sky = sky_background(dice, batch, wide) + objects
    sky = convolve(sky, optics.transfer).clamp(min=0.0)
    # People expose so that nothing but stars saturates. The white disc that would be left of a
    # galaxy else is that of a star.
    brightest = sky.flatten(1).amax(dim=1)
    level = torch.minimum(dice.log_uniform(0.0003, 0.06, batch), _BRIGHTEST_SKY / brightest)
    sky = sky * level[:, None, None, None]
    stars = star_layer(dice, batch, wide, optics, level, mix, lighting)
    inside = (..., slice(_MARGIN, _MARGIN + size), slice(_MARGIN, _MARGIN + size))
    # Copies, so that a pool of scenes does not keep their margins.
    return Layers(
        sky[inside].clone(),
        stars[inside].clone(),
        level,
        optics.width,
        _inside_frame(catalogue, size),
    )


def _inside_frame(catalogue, size):
    places = catalogue[:, 1:3] - _MARGIN
    inside = ((places >= 0.0) & (places <= size - 1.0)).all(dim=1)
    return torch.cat((catalogue[:, :1], places, catalogue[:, 3:]), dim=1)[inside]


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
