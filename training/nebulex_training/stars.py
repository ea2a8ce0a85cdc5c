"""Stars: where they are, how bright, of what colour, and what the optics make of them."""

from dataclasses import dataclass

import torch

from .emulsion import in_emulsion
from .fields import convolve
from .spikes import long_spikes

_BRIGHTEST = 400.0  # times the level where the camera saturates, at the star's peak
_BRIGHTEST_BEACON = 4000.0
_MOST_SATURATED = 0.025  # share of a scene's pixels
_MOST_GLOW = 0.3  # times the sky: starlight on the darkest fifth of a scene


@dataclass
class Surroundings:
    """What the stars of a batch of scenes stand in.

    level: batch, brightness of the empty sky, in units of what saturates; lighting: rows of scene,
    row and column where a bright star has to stand; few: batch booleans, scenes of few stars, or
    None; dust: batch x 3 x size x size share of the light that comes through it, or None.
    """

    level: torch.Tensor
    lighting: torch.Tensor
    few: torch.Tensor = None
    dust: torch.Tensor = None


def star_layer(dice, batch, size, optics, around, mix):
    """batch x 3 x size x size light of the stars alone; 1 is where the camera saturates.

    around holds the Surroundings.
    """
    sky_level, lighting = around.level, around.lighting
    scene, row, column, peak = _stars(dice, batch, size, optics.width, around, mix)
    scene = torch.cat((scene, lighting[:, 0].long()))
    row, column = torch.cat((row, lighting[:, 1])), torch.cat((column, lighting[:, 2]))
    peak = torch.cat((peak, dice.log_uniform(0.3, _BRIGHTEST, len(lighting))))
    flux = peak / optics.peak.mean(dim=1)[scene]
    colour = _colours(dice, scene.numel()) * _channel_gains(dice, batch)[scene]
    if mix.dimmed_stars:
        colour = colour * _dimming(dice, scene, row, column, around.dust, mix.dimmed_stars)
    points = _points(scene, row, column, flux[:, None] * colour, batch, size)
    light = convolve(points, optics.transfer).clamp(min=0.0)
    light = in_emulsion(dice, _bloom(dice, light), mix.plates)
    stars = (scene, row, column, peak, colour)
    light = light + long_spikes(dice, stars, batch, size, optics.width, mix.long_spikes)
    return _within_reason(light, sky_level)


def _dimming(dice, scene, row, column, dust, share):
    """count x 3: what the dust lets through of each star; some stand before it.

    In such a share of the scenes there is any behind it.
    """
    batch, size = dust.shape[0], dust.shape[-1]
    behind = dice.chance(share, batch) * dice.uniform(0.4, 1.0, batch)
    hidden = dice.uniform(0.0, 1.0, scene.numel()) < behind[scene]
    rows, columns = (place.long().clamp(0, size - 1) for place in (row, column))
    return torch.where(hidden[:, None], dust[scene, :, rows, columns], torch.ones(1).to(dust))


def _within_reason(light, sky_level):
    """The light dimmed where it would drown the scene: people expose so that a sky is left."""
    brightness = light.mean(dim=1).flatten(1)
    count = brightness.shape[1]
    high = torch.kthvalue(brightness, int((1.0 - _MOST_SATURATED) * count), dim=1).values
    low = torch.kthvalue(brightness, int(0.2 * count), dim=1).values
    scale = torch.minimum(1.0 / high.clamp(min=1e-9), _MOST_GLOW * sky_level / low.clamp(min=1e-9))
    return light * scale.clamp(max=1.0)[:, None, None, None]


def _stars(dice, batch, size, width, around, mix):
    scenes, rows, columns, peaks = [], [], [], []
    levels, widths = around.level.tolist(), width.tolist()
    few = [False] * batch if around.few is None else around.few.tolist()
    for scene in range(batch):
        if dice.happens(0.03):
            continue  # starless already: nothing may change
        crowded = dice.happens(0.2)  # towards the Milky Way, with a short focal length
        density = dice.one_log(4000.0, 60000.0) if crowded else dice.one_log(8.0, 5000.0)
        if few[scene]:
            density = dice.one_log(2.0, 80.0)
        count = 1 + int(density * (size / 512) ** 2)
        row, column = dice.uniform(0.0, size, count), dice.uniform(0.0, size, count)
        if dice.happens(0.12) and not few[scene]:
            group_row, group_column = _group(dice, size)
            row, column = torch.cat((row, group_row)), torch.cat((column, group_column))
        peak = _peaks(dice, row.numel(), levels[scene], mix)
        row, column, peak = _with_companions(dice, row, column, peak, widths[scene])
        scenes.append(torch.full((row.numel(),), scene, device=dice.device))
        rows.append(row)
        columns.append(column)
        peaks.append(peak)
    if not scenes:
        empty = torch.zeros(0, device=dice.device)
        return empty.long(), empty, empty, empty
    return torch.cat(scenes).long(), torch.cat(rows), torch.cat(columns), torch.cat(peaks)


