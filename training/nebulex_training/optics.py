"""What air, telescope and mount make of a point of light, as transfer functions.

One point-spread function for a scene and colour: seeing (Moffat) times diffraction (a pupil with
obstruction and aberrations: Airy rings, defocus, coma, astigmatism) times guiding, and around it
wings: a wide halo, rays, spikes, reflections, the pattern of the sensor's microlenses. Nebulae and
galaxies pass through the same optics as stars.
"""

import math
from dataclasses import dataclass

import torch

from .fields import frequencies, torus_offsets

_PUPIL = 256  # samples across the grid that the pupil lies in
_WAVELENGTHS = (1.14, 1.0, 0.86)  # of red, green and blue light, over that of green


@dataclass
class Optics:
    """transfer: batch x 3 x size x (size / 2 + 1) complex; peak: batch x 3 largest value of the
    point-spread function, whose sum is 1; width: batch, the seeing's full width at half maximum."""

    transfer: torch.Tensor
    peak: torch.Tensor
    width: torch.Tensor


def draw_optics(dice, batch, size, mix):
    """Optics as different as telescopes, nights and owners are, as often as the Mix says."""
    width = dice.log_uniform(1.2, 7.5, batch)
    width = torch.where(dice.chance(0.06, batch) > 0, dice.uniform(7.0, 11.0, batch), width)
    core = _seeing(dice, width, size)
    blurred = torch.nonzero(dice.chance(0.3, batch))[:, 0]
    if blurred.numel():
        core[blurred] = core[blurred] * _diffraction(dice, width[blurred], size)
    wings = _wings(dice, batch, size, width, mix)
    share = wings.flatten(2).sum(dim=2)[:, :, None, None]
    transfer = core * ((1.0 - share) + torch.fft.rfft2(wings))
    spread = torch.fft.irfft2(transfer, s=(size, size))
    return Optics(transfer, spread.flatten(2).amax(dim=2), width)


def _unit_sum(kernel):
    return kernel / kernel.flatten(2).sum(dim=2).clamp(min=1e-12)[:, :, None, None]


def _seeing(dice, width, size):
    batch = width.numel()
    rows, columns = torus_offsets(size, dice.device)
    colour = torch.exp(0.06 * dice.normal(batch, 3)) * torch.where(
        dice.chance(0.12, batch, 1) > 0,
        torch.tensor((1.0, 0.9, 1.35), device=dice.device)[None],  # an achromat's blue
        torch.ones(1, 3, device=dice.device),
    )
    full_width = (width[:, None] * colour)[:, :, None, None]
    beta = dice.log_uniform(1.35, 5.0, batch, 1, 1, 1)
    angle = dice.uniform(0.0, 3.1416, batch, 1, 1, 1)
    squeeze = 1.0 - dice.uniform(0.0, 1.0, batch, 1, 1, 1) ** 2 * 0.35
    alpha = full_width / (2.0 * torch.sqrt(2.0 ** (1.0 / beta) - 1.0))
    beside = _lateral_colour(dice, batch)
    kernel = torch.zeros(1, device=dice.device)
    # Shifted here and not by phases, which would ring where the light is undersampled.
    for weight, place in _guiding(dice, width):
        row = rows - (place[:, None, 0] + beside[:, :, 0])[:, :, None, None]
        column = columns - (place[:, None, 1] + beside[:, :, 1])[:, :, None, None]
        along = column * torch.cos(angle) + row * torch.sin(angle)
        across = row * torch.cos(angle) - column * torch.sin(angle)
        radius2 = (along * torch.sqrt(squeeze)) ** 2 + (across / torch.sqrt(squeeze)) ** 2
        kernel = kernel + weight[:, None, None, None] * (1.0 + radius2 / alpha**2) ** -beta
    return torch.fft.rfft2(_unit_sum(kernel))


def _guiding(dice, width):
    """Where the mount pointed: weights (batch) and places (batch x 2, rows and columns in pixels).

    Some mounts swing, which draws a blurred line, some jumped once, which adds a faint double.
    """
    batch = width.numel()
    angle = dice.uniform(0.0, 3.1416, batch)
    direction = torch.stack((torch.sin(angle), torch.cos(angle)), dim=1)
    swing = dice.chance(0.15, batch) * dice.uniform(0.1, 0.7, batch) * width
    jump = dice.chance(0.04, batch) * dice.uniform(0.02, 0.3, batch)
    distance = width * dice.uniform(0.8, 2.5, batch)
    steps = torch.linspace(-2.0, 2.0, 9).tolist() if bool((swing > 0).any()) else [0.0]
    shares = [math.exp(-0.5 * step**2) for step in steps]
    for step, share in zip(steps, shares):
        yield (1.0 - jump) * share / sum(shares), (step * swing)[:, None] * direction
    if bool((jump > 0).any()):
        yield jump, distance[:, None] * direction


