"""Comets: a soft head, a fan of dust and a straight tail of gas."""

import torch

from .fields import power_law_field, unit_grid


def comets(dice, batch, size, share=0.03):
    """batch x 3 x size x size light of a comet in that share of the scenes, in units of the sky."""
    light = torch.zeros(batch, 3, size, size, device=dice.device)
    chosen = torch.nonzero(dice.chance(share, batch))[:, 0]
    if chosen.numel():
        light[chosen] = _comet(dice, chosen.numel(), size)
    return light


def _comet(dice, batch, size):
    rows, columns = unit_grid(size, dice.device)
    row = rows - dice.uniform(-0.9, 0.9, batch, 1, 1)
    column = columns - dice.uniform(-0.9, 0.9, batch, 1, 1)
    angle = dice.uniform(0.0, 6.2832, batch, 1, 1)
    along = column * torch.cos(angle) + row * torch.sin(angle)
    across = row * torch.cos(angle) - column * torch.sin(angle)
    distance = torch.sqrt(row**2 + column**2)
    # The head stays wider than any star, else it would be one.
    head_size = dice.log_uniform(0.05, 0.2, batch, 1, 1)
    head = 1.0 / (1.0 + (distance / head_size) ** 2)
    behind = torch.sigmoid(along / head_size * 4.0)
    length = dice.uniform(0.4, 3.0, batch, 1, 1)

    bend = dice.uniform(-0.3, 0.3, batch, 1, 1)
    fan_width = 0.03 + dice.uniform(0.1, 0.5, batch, 1, 1) * along.clamp(min=0.0)
    bent = across - bend * along.clamp(min=0.0) ** 2
    fan = behind * torch.exp(-0.5 * (bent / fan_width) ** 2 - along.clamp(min=0.0) / length)

    rough = power_law_field(dice, torch.full((batch,), 2.8, device=dice.device), size)
    gas_width = 0.015 + dice.uniform(0.02, 0.08, batch, 1, 1) * along.clamp(min=0.0)
    rays = torch.cos(across / gas_width * 3.0 + rough) * 0.35 + 0.65
    gas = behind * rays * torch.exp(
        -0.5 * (across / gas_width) ** 2 - along.clamp(min=0.0) / length
    )

    def tinted(part, colour):
        tint = torch.tensor(colour, device=dice.device)[None, :, None, None]
        return dice.log_uniform(0.2, 8.0, batch, 1, 1, 1) * part[:, None] * tint

    return (
        tinted(head, (0.45, 1.0, 0.75))
        + 0.4 * tinted(fan, (1.0, 0.88, 0.7))
        + 0.4 * tinted(gas, (0.45, 0.65, 1.0))
    )
