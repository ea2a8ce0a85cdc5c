"""The memory and time that a frame is given. The numbers are those of docs/performance.md."""

import math

BASE_MEM_MB = 600  # a run on the smallest image (350), and the engine's processes in the same job
MARGIN = 1.25

# Bytes a pixel of the working grid, for images of 100 megapixels: the most of all sizes.
BYTES_PER_PIXEL = {
    ("raster", False): 28,
    ("raster", True): 56,
    ("fits", False): 45,
    ("fits", True): 68,
}

TILE_SIDE = 512
DEFAULT_STRIDE = 256
SECONDS_PER_MEGAPIXEL = 0.5  # reading, blending and writing, beside the network
BASE_MINUTES = 2


def memory_mb(pixels, path, options, attempt, largest):
    """Memory for one run in MB; each attempt gets as much again, up to `largest`."""
    kind = "fits" if _has_fits_name(path) else "raster"
    grid = pixels * (4 if _has(options, "-u", "--upsample") else 1)
    per_pixel = BYTES_PER_PIXEL[kind, _has(options, "--linear")]
    needed = BASE_MEM_MB + MARGIN * per_pixel * grid / 1e6
    return min(math.ceil(needed) * attempt, largest)


def runtime_minutes(pixels, options, attempt, seconds_per_tile, threads):
    """Time for one run in whole minutes; each attempt gets as much again."""
    grid = pixels * (4 if _has(options, "-u", "--upsample") else 1)
    tiles = math.ceil(grid / stride(options) ** 2)
    seconds = tiles * seconds_per_tile / threads + SECONDS_PER_MEGAPIXEL * grid / 1e6
    return math.ceil(BASE_MINUTES + MARGIN * seconds / 60) * attempt


def stride(options):
    """The stride that the options choose; the default where they make no sense (the program says
    so)."""
    for flag, value in zip(options, options[1:]):
        if flag in ("-s", "--stride") and value.isdecimal() and 2 <= int(value) <= TILE_SIDE:
            return int(value)
    return DEFAULT_STRIDE


def _has(options, *flags):
    return any(flag in options for flag in flags)


def _has_fits_name(path):
    return str(path).lower().endswith((".fit", ".fits", ".fts", ".gz"))
