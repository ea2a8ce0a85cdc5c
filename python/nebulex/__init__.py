"""Takes the stars out of astronomical images with a neural network.

>>> import numpy as np
>>> import nebulex
>>> image = np.full((600, 700, 3), 0.1)
>>> nebulex.remove_stars(image).starless.shape
(600, 700, 3)

`remove_stars` takes an array, `nebulex.astropy.remove_stars` CCDData and NDData with all they carry.
`screen` puts stars back, `plot` shows a pair, `Model` is an open network for many images.
"""

import importlib
from typing import Any

from nebulex import _nebulex
from nebulex._messages import NebulexWarning
from nebulex._model import Model
from nebulex._nebulex import ImageError, InternalError, ModelError
from nebulex._plot import plot
from nebulex._removal import Result, remove_stars
from nebulex._screen import screen

__version__ = _nebulex.version()
__all__ = [
    "ImageError",
    "InternalError",
    "Model",
    "ModelError",
    "NebulexWarning",
    "Result",
    "plot",
    "remove_stars",
    "screen",
]

for _public in (ImageError, InternalError, ModelError, Model, NebulexWarning, Result, plot,
                remove_stars, screen):
    _public.__module__ = __name__
ModelError.__doc__ = "The network cannot be found or read, or does not run."
ImageError.__doc__ = "The image is too small, or its samples are out of range or not finite."
InternalError.__doc__ = "The network failed on a tile, or the library has a fault."


def __getattr__(name: str) -> Any:
    # astropy takes long to import and may be absent.
    if name == "astropy":
        return importlib.import_module("nebulex.astropy")
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
