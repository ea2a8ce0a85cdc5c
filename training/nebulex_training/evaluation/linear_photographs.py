"""Linear photographs in FITS files, and the stretch that they are looked at with."""

import numpy as np

_SUFFIXES = (".fit", ".fits", ".fts")
_MIDDLE_GREY = 0.15  # where the sky is stretched to


def is_linear(path):
    """Whether the file's name says that it is a FITS file."""
    return path.suffix.lower() in _SUFFIXES


def read_planes(path):
    """rows x columns x 3 float64 as stored, and what white is: the greatest value of integers, of
    floating samples the greatest there is."""
    from astropy.io import fits

    with fits.open(path) as units:
        images = [unit.data for unit in units if unit.is_image and unit.data is not None]
    shape = images[0].shape if images else ()
    if len(shape) != 2 and (len(shape) != 3 or shape[0] != 3):
        raise ValueError("it holds no image of one plane or of three")
    kind = images[0].dtype
    data = np.nan_to_num(images[0].astype(np.float64))
    planes = data if data.ndim == 3 else np.stack((data,) * 3)
    white = np.iinfo(kind).max if np.issubdtype(kind, np.integer) else planes.max()
    return np.ascontiguousarray(planes.transpose(1, 2, 0)), float(white)


class Stretch:
    """A midtones stretch, chosen once from planes and then the same for all."""

    def __init__(self, planes):
        median = np.median(planes)
        self._low = median - 4.0 * 1.4826 * np.median(np.abs(planes - median))
        self._range = max(np.percentile(planes, 99.95) - self._low, 1e-12)
        level = float(np.clip(np.median(self._scaled(planes)), 1e-4, 0.9))
        grey = _MIDDLE_GREY
        self._midtones = level * (1.0 - grey) / (level - 2.0 * grey * level + grey)

    def __call__(self, planes):
        """The planes as float32 in [0, 1]."""
        x, m = self._scaled(planes), self._midtones
        return ((m - 1.0) * x / ((2.0 * m - 1.0) * x - m)).astype(np.float32)

    def _scaled(self, planes):
        return np.clip((planes - self._low) / self._range, 0.0, 1.0)
