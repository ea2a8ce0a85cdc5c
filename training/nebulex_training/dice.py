"""Random draws on a device, all from one seeded generator."""

import hashlib
import math

import torch


class Dice:
    """Draws random numbers. The same seed on the same kind of device gives the same draws.

    Tensors are drawn on the device; single numbers on the host, which would else have to wait for
    the device each time. The host has a stream of its own: with the device's, draws that ought to
    be independent are equal. host_seed chooses another one.
    """

    def __init__(self, seed, device="cpu", host_seed=None):
        self.device = torch.device(device)
        self.generator = torch.Generator(device=self.device)
        self.generator.manual_seed(seed)
        self._host = torch.Generator()
        self._host.manual_seed(_host_seed(seed) if host_seed is None else host_seed)

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

    def one(self, low, high):
        """One number between low and high, as a float."""
        return low + (high - low) * float(torch.rand(1, generator=self._host))

    def one_log(self, low, high):
        """One number between low and high whose logarithm is evenly spread, as a float."""
        return math.exp(self.one(math.log(low), math.log(high)))

    def whole(self, low, high):
        """One whole number from low to high - 1, as an int."""
        return int(torch.randint(low, high, (1,), generator=self._host))

    def happens(self, probability):
        """True with the probability."""
        return self.one(0.0, 1.0) < probability

    def state(self):
        """What set_state() takes to go on from here."""
        return {"device": self.generator.get_state(), "host": self._host.get_state()}

    def set_state(self, state):
        """Goes on where the Dice that gave the state stood."""
        self.generator.set_state(state["device"].cpu())
        self._host.set_state(state["host"].cpu())


def _host_seed(seed):
    """A seed that shares nothing with the given one."""
    digest = hashlib.blake2b(f"host {seed}".encode(), digest_size=7).digest()
    return int.from_bytes(digest, "big")
