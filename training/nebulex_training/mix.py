"""How often a scene has what, and a picture of it."""

from dataclasses import dataclass, replace


@dataclass(frozen=True)
class Mix:
    """Shares of the scenes, of their pictures where it says so, that have

    - spirals, ellipticals: a large galaxy of the kind
    - shells: a planetary nebula, a bubble or a remnant
    - galaxy_clusters: a cluster of small galaxies; most_small_galaxies are outside of them
    - deep_fields: up to hundreds of resolved galaxies of all kinds beside few stars
    - bright_stars: bright stars beyond the power law
    - beacons: one star far brighter than all others
    - reflection_nebulae: a nebula that a bright star lights
    - small_reflections, coloured_halos: optics with these
    - long_spikes: spikes that cross the frame
    - dimmed_stars: dust that dims the stars behind it
    - plates: light that spreads in the emulsion around what saturates
    - bright_goals: of the pictures: stretched to a bright sky
    - low_whites: of the pictures: what saturates lies below the white of the file
    - rounded_whites: of the pictures: saturation sets in gradually
    - program_transfers: of the pictures: linear data, stretched as the program does it

    and what holds for all of them:

    - even_light_stays: the even floor of the stars' light counts as sky
    - whole_statistics: a stretch is chosen by the whole scene, not by the part that is cut out
    - whole_galaxies: small galaxies are drawn as far as their light goes
    """

    spirals: float = 0.3
    ellipticals: float = 0.14
    shells: float = 0.18
    galaxy_clusters: float = 0.15
    most_small_galaxies: int = 30
    deep_fields: float = 0.0
    bright_stars: float = 0.65
    beacons: float = 0.0
    reflection_nebulae: float = 0.0
    small_reflections: float = 0.0
    coloured_halos: float = 0.0
    long_spikes: float = 0.0
    dimmed_stars: float = 0.0
    plates: float = 0.0
    bright_goals: float = 0.0
    low_whites: float = 0.0
    rounded_whites: float = 0.0
    program_transfers: float = 0.0
    even_light_stays: bool = False
    whole_statistics: bool = False
    whole_galaxies: bool = False


# The scenes that the first seven networks were measured on.
FORMER = Mix()
USUAL = Mix(
    deep_fields=0.1, beacons=0.03, reflection_nebulae=0.08, small_reflections=0.05,
    coloured_halos=0.08, long_spikes=0.08, dimmed_stars=0.6, plates=0.06, bright_goals=0.12,
    low_whites=0.2, rounded_whites=0.12, program_transfers=0.12,
    even_light_stays=True, whole_statistics=True, whole_galaxies=True,
)  # fmt: skip
# More of what is rare and easily taken for a star, to learn from.
HARD = replace(
    USUAL, spirals=0.4, ellipticals=0.22, shells=0.35, galaxy_clusters=0.3, deep_fields=0.25,
    bright_stars=0.85, reflection_nebulae=0.3, beacons=0.15, small_reflections=0.2,
    coloured_halos=0.3, long_spikes=0.15, plates=0.12, most_small_galaxies=60,
)  # fmt: skip
# Galaxies and few stars, to measure what becomes of them.
DEEP = replace(USUAL, deep_fields=1.0, spirals=0.0, ellipticals=0.0, shells=0.0)
