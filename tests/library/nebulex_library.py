"""The shared library through ctypes, for the tests that compare it with the program."""

import ctypes
import os

import numpy

LIBRARY = ctypes.CDLL(os.environ["NEBULEX_LIBRARY"])

SAMPLE_TYPES = {"uint8": 1, "uint16": 2, "float32": 3, "float64": 4}
MASK, UNSCREEN = 1, 2


class View(ctypes.Structure):
    """nebulex_view and nebulex_buffer, which have one layout."""

    _fields_ = [
        ("data", ctypes.c_void_p),
        ("width", ctypes.c_int64),
        ("height", ctypes.c_int64),
        ("channels", ctypes.c_int32),
        ("sample_type", ctypes.c_int32),
        ("row_stride", ctypes.c_int64),
        ("pixel_stride", ctypes.c_int64),
        ("channel_stride", ctypes.c_int64),
    ]


class Settings(ctypes.Structure):
    _fields_ = [
        ("size", ctypes.c_size_t),
        ("stride", ctypes.c_int32),
        ("layers", ctypes.c_int32),
        ("linear", ctypes.c_int32),
        ("upsample", ctypes.c_int32),
        ("protect_highlights", ctypes.c_int32),
        ("reserved", ctypes.c_int32),
        ("shadows_clipping", ctypes.c_double),
        ("target_background", ctypes.c_double),
        ("white", ctypes.c_double),
    ]


class Results(ctypes.Structure):
    _fields_ = [
        ("size", ctypes.c_size_t),
        ("starless", View),
        ("mask", View),
        ("unscreen", View),
        ("allocations", ctypes.c_void_p),
    ]


LIBRARY.nebulex_last_error.restype = ctypes.c_char_p


def check(status):
    if status != 0:
        raise RuntimeError(f"{status}: {LIBRARY.nebulex_last_error().decode()}")


def view(array):
    """The view of an array of rows x columns, or rows x columns x 3."""
    channels = 1 if array.ndim == 2 else array.shape[2]
    return View(
        array.ctypes.data,
        array.shape[1],
        array.shape[0],
        channels,
        SAMPLE_TYPES[array.dtype.name],
        array.strides[0],
        array.strides[1],
        array.strides[2] if array.ndim == 3 else 0,
    )


class Model:
    def __init__(self, path):
        self.handle = ctypes.c_void_p()
        check(LIBRARY.nebulex_model_open(os.fsencode(path), None, ctypes.byref(self.handle)))

    def close(self):
        LIBRARY.nebulex_model_close(self.handle)

    def remove_stars(self, image, **settings):
        """The starless image, the mask and the unscreen layer of an array."""
        chosen = Settings()
        check(LIBRARY.nebulex_settings_init(ctypes.byref(chosen), ctypes.sizeof(Settings)))
        chosen.layers = MASK | UNSCREEN
        for name, value in settings.items():
            setattr(chosen, name, value)
        arrays = [numpy.zeros(image.shape, image.dtype) for _ in range(3)]
        results = Results()
        check(LIBRARY.nebulex_results_init(ctypes.byref(results), ctypes.sizeof(Results)))
        results.starless, results.mask, results.unscreen = map(view, arrays)
        check(
            LIBRARY.nebulex_remove_stars(
                self.handle, ctypes.byref(view(image)), ctypes.byref(chosen), None,
                ctypes.byref(results),
            )
        )
        return arrays
