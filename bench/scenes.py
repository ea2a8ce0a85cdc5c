"""Images for the benchmarks and comparisons, each from a seed, and the small networks that stand in
for the real one."""

import importlib.util
import pathlib

import cv2
import numpy
import tifffile
from astropy.io import fits

ROOT = pathlib.Path(__file__).resolve().parent.parent
BAND = 256  # rows that are made at once
STAR = 8  # half the side of the square that a star touches


def model_maker():
    """The module that makes the tests' models."""
    path = ROOT / "tests" / "support" / "make_models.py"
    spec = importlib.util.spec_from_file_location("make_models", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def write_model(folder, name):
    """Writes one of the tests' models and returns its path."""
    path = pathlib.Path(folder, f"{name}.onnx")
    path.write_bytes(model_maker().MODELS[name]())
    return path


def star_band(rows, columns, channels, random):
    """A band of a noisy sky with stars, float32 within [0, 1]; a few stars are saturated."""
    y, x = numpy.mgrid[-STAR : STAR + 1, -STAR : STAR + 1]
    tint = numpy.linspace(1.0, 0.8, channels, dtype=numpy.float32)
    band = random.standard_normal((rows, columns, channels), numpy.float32)
    band *= 0.004
    band += 0.08 * tint
    for _ in range(rows * columns // 5000):
        r, c = random.integers(0, rows), random.integers(0, columns)
        profile = numpy.exp(-(y * y + x * x) / random.uniform(2, 8)) * 10 ** random.uniform(-2, 0.2)
        top, left = max(0, STAR - r), max(0, STAR - c)
        bottom, right = min(2 * STAR + 1, rows - r + STAR), min(2 * STAR + 1, columns - c + STAR)
        place = numpy.s_[r - STAR + top : r - STAR + bottom, c - STAR + left : c - STAR + right]
        band[place] += (profile[top:bottom, left:right, None] * tint).astype(numpy.float32)
    return numpy.clip(band, 0, 1, out=band)


def star_field(rows, columns, dtype, channels=3, seed=1, flat=0.0):
    """Samples of a whole field, rows x columns x channels. Integers fill their positive range.
    The lower part `flat` of the rows has one value."""
    random = numpy.random.default_rng(seed)
    dtype = numpy.dtype(dtype)
    white = numpy.iinfo(dtype).max if dtype.kind in "iu" else 1
    image = numpy.empty((rows, columns, channels), dtype)
    for first in range(0, rows, BAND):
        band = star_band(min(BAND, rows - first), columns, channels, random)
        image[first : first + BAND] = numpy.rint(band * white) if white != 1 else band
    if flat:
        image[rows - round(rows * flat) :] = image.dtype.type(0.08 * white)
    return image


def write_tiff(path, image, rows_per_strip=16):
    colour = image.shape[2] == 3
    tifffile.imwrite(path, image if colour else image[:, :, 0], rowsperstrip=rows_per_strip,
                     photometric="rgb" if colour else "minisblack")
    return path


def write_png(path, image):
    stored = image[:, :, ::-1] if image.shape[2] == 3 else image[:, :, 0]
    assert cv2.imwrite(str(path), stored)
    return path


def write_fits(path, image, interleaved=False):
    """A plane, a cube of three planes, or a cube whose first axis is the colour."""
    if image.shape[2] == 1:
        stored = image[:, :, 0]
    else:
        stored = image if interleaved else numpy.moveaxis(image, 2, 0)
    fits.PrimaryHDU(stored).writeto(path, overwrite=True)
    return path
