"""The sky between the objects: air glow, gradients, moonlight, amplifier glow."""

import torch

from .fields import unit_grid


def sky_background(dice, batch, size):
    """batch x 3 x size x size images in units of the mean sky brightness, about 1 everywhere."""
    level = 1.0 + 0.15 * dice.normal(batch, 3, 1, 1).clamp(-2.5, 2.5)
    return level * (1.0 + _gradient(dice, batch, size)) + _amplifier_glow(dice, batch, size)


def _gradient(dice, batch, size):
    """Light pollution and moonlight: a plane and a bow, a little different for each colour."""
    rows, columns = unit_grid(size, dice.device)
    angle = dice.uniform(0.0, 6.2832, batch, 1, 1, 1)
    slope = dice.log_uniform(0.003, 0.5, batch, 1, 1, 1) * dice.uniform(0.6, 1.0, batch, 3, 1, 1)
    along = rows * torch.sin(angle) + columns * torch.cos(angle)
    bow = 0.3 * slope * dice.uniform(-1.0, 1.0, batch, 1, 1, 1)
    return (slope * along + bow * (rows**2 + columns**2)).clamp(min=-0.8)


def _amplifier_glow(dice, batch, size):
    """The warmth of the read-out electronics at one edge, in some frames only."""
    rows, columns = unit_grid(size, dice.device)
    present = dice.chance(0.06, batch, 1, 1, 1)
    side = torch.sign(dice.normal(batch, 1, 1, 1))
    place = dice.uniform(-1.0, 1.0, batch, 1, 1, 1)
    distance = torch.sqrt((columns - side) ** 2 + 0.7 * (rows - place) ** 2)
    reach = dice.uniform(0.05, 0.5, batch, 1, 1, 1)
    strength = dice.log_uniform(0.1, 4.0, batch, 1, 1, 1) * dice.uniform(0.5, 1.0, batch, 3, 1, 1)
    return present * strength * torch.exp(-distance / reach)
