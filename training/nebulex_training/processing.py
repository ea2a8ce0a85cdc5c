"""What people do to a stretched picture: colour, curves, sharpening, denoising, 8 bits, JPEG.

Each function takes batch x 3 x rows x columns pictures with and without stars, in [0, 1], stacked
along the batch (first all with, then all without), so that both get the same treatment.
"""

import functools
import math

import torch
import torch.nn.functional as F

from .fields import gaussian_blur, change_some

_LUMINANCE = (0.2126, 0.7152, 0.0722)


def process_pair(dice, with_stars, without_stars):
    """Both pictures through the same random chain of steps."""
    pictures = torch.cat((with_stars, without_stars))
    pictures = _mono(dice, pictures)
    pictures = _narrowband(dice, pictures)
    pictures = _curves(dice, pictures)
    pictures = _saturation(dice, pictures)
    pictures = _denoise(dice, pictures)
    pictures = _sharpen(dice, pictures)
    pictures = _eight_bits(dice, pictures)
    pictures = _jpeg(dice, pictures)
    half = with_stars.shape[0]
    return pictures[:half], pictures[half:]


def _both(draw):
    return torch.cat((draw, draw))


def _luminance(pictures):
    weights = torch.tensor(_LUMINANCE, device=pictures.device)[None, :, None, None]
    return (pictures * weights).sum(dim=1, keepdim=True)


def _mono(dice, pictures):
    """One channel in three, as the program reads a mono image."""
    half = pictures.shape[0] // 2
    chosen = _both(dice.chance(0.15, half, 1, 1, 1))
    channel = _both(dice.integers(0, 3, half))
    single = pictures[torch.arange(2 * half, device=pictures.device), channel][:, None]
    return torch.where(chosen > 0, single.expand_as(pictures), pictures)


def _narrowband(dice, pictures):
    """Channels swapped and mixed as palettes for filtered light do."""
    half = pictures.shape[0] // 2
    chosen = _both(dice.chance(0.18, half, 1, 1))
    eye = torch.eye(3, device=pictures.device)
    order = torch.argsort(dice.uniform(0.0, 1.0, half, 3), dim=1)
    mix = 0.8 * eye[order] + 0.2 * torch.softmax(dice.normal(half, 3, 3), dim=2)
    return torch.where(
        chosen[..., None] > 0, torch.einsum("bij,bjhw->bihw", _both(mix), pictures), pictures
    )


def _curves(dice, pictures):
    """Gamma of each channel and an S-shaped curve, both small in most pictures."""
    half = pictures.shape[0] // 2
    common = 0.16 * dice.normal(half, 1, 1, 1)
    own = dice.chance(0.4, half, 1, 1, 1) * 0.12 * dice.normal(half, 3, 1, 1)
    gamma = _both(torch.exp((common + own).clamp(-0.7, 0.7)))
    curved = pictures.clamp(min=1e-6) ** gamma
    amount = _both(dice.chance(0.5, half, 1, 1, 1) * dice.uniform(-0.4, 0.5, half, 1, 1, 1))
    smooth = curved * curved * (3.0 - 2.0 * curved)
    return (curved + amount * (smooth - curved)).clamp(0.0, 1.0)


def _saturation(dice, pictures):
    half = pictures.shape[0] // 2
    amount = _both(torch.exp(0.4 * dice.normal(half, 1, 1, 1)).clamp(0.3, 2.6))
    grey = _luminance(pictures)
    pictures = (grey + amount * (pictures - grey)).clamp(0.0, 1.0)
    # Green is unwanted in most skies.
    remove = _both(dice.chance(0.15, half, 1, 1))
    limit = torch.minimum(pictures[:, 1], 0.5 * (pictures[:, 0] + pictures[:, 2]))
    green = torch.where(remove > 0, limit, pictures[:, 1])
    return torch.stack((pictures[:, 0], green, pictures[:, 2]), dim=1)


def _denoise(dice, pictures):
    """Smoothing that leaves edges: the more, the less the picture differs from its blur."""
    half = pictures.shape[0] // 2
    if not dice.happens(0.5):
        return pictures
    chosen = _both(dice.chance(0.4, half) > 0)
    strength = _both(dice.uniform(0.2, 0.95, half, 1, 1, 1))
    sigma = _both(dice.uniform(0.6, 2.2, half))
    scale = _both(dice.log_uniform(0.01, 0.08, half, 1, 1, 1))
    return change_some(pictures, chosen, _smoothed, strength, sigma, scale)


def _smoothed(pictures, strength, sigma, scale):
    difference = pictures - gaussian_blur(pictures, sigma)
    flat = torch.exp(-((difference.mean(dim=1, keepdim=True) / scale) ** 2))
    return pictures - strength * flat * difference


def _sharpen(dice, pictures):
    """Unsharp masking, with the dark rings that it draws around stars."""
    half = pictures.shape[0] // 2
    if not dice.happens(0.6):
        return pictures
    sigma = dice.log_uniform(0.5, 3.5, half)
    # A wide mask as strong as a narrow one would drown the sky in the stars' rings.
    most = dice.log_uniform(0.1, 2.5, half) / sigma.clamp(min=1.0)
    chosen = _both(dice.chance(0.6, half) > 0)
    return change_some(pictures, chosen, _unsharp_mask, _both(most), _both(sigma))


