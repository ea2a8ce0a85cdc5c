"""Random draws on a device, all from one seeded generator."""

import math

import torch


class Dice:
    """Draws tensors of random numbers. The same seed on the same device gives the same draws."""

    def __init__(self, seed, device="cpu"):
        self.device = torch.device(device)
        self.generator = torch.Generator(device=self.device)
        self.generator.manual_seed(seed)

    def uniform(self, low, high, *shape):
        """Numbers between low and high, evenly spread."""
        return low + (high - low) * torch.rand(
            shape, generator=self.generator, device=self.device
        )

    def log_uniform(self, low, high, *shape):
        """Numbers between low and high whose logarithms are evenly spread."""
        return torch.exp(self.uniform(math.log(low), math.log(high), *shape))

    def normal(self, *shape):
        """Gaussian numbers of mean 0 and standard deviation 1."""
        return torch.randn(shape, generator=self.generator, device=self.device)

    def chance(self, probability, *shape):
        """1.0 with the probability, 0.0 otherwise."""
        return (self.uniform(0.0, 1.0, *shape) < probability).float()

    def integers(self, low, high, *shape):
        """Whole numbers from low to high - 1."""
        return torch.randint(low, high, shape, generator=self.generator, device=self.device)

    def whole(self, low, high):
        """One whole number from low to high - 1, as an int."""
        return int(self.integers(low, high, 1).item())

    def one(self, low, high):
        """One number between low and high, as a float."""
        return float(self.uniform(low, high, 1).item())

    def happens(self, probability):
        """True with the probability."""
        return self.one(0.0, 1.0) < probability

    def state(self):
        """What set_state() takes to go on from here."""
        return self.generator.get_state()

    def set_state(self, state):
        """Goes on where the Dice that gave the state stood."""
        self.generator.set_state(state.cpu())