def _lateral_colour(dice, batch):
    """batch x 3 x 2: red and blue light a little beside the green, in pixels."""
    shift = dice.chance(0.4, batch, 1) * 0.35 * dice.normal(batch, 2).clamp(-2.5, 2.5)
    sides = torch.tensor((1.0, 0.0, -1.0), device=dice.device)
    return sides[None, :, None] * shift[:, None, :]


def _diffraction(dice, width, size):
    """The pupil's own image: Airy rings, and aberrations in waves of green light."""
    batch = width.numel()
    steps = torch.fft.fftfreq(_PUPIL, d=1.0 / _PUPIL, device=dice.device)
    rows, columns = steps[:, None], steps[None, :]
    airy_width = (width * dice.uniform(0.3, 1.2, batch)).clamp(1.1, 6.0)[:, None, None, None]
    scale = torch.tensor(_WAVELENGTHS, device=dice.device)[None, :, None, None]
    pupil_radius = 0.5 * 1.03 * _PUPIL / (airy_width * scale)
    y, x = rows / pupil_radius, columns / pupil_radius
    radius = torch.sqrt(x**2 + y**2)
    hidden = dice.uniform(0.0, 0.45, batch, 1, 1, 1) * dice.chance(0.7, batch, 1, 1, 1)
    edge = 0.5 * pupil_radius
    pupil = torch.sigmoid((1.0 - radius) * edge * 8.0) * torch.sigmoid(
        (radius - hidden) * edge * 8.0
    ).where(hidden > 0, torch.ones_like(radius))
    azimuth = torch.atan2(y, x)
    focus = torch.where(
        dice.chance(0.12, batch, 1, 1, 1) > 0,
        dice.uniform(0.8, 2.0, batch, 1, 1, 1),
        0.15 * dice.normal(batch, 1, 1, 1),
    )
    coma = dice.chance(0.35, batch, 1, 1, 1) * dice.uniform(0.1, 0.6, batch, 1, 1, 1)
    astigmatism = dice.chance(0.25, batch, 1, 1, 1) * dice.uniform(0.1, 0.5, batch, 1, 1, 1)
    trefoil = dice.chance(0.1, batch, 1, 1, 1) * dice.uniform(0.1, 0.5, batch, 1, 1, 1)
    turn = dice.uniform(0.0, 6.2832, batch, 3, 1, 1)
    waves = (
        focus * radius**2
        + coma * (3.0 * radius**3 - 2.0 * radius) * torch.cos(azimuth - turn[:, :1])
        + astigmatism * radius**2 * torch.cos(2.0 * (azimuth - turn[:, 1:2]))
        + trefoil * radius**3 * torch.cos(3.0 * (azimuth - turn[:, 2:]))
    ) / scale
    spread = torch.fft.fft2(pupil * torch.exp(2j * math.pi * waves)).abs() ** 2
    spread = torch.fft.fftshift(spread, dim=(-2, -1))
    kernel = torch.zeros(batch, 3, size, size, device=dice.device)
    span = min(size, _PUPIL)
    low = (_PUPIL - span) // 2
    kernel[:, :, :span, :span] = spread[:, :, low : low + span, low : low + span]
    kernel = torch.roll(kernel, (-(span // 2), -(span // 2)), dims=(-2, -1))
    return torch.fft.rfft2(_unit_sum(kernel))


def _share(dice, low, high, probability, batch):
    """batch x 3 x 1 x 1: how much of the light goes there, about the same for each colour."""
    share = dice.log_uniform(low, high, batch, 1) * dice.chance(probability, batch, 1)
    return (share * torch.exp(0.15 * dice.normal(batch, 3)))[:, :, None, None]


def _wings(dice, batch, size, width, mix):
    """batch x 3 x size x size: where the light goes that misses the core."""
    rows, columns = torus_offsets(size, dice.device)
    radius = torch.sqrt(rows**2 + columns**2)[None, None]
    azimuth = torch.atan2(rows.expand(size, size), columns.expand(size, size))[None, None]
    halo = _unit_sum(_halo(dice, batch, radius, azimuth))
    if mix.coloured_halos:
        halo = halo * _tints(dice, batch, mix.coloured_halos)
    wings = _share(dice, 0.004, 0.4, 0.8, batch) * halo
    wings = wings + _share(dice, 0.002, 0.09, 0.45, batch) * _unit_sum(
        _spikes(dice, batch, rows, columns, width)
    )
    wings = wings + _share(dice, 0.0005, 0.02, 0.3, batch) * _unit_sum(
        _reflection(dice, batch, rows, columns)
    )
    if mix.small_reflections:  # of large cameras, shrunk for the web
        disc = _unit_sum(_reflection(dice, batch, rows, columns, 3.0, 14.0))
        share = _share(dice, 0.003, 0.12, mix.small_reflections, batch)
        wings = wings + share * _tints(dice, batch, 1.0) * disc
    if dice.happens(0.06):
        wings = wings + _share(dice, 0.0005, 0.006, 1.0, batch) * _unit_sum(
            _microlenses(dice, batch, rows, columns, radius)
        )
    return wings


def _tints(dice, batch, share):
    """batch x 3 x 1 x 1 colours, 1 at most: strong ones for such a share, white for the others."""
    tint = torch.exp(0.6 * dice.chance(share, batch, 1) * dice.normal(batch, 3))
    return (tint / tint.amax(dim=1, keepdim=True))[:, :, None, None]


def _halo(dice, batch, radius, azimuth):
    reach = dice.log_uniform(2.0, 60.0, batch, 1, 1, 1)
    steepness = dice.uniform(1.2, 2.5, batch, 1, 1, 1)
    rayed = dice.chance(0.25, batch, 1, 1, 1) * dice.uniform(0.1, 0.8, batch, 1, 1, 1)
    rays = torch.zeros_like(azimuth)
    for _ in range(4):
        number = dice.integers(3, 40, batch).float()[:, None, None, None]
        turn = dice.uniform(0.0, 6.2832, batch, 1, 1, 1)
        rays = rays + 0.5 * torch.cos(number * azimuth + turn)
    return (1.0 + (radius / reach) ** 2) ** -steepness * torch.exp(rayed * rays)


def _spikes(dice, batch, rows, columns, width):
    """4, 6 or 8 rays, beaded where the light is of few colours."""
    total = torch.zeros(1, device=dice.device)
    count = torch.tensor((2, 2, 2, 3, 4), device=dice.device)[dice.integers(0, 5, batch)]
    turn = dice.uniform(0.0, 3.1416, batch)
    length = dice.log_uniform(8.0, 500.0, batch, 1, 1, 1)
    thickness = (0.25 * width * dice.uniform(0.6, 1.6, batch)).clamp(0.5, 2.0)[:, None, None, None]
    period = dice.log_uniform(4.0, 30.0, batch, 1, 1, 1) * torch.tensor(
        _WAVELENGTHS, device=dice.device
    )[None, :, None, None]
    beads = dice.chance(0.4, batch, 1, 1, 1) * dice.uniform(0.1, 0.7, batch, 1, 1, 1)
    for line in range(4):
        present = (line < count).float()[:, None, None, None]
        angle = (turn + line * math.pi / count + 0.01 * dice.normal(batch))[:, None, None, None]
        along = (columns * torch.cos(angle) + rows * torch.sin(angle)).abs()
        across = rows * torch.cos(angle) - columns * torch.sin(angle)
        strength = present * dice.uniform(0.6, 1.2, batch, 1, 1, 1)
        fall = torch.exp(-along / length) / (1.0 + along / 4.0)
        bead = 1.0 + beads * torch.cos(2.0 * math.pi * along / period)
        total = total + strength * fall * bead * torch.exp(-0.5 * (across / thickness) ** 2)
    return total


def _reflection(dice, batch, rows, columns, smallest=10.0, largest=110.0):
    """Light thrown back by a filter: an even disc or ring, a little beside the star.

    Its radius, in pixels, lies between the smallest and the largest.
    """
    place = (largest / 13.75) * dice.normal(batch, 2)[:, :, None, None]
    distance = torch.sqrt((rows - place[:, :1]) ** 2 + (columns - place[:, 1:]) ** 2)
    radius = dice.log_uniform(smallest, largest, batch, 1, 1, 1)
    edge = dice.log_uniform(0.8, 6.0, batch, 1, 1, 1)
    disc = torch.sigmoid((radius - distance) / edge)
    hole = dice.uniform(0.0, 0.5, batch, 1, 1, 1) * radius
    ring = disc * (1.0 - 0.8 * torch.sigmoid((hole - distance) / edge))
    # It goes again when each colour gets the same sum; drawn so that seeds keep their scenes.
    tint = torch.exp(0.6 * dice.normal(batch, 3))[:, :, None, None]
    return ring * tint


def _microlenses(dice, batch, rows, columns, radius):
    """The lattice of faint copies that a sensor's microlenses and its glass make."""
    pitch = dice.uniform(14.0, 45.0, batch, 1, 1, 1)
    spot = dice.uniform(1.0, 2.5, batch, 1, 1, 1)
    row = torch.remainder(rows + 0.5 * pitch, pitch) - 0.5 * pitch
    column = torch.remainder(columns + 0.5 * pitch, pitch) - 0.5 * pitch
    lattice = torch.exp(-0.5 * (row**2 + column**2) / spot**2)
    return lattice * torch.exp(-radius / (3.0 * pitch)) * (radius > 0.5 * pitch)
