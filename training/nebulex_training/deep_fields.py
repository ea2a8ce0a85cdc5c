"""Deep fields: galaxies of all kinds, sizes and inclinations, mergers, clusters and arcs.

They have steep cores and may be round, as no other galaxy of few star widths here: beside sharp
stars a galaxy of 5 pixels is none, however bright.
"""

import math

import torch

from .galaxies import OLD_LIGHT, YOUNG_LIGHT, add_stamps, colours, sersic
from .stamps import size_classes

_MOST_WIDTH = 4.5  # pixels of seeing; in wider ones only large galaxies could be told from stars
_SMALLEST, _LARGEST = 1.0, 40.0  # pixels, half-light radii
_BRIGHTEST = 400.0  # times the sky
_STAMPS = (32, 64, 128, 320)  # pixels, for radii of up to a tenth of them
_CATALOGUED = 1.2  # pixels; smaller galaxies are not measured


def deep_fields(dice, batch, size, width, share):
    """Deep fields in so many of the scenes; none where the stars are too wide for them.

    width holds the full width at half maximum of each scene's stars. Returns batch x 3 x size x
    size light in units of the sky, a catalogue as small_galaxies() gives it, and batch booleans:
    which scenes are one. A share of 0 draws nothing.
    """
    light = torch.zeros(batch, 3, size, size, device=dice.device)
    empty = torch.zeros(0, 4, device=dice.device)
    if share == 0.0:
        return light, empty, torch.zeros(batch, dtype=torch.bool, device=dice.device)
    chosen = (dice.chance(share, batch) > 0) & (width <= _MOST_WIDTH)
    rows = []
    for scene in torch.nonzero(chosen)[:, 0].tolist():
        light[scene], catalogue = _field(dice, size, float(width[scene]))
        rows.append(torch.cat((torch.full_like(catalogue[:, :1], scene), catalogue), dim=1))
    return light, torch.cat(rows) if rows else empty, chosen


def _field(dice, size, width):
    """3 x size x size light of one field, and rows of row, column and half-light radius."""
    count = int(dice.one_log(30.0, 500.0) * (size / 512) ** 2) + 4
    place = dice.uniform(0.0, size - 1.0, count, 2)
    radius = _radii(dice, count, dice.one(1.0, 1.8))
    brightness = torch.exp(dice.one(-1.5, 1.0) + 0.9 * dice.normal(count))
    red = dice.uniform(0.0, 1.0, count)
    light = torch.zeros(3, size, size, device=dice.device)
    if dice.happens(0.4):
        members, glow = _cluster(dice, size)
        place = torch.cat((place, members[:, :2]))
        radius = torch.cat((radius, members[:, 2]))
        brightness = torch.cat((brightness, members[:, 3]))
        red = torch.cat((red, dice.uniform(0.85, 1.0, len(members))))
        light = light + glow
    partner = dice.uniform(0.0, 1.0, radius.numel()) < 0.06
    merging = int(partner.sum())
    beside = radius[partner, None] * dice.uniform(0.8, 2.0, merging, 1) * _unit(dice, merging)
    place = torch.cat((place, place[partner] + beside))
    radius = torch.cat((radius, radius[partner] * dice.uniform(0.5, 1.0, merging)))
    brightness = torch.cat((brightness, brightness[partner]))
    red = torch.cat((red, red[partner]))
    light = light + _tails(dice, size, place[-merging:] if merging else place[:0],
                           radius[-merging:] if merging else radius[:0])  # fmt: skip
    inside = ((place >= 0.0) & (place <= size - 1.0)).all(dim=1)
    place, radius, brightness, red = (x[inside] for x in (place, radius, brightness, red))
    light = light + _galaxies(dice, size, width, place, radius, brightness, red)
    known = radius > _CATALOGUED
    return light, torch.cat((place, radius[:, None]), dim=1)[known]


def _radii(dice, count, exponent):
    """Half-light radii whose number falls with their size to the power of -(1 + exponent)."""
    low, high = _SMALLEST**-exponent, _LARGEST**-exponent
    return (low + (high - low) * dice.uniform(0.0, 1.0, count)) ** (-1.0 / exponent)


