"""Nebulae: emission, reflection, shells, filaments, and the dust that hides what is behind it."""

import torch

from .fields import power_law_field, unit_grid, warped_field

# What one unit of light of a source looks like in red, green and blue.
HYDROGEN = (1.00, 0.16, 0.24)
OXYGEN = (0.08, 0.72, 0.70)
SULFUR = (1.00, 0.10, 0.08)
REFLECTION = (0.38, 0.55, 1.00)
DUST_LIGHT = (0.75, 0.55, 0.40)
_SOURCES = (HYDROGEN, HYDROGEN, OXYGEN, SULFUR, REFLECTION, DUST_LIGHT)

_CLOUDS = 3  # that a scene has at most

# Dust takes more blue light than red.
_EXTINCTION = (0.75, 1.00, 1.32)


def emission(dice, batch, size, mix):
    """batch x 3 x size x size light of gas and lit dust, in units of the sky's brightness.

    The Mix says how often there is a shell.
    """
    light = torch.zeros(batch, 3, size, size, device=dice.device)
    for layer in range(_CLOUDS):
        present = dice.chance(0.85 if layer == 0 else 0.55, batch, 1, 1, 1)
        strength = dice.log_uniform(0.08, 15.0, batch, 1, 1, 1)
        cloud = _cloud(dice, batch, size)[:, None]
        light += present * strength * cloud * _colour(dice, batch)
    return light + _shells(dice, batch, size, mix.shells)


def dust_transmission(dice, batch, size):
    """batch x 3 x size x size share of the light behind that the dust lets through."""
    slope = dice.uniform(2.9, 4.0, batch)
    field = warped_field(dice, slope, size, dice.uniform(0.0, 0.06, batch))
    threshold = dice.uniform(-0.5, 1.8, batch)[:, None, None]
    # A soft edge is a veil; a sharp one is the rim of a dark cloud.
    sharpness = dice.log_uniform(1.5, 40.0, batch)[:, None, None]
    thickness = torch.nn.functional.softplus((field - threshold) * sharpness) / sharpness
    depth = dice.chance(0.55, batch, 1, 1) * dice.log_uniform(0.1, 6.0, batch, 1, 1)
    steep = dice.chance(0.3, batch, 1, 1)
    thickness = steep * torch.sigmoid((field - threshold) * sharpness) + (1.0 - steep) * thickness
    colour = torch.tensor(_EXTINCTION, device=dice.device)[None, :, None, None]
    return torch.exp(-(depth * thickness)[:, None] * colour)


def _colour(dice, batch):
    """batch x 3 x 1 x 1 colours near those of the sources of light."""
    palette = torch.tensor(_SOURCES, device=dice.device)
    colour = palette[dice.integers(0, len(_SOURCES), batch)]
    mixed = palette[dice.integers(0, len(_SOURCES), batch)]
    share = dice.uniform(0.0, 0.35, batch, 1)
    colour = (1.0 - share) * colour + share * mixed
    return (colour * torch.exp(0.2 * dice.normal(batch, 3)))[:, :, None, None]


def _cloud(dice, batch, size):
    """batch x size x size clouds of about unit brightness, never negative."""
    slope = dice.uniform(2.8, 4.2, batch)
    field = warped_field(dice, slope, size, dice.uniform(0.0, 0.08, batch))
    place = power_law_field(dice, torch.full((batch,), 4.2, device=dice.device), size)
    envelope = torch.sigmoid(dice.uniform(1.0, 4.0, batch, 1, 1) * (place + 0.3))

    contrast = dice.uniform(0.4, 1.1, batch, 1, 1)
    billows = torch.exp((contrast * field).clamp(max=3.2))
    threshold = dice.uniform(-1.2, 0.6, batch, 1, 1)
    islands = (field - threshold).clamp(min=0.0) ** dice.uniform(0.7, 2.0, batch, 1, 1)
    # Ridges along the zero lines of a smoother field, else they would be as frayed as a coast.
    smooth = warped_field(dice, slope.clamp(min=3.6), size, dice.uniform(0.02, 0.1, batch))
    width = dice.log_uniform(0.05, 0.4, batch, 1, 1)
    filaments = 2.5 / (1.0 + (smooth / width) ** 2) * billows
    sharpness = dice.log_uniform(3.0, 40.0, batch, 1, 1)
    rims = torch.sigmoid(sharpness * (field - threshold)) * (0.5 + 0.5 * billows)

    kinds = torch.stack((billows, islands, filaments, rims), dim=1)
    chosen = dice.integers(0, 4, batch)
    picked = kinds[torch.arange(batch, device=dice.device), chosen]
    return envelope * picked


def _shells(dice, batch, size, share):
    """Planetary nebulae, bubbles and supernova remnants: uneven rings with a lit inside."""
    rows, columns = unit_grid(size, dice.device)
    present = dice.chance(share, batch, 1, 1)
    centre_row = dice.uniform(-0.9, 0.9, batch, 1, 1)
    centre_column = dice.uniform(-0.9, 0.9, batch, 1, 1)
    radius = dice.log_uniform(0.03, 0.8, batch, 1, 1)
    squeeze = dice.uniform(0.6, 1.0, batch, 1, 1)
    slope = dice.uniform(3.0, 3.8, batch)
    rough = warped_field(dice, slope, size, torch.full_like(slope, 0.03))
    bent = dice.uniform(0.0, 0.15, batch, 1, 1) * rough
    distance = torch.sqrt((rows - centre_row) ** 2 + ((columns - centre_column) / squeeze) ** 2)
    scaled = distance / radius + bent
    thickness = dice.log_uniform(0.04, 0.4, batch, 1, 1)
    uneven = torch.exp(dice.uniform(0.1, 0.9, batch, 1, 1) * rough.clamp(-3.0, 3.0))
    rim = torch.exp(-0.5 * ((scaled - 1.0) / thickness) ** 2) * uneven
    inside = torch.sigmoid((1.0 - scaled) * 12.0) * dice.uniform(0.0, 0.6, batch, 1, 1)
    strength = present * dice.log_uniform(0.1, 40.0, batch, 1, 1)
    outer = (strength * rim)[:, None] * _colour(dice, batch)
    return outer + (strength * inside)[:, None] * _colour(dice, batch)
