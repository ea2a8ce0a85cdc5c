"""Sets of numbered scenes that measure. No number is used for two purposes, nor to learn from."""

from dataclasses import dataclass

from .dice import Dice
from .mix import DEEP, FORMER, USUAL, Mix
from .scenes import compute_layers, develop


@dataclass(frozen=True)
class SceneSet:
    """Scenes of consecutive numbers, of one mix.

    With one_stream the host draws the same numbers as the device, as it did while the first seven
    networks were made.
    """

    first: int
    count: int
    mix: Mix
    one_stream: bool = False

    def scene(self, number, size):
        """The pictures with and without stars of one scene, counted from 0, and its Layers.

        It is the same in every run.
        """
        if not 0 <= number < self.count:
            raise ValueError(f"The set has scenes 0 to {self.count - 1}, not {number}.")
        seed = self.first + number
        dice = Dice(seed, host_seed=seed if self.one_stream else None)
        layers = compute_layers(dice, 1, size, self.mix)
        return develop(dice, layers.sky, layers.stars, layers.level, mix=self.mix), layers


# Held-out sets are opened once, when everything has been chosen.
SETS = {
    "validation": SceneSet(30_000_000, 400, USUAL),
    "held-out": SceneSet(40_000_000, 200, USUAL),
    "deep-validation": SceneSet(50_000_000, 60, DEEP),
    "deep-held-out": SceneSet(60_000_000, 60, DEEP),
    "former-validation": SceneSet(10_000_000, 100, FORMER, one_stream=True),
    "former-held-out": SceneSet(20_000_000, 200, FORMER, one_stream=True),
}