def _unit(dice, count):
    angle = dice.uniform(0.0, 2.0 * math.pi, count)
    return torch.stack((torch.sin(angle), torch.cos(angle)), dim=1)


def _cluster(dice, size):
    """Members (row, column, radius, brightness) and the light that they share, with arcs."""
    count = int(dice.one_log(15.0, 120.0))
    centre = size * dice.uniform(0.2, 0.8, 2)
    reach = size * dice.one(0.05, 0.25)
    place = centre + reach * dice.normal(count, 2)
    place[0] = centre  # the brightest in the middle
    radius = _radii(dice, count, 1.2)
    radius[0] = dice.one(10.0, _LARGEST)
    brightness = torch.exp(0.5 + 0.6 * dice.normal(count))
    rows, columns = _grid(size, dice.device)
    distance = torch.hypot(rows - centre[0], columns - centre[1])
    glow = dice.one_log(0.02, 0.6) * (1.0 + (distance / reach) ** 2) ** -dice.one(0.8, 1.5)
    light = glow * colours(dice, 1, OLD_LIGHT, 0.1)[0]
    for _ in range(dice.whole(0, 9)):
        angle = dice.one(0.0, 2.0 * math.pi)
        light = light + _arc(
            dice, rows, columns, centre, dice.one(0.15, 0.9) * reach + 6.0, angle,
            dice.one(0.1, 0.9),
        )  # fmt: skip
    return torch.cat((place, radius[:, None], brightness[:, None]), dim=1), light


def _arc(dice, rows, columns, centre, radius, angle, span):
    """3 x size x size light of an arc around a centre; angle and span in radians."""
    row, column = rows - centre[0], columns - centre[1]
    distance = torch.hypot(row, column)
    turned = torch.atan2(row, column) - angle
    turned = torch.atan2(torch.sin(turned), torch.cos(turned))
    thickness = dice.one_log(0.7, 3.0)
    shape = torch.exp(-0.5 * ((distance - radius) / thickness) ** 2 - (turned / span) ** 4)
    knots = 1.0 + dice.one(0.0, 0.8) * torch.cos(dice.one(8.0, 40.0) * turned)
    return dice.one_log(0.2, 6.0) * shape * knots * colours(dice, 1, YOUNG_LIGHT, 0.15)[0]


def _tails(dice, size, place, radius):
    """The tidal tails of merging galaxies."""
    rows, columns = _grid(size, dice.device)
    light = torch.zeros(3, size, size, device=dice.device)
    for middle, reach in zip(place[:6], radius[:6].tolist()):
        beside = middle + 2.0 * reach * _unit(dice, 1)[0]
        light = light + 0.3 * _arc(
            dice, rows, columns, beside, 2.5 * reach, dice.one(0.0, 6.2832), 0.8
        )
    return light


def _grid(size, device):
    steps = torch.arange(float(size), device=device)
    return steps[:, None], steps[None, :]


def _galaxies(dice, size, width, place, radius, brightness, red):
    """3 x size x size light of galaxies of all kinds."""
    margin = max(_STAMPS)
    wide = size + margin
    light = torch.zeros(3 * wide * wide, device=dice.device)
    for side, chosen in size_classes(radius, _STAMPS, 10.0):
        row, column = place[chosen, 0], place[chosen, 1]
        stamps = _stamps(dice, side, width, radius[chosen], row % 1.0, column % 1.0,
                         brightness[chosen], red[chosen])  # fmt: skip
        shift = (margin - side) // 2
        add_stamps(light, stamps, torch.zeros_like(row).long(), row.floor().long() + shift,
                   column.floor().long() + shift, wide)  # fmt: skip
    half = margin // 2
    return light.reshape(3, wide, wide)[:, half:-half, half:-half]


