"""Reflection nebulae: dust that one bright star amid it lights."""

import torch

from .fields import power_law_field, unit_grid, warped_field
from .nebulae import REFLECTION


def reflection_nebulae(dice, batch, size, share):
    """A nebula around a star, in so many of the scenes.

    Returns batch x 3 x size x size light in units of the sky's brightness, and one row of scene,
    row and column for each star that has to stand in it. A share of 0 draws nothing.
    """
    if share == 0.0:
        empty = torch.zeros(0, 3, device=dice.device)
        return torch.zeros(batch, 3, size, size, device=dice.device), empty
    present = dice.chance(share, batch, 1, 1)
    centre_row, centre_column = (dice.uniform(-0.9, 0.9, batch, 1, 1) for _ in range(2))
    strength = present * dice.log_uniform(2.0, 80.0, batch, 1, 1)
    shape = _cloud(dice, batch, size, centre_row, centre_column)
    tint = torch.tensor(REFLECTION, device=dice.device) * torch.exp(0.3 * dice.normal(batch, 3))
    light = (strength * shape)[:, None] * tint[:, :, None, None]
    scene = torch.nonzero(present[:, 0, 0])[:, 0]
    row, column = (
        (0.5 * (centre[scene, 0, 0] + 1.0) * size - 0.5) for centre in (centre_row, centre_column)
    )
    return light, torch.stack((scene.float(), row, column), dim=1)


def _cloud(dice, batch, size, star_row, star_column):
    """batch x size x size light that fades away from the star, too uneven to be its halo."""
    rows, columns = unit_grid(size, dice.device)
    reach = dice.log_uniform(14.0, 90.0, batch, 1, 1) * (2.0 / size)
    row = rows - star_row - 0.5 * reach * dice.normal(batch, 1, 1)
    column = columns - star_column - 0.5 * reach * dice.normal(batch, 1, 1)
    fall = (1.0 + (row**2 + column**2) / reach**2) ** -dice.uniform(0.8, 2.5, batch, 1, 1)
    field = warped_field(dice, dice.uniform(2.9, 3.8, batch), size, dice.uniform(0.0, 0.06, batch))
    billows = torch.exp((dice.uniform(0.8, 1.3, batch, 1, 1) * field).clamp(max=2.5))
    place = power_law_field(dice, dice.uniform(3.2, 4.2, batch), size)
    rim = torch.sigmoid(dice.uniform(1.5, 8.0, batch, 1, 1) * (place + 0.3))
    return fall * billows * rim
