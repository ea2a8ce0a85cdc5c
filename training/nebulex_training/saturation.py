"""How a camera or a plate runs into its limit, and where that lies in the file."""

from dataclasses import dataclass

import torch

_FOURTEEN_BITS = 0.25  # of the range of 16


@dataclass
class Saturation:
    """The limit of each picture of a batch: 1 in linear light.

    white: batch x 1 x 1 x 1, where it lies between 0 and the white of the file, 1; hardness: the
    same shape, how late it sets in where rounded is 1; where that is 0 it is a clip.
    """

    white: torch.Tensor
    hardness: torch.Tensor
    rounded: torch.Tensor

    def on(self, pictures):
        """batch x 3 x rows x columns linear pictures as they are recorded."""
        light = pictures.clamp(min=0.0)
        gradual = light / (1.0 + light**self.hardness) ** (1.0 / self.hardness)
        gradual = torch.where(pictures > 0.0, gradual, pictures)
        return self.white * torch.where(self.rounded > 0, gradual, pictures.clamp(max=1.0))


def draw_saturation(dice, batch, mix):
    """Limits as often low or gradual as the Mix says; with shares of 0 nothing is drawn."""
    ones = torch.ones(batch, 1, 1, 1, device=dice.device)
    white, hardness, rounded = ones, ones, torch.zeros_like(ones)
    if mix.low_whites:
        low = torch.where(
            dice.chance(0.3, batch, 1, 1, 1) > 0,
            _FOURTEEN_BITS * ones,
            dice.uniform(0.3, 1.0, batch, 1, 1, 1),
        )
        white = torch.where(dice.chance(mix.low_whites, batch, 1, 1, 1) > 0, low, ones)
    if mix.rounded_whites:
        hardness = dice.log_uniform(1.0, 6.0, batch, 1, 1, 1)
        rounded = dice.chance(mix.rounded_whites, batch, 1, 1, 1)
    return Saturation(white, hardness, rounded)


def fading(dice, batch, share):
    """batch x 1 x 1 x 1 factors of 0.3 to 1 on finished pictures, 1 for all but such a share."""
    ones = torch.ones(batch, 1, 1, 1, device=dice.device)
    if share == 0.0:
        return ones
    chosen = dice.chance(share, batch, 1, 1, 1)
    return torch.where(chosen > 0, dice.uniform(0.3, 1.0, batch, 1, 1, 1), ones)
