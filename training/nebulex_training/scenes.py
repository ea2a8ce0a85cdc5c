"""Whole scenes: layers of linear light, and the pictures that are developed from them."""

from dataclasses import dataclass

import torch

from .background import sky_background
from .comets import comets
from .deep_fields import deep_fields
from .fields import convolve
from .galaxies import large_galaxies, small_galaxies
from .mix import FORMER
from .nebulae import dust_transmission, emission
from .noise import draw_noise
from .optics import draw_optics
from .processing import process_pair
from .reflections import reflection_nebulae
from .saturation import draw_saturation, fading
from .stars import Surroundings, star_layer
from .stretch import ProgramTransfer, stretch_pair

# Pixels around each frame: what leaves it on one side comes back on the other, as everything that
# comes out of a discrete Fourier transform.
_MARGIN = 32
_BRIGHTEST_SKY = 0.9  # times what saturates


@dataclass
class Layers:
    """Linear light behind the same optics; 1 is where the camera saturates.

    sky and stars: batch x 3 x size x size; level: batch, brightness of the empty sky; width:
    batch, full width at half maximum of the seeing in pixels; galaxies: rows of scene, row,
    column, half-light radius of the small galaxies and of those of deep fields.
    """

    sky: torch.Tensor
    stars: torch.Tensor
    level: torch.Tensor
    width: torch.Tensor
    galaxies: torch.Tensor


def compute_layers(dice, batch, size, mix=FORMER):
    """Draws the layers of a batch of scenes that have things as often as the mix says."""
    wide = size + 2 * _MARGIN
    optics = draw_optics(dice, batch, wide, mix)
    small, catalogue = small_galaxies(dice, batch, wide, optics.width, mix)
    nebulae = emission(dice, batch, wide, mix)
    large = large_galaxies(dice, batch, wide, optics.width, mix)
    lit, lighting = reflection_nebulae(dice, batch, wide, mix.reflection_nebulae)
    deep, many, is_deep = deep_fields(dice, batch, wide, optics.width, mix.deep_fields)
    dust = dust_transmission(dice, batch, wide)
    nebulae, dust = _clear_of_the_milky_way(dice, is_deep, nebulae, dust)
    objects = (nebulae + large + small + lit + deep) * dust
    catalogue = torch.cat((catalogue, many))
    objects = objects + comets(dice, batch, wide)
    sky = sky_background(dice, batch, wide) + objects
    sky = convolve(sky, optics.transfer).clamp(min=0.0)
    # People expose so that nothing but stars saturates. The white disc that would be left of a
    # galaxy else is that of a star.
    brightest = sky.flatten(1).amax(dim=1)
    level = torch.minimum(dice.log_uniform(0.0003, 0.06, batch), _BRIGHTEST_SKY / brightest)
    sky = sky * level[:, None, None, None]
    around = Surroundings(level, lighting, is_deep, dust)
    stars = star_layer(dice, batch, wide, optics, around, mix)
    inside = (..., slice(_MARGIN, _MARGIN + size), slice(_MARGIN, _MARGIN + size))
    # Copies, so that a pool of scenes does not keep their margins.
    return Layers(
        sky[inside].clone(),
        stars[inside].clone(),
        level,
        optics.width,
        _inside_frame(catalogue, size),
    )


def _clear_of_the_milky_way(dice, is_deep, nebulae, dust):
    """The nebulae and the dust, without either in most deep fields."""
    if not bool(is_deep.any()):
        return nebulae, dust
    clear = is_deep & (dice.chance(0.85, is_deep.numel()) > 0)
    clear = clear[:, None, None, None]
    return torch.where(clear, torch.zeros(1).to(nebulae), nebulae), torch.where(
        clear, torch.ones(1).to(dust), dust
    )


def _inside_frame(catalogue, size):
    places = catalogue[:, 1:3] - _MARGIN
    inside = ((places >= 0.0) & (places <= size - 1.0)).all(dim=1)
    return torch.cat((catalogue[:, :1], places, catalogue[:, 3:]), dim=1)[inside]


def develop(dice, sky, stars, level, star_scale=None, mix=FORMER, whole=None):
    """Pictures with and without stars, batch x 3 x rows x columns in [0, 1].

    sky, stars and level are those of Layers, or a part of them; whole is then a pair of coarse
    samples of all of sky and of stars (coarse_sample()), by which the stretch is chosen. Each call
    draws another exposure and another treatment, as often as the mix says. Where one cannot be
    developed into finite numbers, both pictures of it are the same grey.
    """
    batch = sky.shape[0]
    if star_scale is None:
        star_scale = dice.log_uniform(0.4, 2.5, batch)
    relative = dice.log_uniform(0.004, 0.2, batch)
    scale = star_scale[:, None, None, None]
    total = sky + scale * stars
    if mix.even_light_stays:
        sky = sky + scale * even_floor(stars)
    noise = draw_noise(dice, total.shape, level, relative)
    saturation = draw_saturation(dice, batch, mix)
    noisy, target = saturation.on(noise.on(total)), saturation.on(noise.on(sky))
    if mix.whole_statistics and whole is not None:
        sample = whole[0] + scale * whole[1]
        sample = saturation.on(noise.on(sample, dice.normal(*sample.shape)))
    else:
        sample = coarse_sample(noisy, 3)
    stretched = stretch_pair(dice, noisy, target, sample, mix.bright_goals)
    noisy_done, target_done = process_pair(dice, *stretched)
    faded = fading(dice, batch, mix.low_whites)
    noisy_done, target_done = faded * noisy_done, faded * target_done
    if mix.program_transfers:
        linear = dice.chance(mix.program_transfers, batch, 1, 1, 1) > 0
        transfer = ProgramTransfer(sample)
        noisy_done = torch.where(linear, transfer.on(noisy), noisy_done)
        target_done = torch.where(linear, transfer.on(target), target_done)
    return _same_grey_where_not_finite(noisy_done.clamp(0.0, 1.0), target_done.clamp(0.0, 1.0))


def _same_grey_where_not_finite(noisy, target):
    good = torch.isfinite(noisy + target).flatten(1).all(dim=1)[:, None, None, None]
    grey = torch.full_like(noisy, 0.2)
    return torch.where(good, noisy, grey), torch.where(good, target, grey)


def even_floor(stars):
    """batch x 3 x 1 x 1: starlight that is on every pixel, which nobody could tell from sky."""
    return stars.flatten(2).amin(dim=2)[:, :, None, None]


def coarse_sample(image, step=4):
    """Every step-th pixel of every step-th row."""
    return image[..., ::step, ::step]
