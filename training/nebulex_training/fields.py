"""Random fields and filters that the parts of a scene are made of.

Fields are batch x size x size. They repeat at their edges, as everything that comes out of a
discrete Fourier transform.
"""

import functools

import torch
import torch.nn.functional as F


@functools.lru_cache(maxsize=8)
def _frequencies(size, device):
    rows = torch.fft.fftfreq(size, device=device)[:, None]
    columns = torch.fft.rfftfreq(size, device=device)[None, :]
    return rows, columns


def frequencies(size, device):
    """Row and column frequencies of rfft2 in cycles a pixel: size x 1 and 1 x (size / 2 + 1)."""
    return _frequencies(size, str(device))


@functools.lru_cache(maxsize=8)
def _offsets(size, device):
    steps = torch.fft.fftfreq(size, d=1.0 / size, device=device)
    return steps[:, None], steps[None, :]


def torus_offsets(size, device):
    """Row and column distances from pixel (0, 0) on the torus: size x 1 and 1 x size."""
    return _offsets(size, str(device))


@functools.lru_cache(maxsize=8)
def _unit_grid(size, device):
    steps = (torch.arange(size, device=device) + 0.5) * (2.0 / size) - 1.0
    return steps[:, None], steps[None, :]


def unit_grid(size, device):
    """Row and column coordinates from -1 to 1 over the frame: size x 1 and 1 x size."""
    return _unit_grid(size, str(device))


def power_law_field(dice, slope, size):
    """Fields whose power falls with the frequency to the power of -slope; mean 0, deviation 1.

    slope holds one number for each field of the batch.
    """
    rows, columns = frequencies(size, dice.device)
    radius = torch.sqrt(rows**2 + columns**2)
    radius[0, 0] = 1.0
    amplitude = radius[None] ** (-0.5 * slope[:, None, None])
    amplitude[:, 0, 0] = 0.0
    spectrum = torch.fft.rfft2(dice.normal(slope.numel(), size, size)) * amplitude
    field = torch.fft.irfft2(spectrum, s=(size, size))
    return field / field.flatten(1).std(dim=1)[:, None, None].clamp(min=1e-12)


def warp(field, shift_rows, shift_columns):
    """The fields, each pixel taken from a place that lies off by the shifts (in frame widths)."""
    rows, columns = unit_grid(field.shape[-1], field.device)
    grid = torch.stack((columns + 2.0 * shift_columns, rows + 2.0 * shift_rows), dim=-1)
    return F.grid_sample(
        field[:, None], grid, mode="bilinear", padding_mode="reflection", align_corners=False
    )[:, 0]


def warped_field(dice, slope, size, strength):
    """Power-law fields bent by smoother ones, as turbulence does; strength in frame widths."""
    smooth = torch.full_like(slope, 3.6)
    bend = strength[:, None, None]
    return warp(
        power_law_field(dice, slope, size),
        bend * power_law_field(dice, smooth, size),
        bend * power_law_field(dice, smooth, size),
    )


def convolve(image, transfer):
    """batch x channels x size x size images convolved by the transfer functions of rfft2."""
    size = image.shape[-1]
    return torch.fft.irfft2(torch.fft.rfft2(image) * transfer, s=(size, size))


def change_some(images, chosen, change, *parameters):
    """The images, those that are chosen (booleans) as change makes them with their parameters."""
    if not bool(chosen.any()):
        return images
    result = images.clone()
    result[chosen] = change(images[chosen], *(each[chosen] for each in parameters))
    return result


def gaussian_blur(image, sigma):
    """batch x channels x rows x columns images blurred, each by its own sigma in pixels."""
    batch, channels, height, width = image.shape
    radius = max(1, int(torch.ceil(3.0 * sigma.max()).item()))
    steps = torch.arange(-radius, radius + 1, device=image.device, dtype=image.dtype)
    kernel = torch.exp(-0.5 * (steps[None] / sigma[:, None].clamp(min=0.05)) ** 2)
    kernel = (kernel / kernel.sum(dim=1, keepdim=True)).repeat_interleave(channels, dim=0)
    taps, groups = 2 * radius + 1, batch * channels
    flat = image.reshape(1, groups, height, width)
    flat = F.pad(flat, (radius, radius, 0, 0), mode="replicate")
    flat = F.conv2d(flat, kernel.reshape(groups, 1, 1, taps), groups=groups)
    flat = F.pad(flat, (0, 0, radius, radius), mode="replicate")
    flat = F.conv2d(flat, kernel.reshape(groups, 1, taps, 1), groups=groups)
    return flat.reshape(image.shape)
