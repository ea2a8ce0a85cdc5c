"""Galaxies, from large spirals to the small resolved ones of a cluster. All of them stay."""

import torch

from .fields import unit_grid, warped_field
from .stamps import size_classes

OLD_LIGHT = (1.00, 0.80, 0.58)
YOUNG_LIGHT = (0.62, 0.80, 1.00)
_BRIGHTEST = 400.0  # times the sky
_STAMPS = (64, 128)  # pixels, the sides of the squares that small galaxies are drawn in
_STAMP_RADII = 6.0  # half-light radii that a square holds


def large_galaxies(dice, batch, size, width, mix):
    """batch x 3 x size x size light of large galaxies, of either kind as often as the Mix says.

    width holds the full width at half maximum of each scene's stars.
    """
    light = torch.zeros(batch, 3, size, size, device=dice.device)
    for share, draw in ((mix.spirals, _spiral), (mix.ellipticals, _elliptical)):
        chosen = torch.nonzero(dice.chance(share, batch))[:, 0]
        if chosen.numel():
            light[chosen] += draw(dice, chosen.numel(), size, width[chosen])
    return light


def sersic(radius, index):
    """The profile of Sersic (1963), 1 at one half-light radius; b after Ciotti & Bertin (1999)."""
    b = 2.0 * index - 1.0 / 3.0 + 0.0098765 / index
    return torch.exp(-b * ((radius + 1e-4) ** (1.0 / index) - 1.0))


def colours(dice, batch, base, spread):
    """batch x 3 x 1 x 1 colours near a base."""
    colour = torch.tensor(base, device=dice.device)[None]
    return (colour * torch.exp(spread * dice.normal(batch, 3)))[:, :, None, None]


def _spiral(dice, batch, size, width):
    """A bulge, a disc with arms, knots and lanes of dust; also discs without arms."""
    along, across = _axes(dice, batch, size)
    tilt = dice.uniform(0.12, 1.0, batch, 1, 1)
    scale = dice.log_uniform(0.05, 0.8, batch, 1, 1)
    x, y = along / scale, across / (scale * tilt)
    radius = torch.sqrt(x**2 + y**2)
    azimuth = torch.atan2(y, x)

    arms = dice.integers(2, 5, batch).float()[:, None, None]
    winding = dice.uniform(2.0, 6.0, batch, 1, 1) * torch.sign(dice.normal(batch, 1, 1))
    rough = warped_field(
        dice, dice.uniform(2.6, 3.4, batch), size, torch.full((batch,), 0.02, device=dice.device)
    ).clamp(-3.0, 3.0)
    phase = arms * azimuth - winding * torch.log(radius + 0.05) + 0.6 * rough
    arm_strength = dice.chance(0.75, batch, 1, 1) * dice.uniform(0.2, 0.95, batch, 1, 1)
    pattern = 1.0 + arm_strength * torch.cos(phase)
    texture = torch.exp(dice.uniform(0.05, 0.6, batch, 1, 1) * rough)
    disc = sersic(radius, torch.ones_like(tilt)) * pattern * texture
    bulge_flat = torch.maximum(tilt, torch.full_like(tilt, 0.6))
    star = 2.0 * width[:, None, None] / size
    bulge_scale = torch.maximum(scale * dice.uniform(0.08, 0.4, batch, 1, 1), 1.5 * star)
    extent = bulge_scale / star
    bulge_radius = torch.sqrt(along**2 + (across / bulge_flat) ** 2) / bulge_scale
    # A steep core of few star widths would be the image of a star with a halo.
    core, steepest = 0.02 + 0.45 / extent, (0.7 * extent).clamp(max=4.0)
    bulge = sersic(
        torch.sqrt(bulge_radius**2 + core**2), dice.uniform(1.0, 4.0, batch, 1, 1).minimum(steepest)
    )

    # Young clusters and glowing gas line the arms, dust lies along their inner edge.
    regions = torch.relu(rough - 1.2) * torch.relu(torch.cos(phase)) * (radius < 3.0)
    lane = torch.exp(-4.0 * (torch.cos(phase + 1.2) - 1.0).abs()) * torch.exp(0.5 * rough)
    dust = dice.uniform(0.0, 1.2, batch, 1, 1) * lane * torch.exp(-0.6 * radius)
    dimming = torch.exp(
        -dust[:, None] * torch.tensor((0.75, 1.0, 1.3), device=dice.device)[None, :, None, None]
    )
    strength = dice.log_uniform(0.2, 150.0, batch, 1, 1)
    bulge_share = dice.log_uniform(0.1, 6.0, batch, 1, 1)
    light = (disc[:, None]) * colours(dice, batch, YOUNG_LIGHT, 0.15)
    light = light + (bulge_share * bulge)[:, None] * colours(dice, batch, OLD_LIGHT, 0.12)
    pink = colours(dice, batch, (1.0, 0.3, 0.45), 0.1)
    light = light + (dice.uniform(0.0, 2.0, batch, 1, 1) * regions * disc)[:, None] * pink
    light = (strength[:, None] * light).clamp(max=_BRIGHTEST)
    return _fainter_than_stars(light, extent) * dimming