def shrink_pair(dice, with_stars, without_stars):
    """Both pictures at half the size, as people show them, and most of them sharpened again."""
    pictures = torch.cat((with_stars, without_stars))
    mode = "bicubic" if dice.happens(0.6) else "bilinear"
    small = F.interpolate(pictures, scale_factor=0.5, mode=mode, antialias=True).clamp(0.0, 1.0)
    half = with_stars.shape[0]
    amount = _both(dice.chance(0.7, half) * dice.log_uniform(0.1, 2.5, half))
    small = _unsharp_mask(small, amount, _both(dice.log_uniform(0.4, 1.5, half)))
    return small[:half], small[half:]


def _unsharp_mask(pictures, amount, sigma):
    """What a blur of sigma pixels takes away, added amount times; one of each for each picture."""
    fine = pictures - gaussian_blur(pictures, sigma)
    return (pictures + amount[:, None, None, None] * fine).clamp(0.0, 1.0)


def _eight_bits(dice, pictures):
    chosen = _both(dice.chance(0.35, pictures.shape[0] // 2, 1, 1, 1))
    return torch.where(chosen > 0, torch.round(pictures * 255.0) / 255.0, pictures)


# The tables of ITU-T T.81, annex K.
_LUMINANCE_TABLE = (
    (16, 11, 10, 16, 24, 40, 51, 61),
    (12, 12, 14, 19, 26, 58, 60, 55),
    (14, 13, 16, 24, 40, 57, 69, 56),
    (14, 17, 22, 29, 51, 87, 80, 62),
    (18, 22, 37, 56, 68, 109, 103, 77),
    (24, 35, 55, 64, 81, 104, 113, 92),
    (49, 64, 78, 87, 103, 121, 120, 101),
    (72, 92, 95, 98, 112, 100, 103, 99),
)
_CHROMINANCE_TABLE = (
    (17, 18, 24, 47, 99, 99, 99, 99),
    (18, 21, 26, 66, 99, 99, 99, 99),
    (24, 26, 56, 99, 99, 99, 99, 99),
    (47, 66, 99, 99, 99, 99, 99, 99),
    (99, 99, 99, 99, 99, 99, 99, 99),
    (99, 99, 99, 99, 99, 99, 99, 99),
    (99, 99, 99, 99, 99, 99, 99, 99),
    (99, 99, 99, 99, 99, 99, 99, 99),
)
_TO_YCC = (
    (0.299, 0.587, 0.114),
    (-0.168736, -0.331264, 0.5),
    (0.5, -0.418688, -0.081312),
)


@functools.lru_cache(maxsize=2)
def _cosines(device):
    """8 x 8 matrix of the discrete cosine transform."""
    k = torch.arange(8.0)[:, None]
    n = torch.arange(8.0)[None, :]
    matrix = torch.cos(math.pi * (2.0 * n + 1.0) * k / 16.0) * 0.5
    matrix[0] *= math.sqrt(0.5)
    return matrix.to(device)


def _through_blocks(planes, table):
    """batch x rows x columns planes of about -128 to 127, coded with batch x 8 x 8 tables."""
    batch, height, width = planes.shape
    cosines = _cosines(str(planes.device))
    blocks = planes.reshape(batch, height // 8, 8, width // 8, 8).transpose(2, 3)
    table = table[:, None, None]
    coded = torch.round(cosines @ blocks @ cosines.T / table) * table
    return (cosines.T @ coded @ cosines).transpose(2, 3).reshape(batch, height, width)


def _jpeg(dice, pictures):
    """The losses of JPEG; rows and columns must be multiples of 16."""
    half = pictures.shape[0] // 2
    drawn = dice.chance(0.2, half)
    quality = dice.uniform(70.0, 98.0, half)
    coarse = dice.chance(0.5, half, 1, 1)
    indices = torch.nonzero(_both(drawn))[:, 0]
    if indices.numel() == 0:
        return pictures
    factor = ((200.0 - 2.0 * _both(quality)[indices]) / 100.0)[:, None, None]
    tables = [
        torch.round(torch.tensor(table, device=pictures.device).float()[None] * factor).clamp(min=1)
        for table in (_LUMINANCE_TABLE, _CHROMINANCE_TABLE)
    ]
    to_ycc = torch.tensor(_TO_YCC, device=pictures.device)
    chosen = pictures[indices] * 255.0
    ycc = torch.einsum("ij,bjhw->bihw", to_ycc, chosen)
    luma = _through_blocks(ycc[:, 0] - 128.0, tables[0]) + 128.0
    chroma = []
    for channel in (1, 2):
        fine = _through_blocks(ycc[:, channel], tables[1])
        small = _through_blocks(F.avg_pool2d(ycc[:, channel : channel + 1], 2)[:, 0], tables[1])
        small = F.interpolate(small[:, None], scale_factor=2, mode="bilinear")[:, 0]
        chroma.append(torch.where(_both(coarse)[indices] > 0, small, fine))
    coded = torch.stack((luma, *chroma), dim=1)
    rgb = torch.einsum("ij,bjhw->bihw", torch.linalg.inv(to_ycc), coded)
    result = pictures.clone()
    result[indices] = torch.round(rgb).clamp(0.0, 255.0) / 255.0
    return result