def _group(dice, size):
    """An open cluster, or a globular one after Plummer (1911)."""
    centre_row, centre_column = dice.one(0.0, size), dice.one(0.0, size)
    if dice.happens(0.4):
        count, core = dice.whole(300, 3500), dice.one(6.0, 45.0)
        share = dice.uniform(0.001, 0.97, count)
        radius = core / torch.sqrt(share ** (-2.0 / 3.0) - 1.0).clamp(min=0.05)
        angle = dice.uniform(0.0, 6.2832, count)
        projected = radius * torch.sqrt(1.0 - dice.uniform(-1.0, 1.0, count) ** 2)
        return (
            centre_row + projected * torch.sin(angle),
            centre_column + projected * torch.cos(angle),
        )
    count, spread = dice.whole(20, 400), dice.one(0.03, 0.25) * size
    return (
        centre_row + spread * dice.normal(count),
        centre_column + spread * dice.normal(count),
    )


def _peaks(dice, count, sky_level, mix):
    """Peak brightnesses by a power law."""
    faintest = sky_level * dice.one_log(0.03, 1.5)
    exponent = dice.one(1.4, 2.2)
    share = dice.uniform(1e-6, 1.0, count)
    peak = (faintest * share ** (-1.0 / (exponent - 1.0))).clamp(max=_BRIGHTEST)
    if dice.happens(mix.bright_stars):  # with all that only they show, more than the law has
        bright = min(count, int(dice.one_log(1.0, 40.0)))
        peak[:bright] = dice.log_uniform(0.05, _BRIGHTEST, bright)
    if mix.beacons and dice.happens(mix.beacons):
        peak[-1] = dice.one_log(_BRIGHTEST, _BRIGHTEST_BEACON)
    return peak


def _with_companions(dice, row, column, peak, width):
    """Some stars are double, closely enough to touch."""
    double = dice.uniform(0.0, 1.0, row.numel()) < 0.05
    count = int(double.sum())
    distance = width * dice.uniform(0.5, 3.5, count)
    angle = dice.uniform(0.0, 6.2832, count)
    return (
        torch.cat((row, row[double] + distance * torch.sin(angle))),
        torch.cat((column, column[double] + distance * torch.cos(angle))),
        torch.cat((peak, peak[double] * dice.log_uniform(0.05, 1.0, count))),
    )


def _colours(dice, count):
    """count x 3 colours of black bodies, white at 6500 K, of mean 1."""
    temperature = torch.exp(8.6 + 0.38 * dice.normal(count)).clamp(2400.0, 35000.0)[:, None]
    wavelength = torch.tensor((630e-9, 540e-9, 455e-9), device=dice.device)[None]
    exponent = 0.0143878 / (wavelength * temperature)  # the second radiation constant, m K
    white = 0.0143878 / (wavelength * 6500.0)
    colour = torch.expm1(white) / torch.expm1(exponent)
    colour = colour * torch.exp(0.06 * dice.normal(count, 3))
    colour = colour ** dice.uniform(0.6, 1.5, 1)
    return colour / colour.mean(dim=1, keepdim=True)


def _channel_gains(dice, batch):
    """Narrowband filters let different shares of the same star through."""
    narrow = dice.chance(0.25, batch, 1)
    # Light between the lines of hydrogen and oxygen: least of it in the green of most palettes.
    usual = torch.tensor((0.2, -0.25, 0.1), device=dice.device)[None]
    gains = torch.exp(narrow * (usual + 0.3 * dice.normal(batch, 3)))
    return gains / gains.mean(dim=1, keepdim=True)


def _cubic_weights(part):
    """count x 4 weights of Keys' (1981) cubic for the pixels -1, 0, 1, 2 around a place."""
    steps = torch.tensor((-1.0, 0.0, 1.0, 2.0), device=part.device)
    x = (part[:, None] - steps).abs()
    near = (1.5 * x - 2.5) * x**2 + 1.0
    far = ((-0.5 * x + 2.5) * x - 4.0) * x + 2.0
    return torch.where(x < 1.0, near, far)


def _points(scene, row, column, flux, batch, size):
    """Stars before the optics: each one's light on the 4 x 4 pixels around its place."""
    points = torch.zeros(batch * 3 * size * size, device=flux.device)
    steps = torch.arange(-1, 3, device=flux.device)
    rows = torch.remainder(row.floor().long()[:, None] + steps, size)
    columns = torch.remainder(column.floor().long()[:, None] + steps, size)
    weights = _cubic_weights(row % 1.0)[:, :, None] * _cubic_weights(column % 1.0)[:, None, :]
    pixel = rows[:, :, None] * size + columns[:, None, :]
    for channel in range(3):
        index = (scene * 3 + channel)[:, None, None] * size * size + pixel
        values = weights * flux[:, channel, None, None]
        points.index_add_(0, index.reshape(-1), values.reshape(-1))
    return points.reshape(batch, 3, size, size)


def _bloom(dice, light):
    """Charge that overflows along the columns of some sensors."""
    present = dice.chance(0.05, light.shape[0], 1, 1, 1)
    if not bool(present.any()):
        return light
    size = light.shape[-1]
    frequency = torch.fft.rfftfreq(size, device=light.device)[None, None, :, None]
    reach = dice.log_uniform(3.0, 25.0, light.shape[0], 1, 1, 1)
    transfer = 1.0 / (1.0 + (6.2832 * frequency * reach) ** 2)  # exp(-|row| / reach)
    excess = (light.clamp(max=20.0) - 1.0).clamp(min=0.0)
    spread = torch.fft.irfft(torch.fft.rfft(excess, dim=-2) * transfer, n=size, dim=-2)
    return light + present * spread.clamp(min=0.0)