def _elliptical(dice, batch, size, width):
    """Old stars in smooth light, of eight star widths or more: smaller ones could be halos."""
    along, across = _axes(dice, batch, size)
    star = 2.0 * width[:, None, None] / size
    scale = torch.maximum(dice.log_uniform(0.04, 0.4, batch, 1, 1), 8.0 * star)
    extent = scale / star
    flat = dice.uniform(0.4, 1.0, batch, 1, 1)
    radius = torch.sqrt(along**2 + (across / flat) ** 2) / scale
    core = 0.02 + 0.45 / extent
    index = dice.uniform(1.0, 4.0, batch, 1, 1).minimum((0.2 * extent).clamp(max=4.0))
    profile = sersic(torch.sqrt(radius**2 + core**2), index)
    profile = profile / profile.flatten(1).amax(dim=1)[:, None, None].clamp(min=1e-6)
    peak = dice.log_uniform(0.5, _BRIGHTEST, batch, 1, 1)
    light = (peak * profile)[:, None] * colours(dice, batch, OLD_LIGHT, 0.12)
    return _fainter_than_stars(light, extent)


def _axes(dice, batch, size):
    """batch x size x size coordinates along and across a galaxy of any place and direction."""
    rows, columns = unit_grid(size, dice.device)
    row = rows - dice.uniform(-0.8, 0.8, batch, 1, 1)
    column = columns - dice.uniform(-0.8, 0.8, batch, 1, 1)
    angle = dice.uniform(0.0, 3.1416, batch, 1, 1)
    along = column * torch.cos(angle) + row * torch.sin(angle)
    return along, row * torch.cos(angle) - column * torch.sin(angle)


def _fainter_than_stars(light, extent):
    """The light dimmed so that no core of few star widths looks like the image of a star.

    extent, batch x 1 x 1, holds the half-light radii of the cores over the width of stars.
    """
    brightest = (_BRIGHTEST * (extent / 10.0) ** 3).clamp(max=_BRIGHTEST)[:, None]
    peak = light.flatten(1).amax(dim=1)[:, None, None, None].clamp(min=1e-6)
    return light * (brightest / peak).clamp(max=1.0)


def small_galaxies(dice, batch, size, width, mix):
    """Small galaxies wider than the stars, some of them in clusters, as often as the Mix says.

    width holds the full width at half maximum of each scene's stars. Returns the light, batch x 3
    x size x size in units of the sky, and a catalogue: one row of scene, row, column, half-light
    radius in pixels for each galaxy.
    """
    sides = _STAMPS if mix.whole_galaxies else _STAMPS[:1]
    margin = max(sides)
    wide = size + margin
    light = torch.zeros(batch * 3 * wide**2, device=dice.device)
    scene, row, column = _places(dice, batch, size, mix)
    # Smaller than this they could not be told from stars.
    radius = width[scene] * dice.log_uniform(1.1, 4.0, scene.numel())
    radius = radius.clamp(max=margin / _STAMP_RADII)
    for side, chosen in size_classes(radius, sides, _STAMP_RADII):
        part = (scene[chosen], row[chosen], column[chosen])
        extent = radius[chosen] / width[part[0]]
        stamps = _stamps(dice, side, radius[chosen], extent, part[1] % 1.0, part[2] % 1.0)
        shift = (margin - side) // 2
        places = (place.floor().long() + shift for place in part[1:])
        add_stamps(light, stamps, part[0], *places, wide)
    half = margin // 2
    light = light.reshape(batch, 3, wide, wide)[:, :, half:-half, half:-half]
    catalogue = torch.stack((scene.float(), row, column, radius), dim=1)
    return light, catalogue


