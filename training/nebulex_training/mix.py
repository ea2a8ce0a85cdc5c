"""How often a scene has what."""

from dataclasses import dataclass


@dataclass(frozen=True)
class Mix:
    """Shares of the scenes that have a large spiral, an elliptical, a shell, a cluster of small
    galaxies, bright stars beyond the power law, a nebula that a bright star lights, one star far
    brighter than all others, and optics with a small bright reflection or a strongly coloured
    halo; and the most small galaxies outside of clusters."""

    spirals: float = 0.3
    ellipticals: float = 0.14
    shells: float = 0.18
    galaxy_clusters: float = 0.15
    bright_stars: float = 0.65
    reflection_nebulae: float = 0.0
    beacons: float = 0.0
    small_reflections: float = 0.0
    coloured_halos: float = 0.0
    most_small_galaxies: int = 30


USUAL = Mix()
# More of what is rare and easily taken for a star, to learn from.
HARD = Mix(
    spirals=0.4, ellipticals=0.22, shells=0.35, galaxy_clusters=0.3, bright_stars=0.85,
    reflection_nebulae=0.3, beacons=0.15, small_reflections=0.2, coloured_halos=0.3,
    most_small_galaxies=60,
)
