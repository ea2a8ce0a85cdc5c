"""Averages of weights: the exponential moving one of a training, and those between two networks."""

import copy

import torch


class AveragedNetwork:
    """A copy of the network that follows it slowly, from the weights that it starts with."""

    def __init__(self, network, decay):
        self.network = copy.deepcopy(network).eval()
        self._decay = decay

    @torch.no_grad()
    def follow(self, network):
        """Moves the average towards the network, by 1 - decay of the way."""
        for mine, theirs in zip(self.network.parameters(), network.parameters()):
            mine.lerp_(theirs, 1.0 - self._decay)


@torch.no_grad()
def blended(network, other, share):
    """A network whose weights lie between those of two: 0 is the first's, 1 the other's.

    Raises ValueError where their shapes differ and for another share. It is worth something where
    one was trained on from the other.
    """
    if not 0.0 <= share <= 1.0:
        raise ValueError("The share is a number from 0 to 1.")
    if network.shape != other.shape:
        raise ValueError("Networks of different shapes have no weights between them.")
    result = copy.deepcopy(network)
    for parameter, aim in zip(result.parameters(), other.parameters()):
        parameter.lerp_(aim, share)
    return result