def _places(dice, batch, size, mix):
    scenes, rows, columns = [], [], []
    for scene in range(batch):
        count = int(dice.one_log(2.0, mix.most_small_galaxies))
        row = dice.uniform(0.0, size - 1.0, count)
        column = dice.uniform(0.0, size - 1.0, count)
        if dice.happens(mix.galaxy_clusters):
            members = dice.whole(15, 90)
            spread = dice.one(0.06, 0.3) * size
            row = torch.cat((row, dice.one(0.1, 0.9) * size + spread * dice.normal(members)))
            column = torch.cat(
                (column, dice.one(0.1, 0.9) * size + spread * dice.normal(members))
            )
        inside = (row >= 0) & (row < size) & (column >= 0) & (column < size)
        rows.append(row[inside])
        columns.append(column[inside])
        scenes.append(torch.full((int(inside.sum()),), scene, device=dice.device))
    return torch.cat(scenes).long(), torch.cat(rows), torch.cat(columns)


def _stamps(dice, side, radius, extent, row_part, column_part):
    """count x 3 x side x side pictures of galaxies in the middle of the stamps.

    extent holds their half-light radii over the width of stars. Those of few star widths are faint
    and not round: a round bright one would be a star. None is brighter than 16 times the sky.
    """
    count = radius.numel()
    steps = torch.arange(side, device=dice.device, dtype=torch.float32) - side // 2
    y = steps[None, :, None] - row_part[:, None, None]
    x = steps[None, None, :] - column_part[:, None, None]
    angle = dice.uniform(0.0, 3.1416, count, 1, 1)
    along = x * torch.cos(angle) + y * torch.sin(angle)
    across = y * torch.cos(angle) - x * torch.sin(angle)
    small = extent[:, None, None] < 3.0
    flat = torch.where(
        small, dice.uniform(0.2, 0.65, count, 1, 1), dice.uniform(0.25, 1.0, count, 1, 1)
    )
    core = 0.4 / extent[:, None, None]
    half_light = radius[:, None, None]
    scaled = torch.sqrt((along**2 + (across / flat) ** 2) / half_light**2 + core**2)
    # Steeper ones have a core that is the image of a star, and are not resolved.
    steepest = torch.where(small, torch.full_like(flat, 1.0), torch.full_like(flat, 1.4))
    profile = sersic(scaled, 0.6 + (steepest - 0.6) * dice.uniform(0.0, 1.0, count, 1, 1))
    taper = torch.sigmoid((side / 2.0 - 3.0 - torch.sqrt(x**2 + y**2)) * 0.7)
    brightness = dice.log_uniform(0.1, 2.0, count, 1, 1) * extent[:, None, None]
    strength = torch.minimum(brightness * profile, extent[:, None, None] ** 2) * taper
    red_share = dice.uniform(0.0, 1.0, count, 1, 1, 1)
    colour = red_share * colours(dice, count, OLD_LIGHT, 0.1) + (1.0 - red_share) * colours(
        dice, count, YOUNG_LIGHT, 0.1
    )
    return strength[:, None] * colour


def add_stamps(light, stamps, scene, row, column, wide):
    """Adds count x 3 x side x side stamps to flat light of scenes x 3 x wide x wide pixels.

    scene, row and column hold each one's scene and its first pixel there.
    """
    steps = torch.arange(stamps.shape[-1], device=light.device)
    channel = torch.arange(3, device=light.device)[None, :, None, None]
    rows = (row[:, None] + steps)[:, None, :, None]
    columns = (column[:, None] + steps)[:, None, None, :]
    plane = scene[:, None, None, None] * 3 + channel
    index = (plane * wide + rows) * wide + columns
    light.index_add_(0, index.reshape(-1), stamps.reshape(-1))
