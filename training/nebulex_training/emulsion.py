"""What photographic plates make of bright stars: discs that grow, and a ring of halation."""

import torch

from .fields import torus_offsets

_MOST = 50.0  # times what saturates; more exposes no farther


def in_emulsion(dice, light, share):
    """batch x 3 x size x size light as it spreads in emulsions, in so many of the scenes.

    What saturates scatters sideways in the layer, and the glass behind throws a ring of it back.
    A share of 0 draws nothing.
    """
    if share == 0.0:
        return light
    chosen = torch.nonzero(dice.chance(share, light.shape[0]))[:, 0]
    if chosen.numel() == 0:
        return light
    count, size = chosen.numel(), light.shape[-1]
    rows, columns = torus_offsets(size, light.device)
    radius = torch.hypot(rows, columns)[None, None]
    reach = dice.log_uniform(0.8, 5.0, count, 1, 1, 1)
    scatter = _unit_sum(torch.exp(-radius / reach)) * dice.log_uniform(0.1, 1.0, count, 1, 1, 1)
    ring = dice.log_uniform(10.0, 60.0, count, 1, 1, 1)
    beyond = radius / ring - 1.0
    edge = dice.uniform(0.1, 0.4, count, 1, 1, 1)
    halation = torch.sigmoid(beyond / 0.05) * torch.exp(-beyond / edge)
    halation = _unit_sum(halation) * dice.log_uniform(0.02, 0.4, count, 1, 1, 1)
    excess = (light[chosen].clamp(max=_MOST) - 1.0).clamp(min=0.0)
    transfer = torch.fft.rfft2(scatter + halation)
    spread = torch.fft.irfft2(torch.fft.rfft2(excess) * transfer, s=(size, size))
    result = light.clone()
    result[chosen] = result[chosen] + spread.clamp(min=0.0)
    return result


def _unit_sum(kernel):
    return kernel / kernel.flatten(2).sum(dim=2)[:, :, None, None]