def _stamps(dice, side, width, radius, row_part, column_part, brightness, red):
    """count x 3 x side x side pictures of galaxies in the middle of the stamps."""
    count = radius.numel()
    steps = torch.arange(side, device=dice.device, dtype=torch.float32) - side // 2
    y = steps[None, :, None] - row_part[:, None, None]
    x = steps[None, None, :] - column_part[:, None, None]
    angle = dice.uniform(0.0, math.pi, count, 1, 1)
    along = x * torch.cos(angle) + y * torch.sin(angle)
    across = y * torch.cos(angle) - x * torch.sin(angle)
    kind = dice.uniform(0.0, 1.0, count)[:, None, None]
    elliptical = kind < 0.25 + 0.35 * red[:, None, None]
    irregular = kind > 0.9
    extent = (radius / width)[:, None, None]
    # A steep round one of few star widths would be the image of a star, here as anywhere.
    lone = extent < 2.0
    flat = torch.where(
        elliptical, dice.uniform(0.45, 1.0, count, 1, 1), dice.uniform(0.12, 1.0, count, 1, 1)
    )
    flat = torch.where(lone, flat.clamp(max=0.6), flat)
    steepest = (1.0 + 2.5 * (extent - 1.0)).clamp(1.0, 6.0)
    index = torch.where(
        elliptical, dice.uniform(1.5, 6.0, count, 1, 1), dice.uniform(0.7, 1.3, count, 1, 1)
    ).minimum(steepest)
    scale = radius[:, None, None]
    soft = 0.35 / scale  # a pixel's own width
    reach = torch.sqrt((along**2 + (across / flat) ** 2) / scale**2 + soft**2)
    shape = sersic(reach, index)
    disc = shape * _pattern(dice, count, along / scale, across / (scale * flat), irregular)
    bulge_share = dice.uniform(0.0, 1.0, count, 1, 1) ** 2 * (extent > 2.0)
    bulge_reach = torch.sqrt((x**2 + y**2) / (0.2 * scale) ** 2 + soft**2 / 0.04)
    bulge = sersic(bulge_reach, dice.uniform(1.5, 4.0, count, 1, 1).minimum(steepest))
    lane = (flat < 0.35) & ~elliptical
    dust = lane * dice.uniform(0.0, 0.8, count, 1, 1) * torch.exp(
        -0.5 * (across / (0.15 * scale)) ** 2
    )
    old, young = colours(dice, count, OLD_LIGHT, 0.12), colours(dice, count, YOUNG_LIGHT, 0.15)
    share = red[:, None, None, None]
    body = torch.where(elliptical, shape, disc * (1.0 - dust))
    light = body[:, None] * (share * old + (1.0 - share) * young)
    light = light + (torch.where(elliptical, torch.zeros_like(bulge), bulge_share * bulge))[
        :, None
    ] * old  # fmt: skip
    taper = torch.sigmoid((side / 2.0 - 3.0 - torch.sqrt(x**2 + y**2)) * 0.7)
    return (brightness[:, None, None, None] * light).clamp(max=_BRIGHTEST) * taper[:, None]


def _pattern(dice, count, along, across, irregular):
    """Arms, or the clumps of irregular galaxies; about 1 on average."""
    radius = torch.sqrt(along**2 + across**2)
    azimuth = torch.atan2(across, along)
    arms = dice.integers(2, 4, count).float()[:, None, None]
    winding = dice.uniform(2.0, 5.0, count, 1, 1)
    strength = dice.chance(0.6, count, 1, 1) * dice.uniform(0.2, 0.8, count, 1, 1)
    spiral = 1.0 + strength * torch.cos(arms * azimuth - winding * torch.log(radius + 0.1))
    waves = torch.zeros_like(radius)
    for _ in range(5):
        pitch = dice.uniform(1.0, 5.0, count, 1, 1)
        turn = dice.uniform(0.0, 2.0 * math.pi, count, 2, 1, 1)
        waves = waves + torch.cos(
            pitch * (along * torch.cos(turn[:, 0]) + across * torch.sin(turn[:, 0])) + turn[:, 1]
        )
    return torch.where(irregular, torch.exp(0.5 * waves), spiral)
