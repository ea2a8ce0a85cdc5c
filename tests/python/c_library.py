"""The library's C interface through ctypes, so that nothing of the package is in between."""

import ctypes
import os

import numpy as np

SAMPLE_TYPES = {"uint8": 1, "uint16": 2, "float32": 3, "float64": 4}
MASK, UNSCREEN = 1, 2


class View(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("width", ctypes.c_int64), ("height", ctypes.c_int64),
                ("channels", ctypes.c_int32), ("sample_type", ctypes.c_int32),
                ("row_stride", ctypes.c_int64), ("pixel_stride", ctypes.c_int64),
                ("channel_stride", ctypes.c_int64)]


class Settings(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("stride", ctypes.c_int32), ("layers", ctypes.c_int32),
                ("linear", ctypes.c_int32), ("upsample", ctypes.c_int32),
                ("protect_highlights", ctypes.c_int32), ("reserved", ctypes.c_int32),
                ("shadows_clipping", ctypes.c_double), ("target_background", ctypes.c_double),
                ("white", ctypes.c_double)]


class Results(ctypes.Structure):
    _fields_ = [("size", ctypes.c_size_t), ("starless", View), ("mask", View), ("unscreen", View),
                ("allocations", ctypes.c_void_p)]


class Library:
    def __init__(self, network):
        self._library = ctypes.CDLL(os.environ["NEBULEX_LIBRARY"])
        self._library.nebulex_last_error.restype = ctypes.c_char_p
        self._model = ctypes.c_void_p()
        self._check(self._library.nebulex_model_open(
            os.fsencode(network), None, ctypes.byref(self._model)))

    def close(self):
        self._library.nebulex_model_close(self._model)

    def _check(self, status):
        assert status == 0, (status, self._library.nebulex_last_error())

    def remove_stars(self, image, **settings):
        """Starless image, mask and unscreen layer of a packed array, as the library allocates them."""
        wanted, results = Settings(), Results()
        self._check(self._library.nebulex_settings_init(
            ctypes.byref(wanted), ctypes.c_size_t(ctypes.sizeof(wanted))))
        self._check(self._library.nebulex_results_init(
            ctypes.byref(results), ctypes.c_size_t(ctypes.sizeof(results))))
        wanted.layers = MASK | UNSCREEN
        for name, value in settings.items():
            setattr(wanted, name, value)
        view = View(image.ctypes.data, image.shape[1], image.shape[0],
                    3 if image.ndim == 3 else 1, SAMPLE_TYPES[image.dtype.name])
        self._check(self._library.nebulex_remove_stars(
            self._model, ctypes.byref(view), ctypes.byref(wanted), None, ctypes.byref(results)))
        arrays = [self._copy(layer, image)
                  for layer in (results.starless, results.mask, results.unscreen)]
        self._library.nebulex_results_free(ctypes.byref(results))
        return arrays

    @staticmethod
    def _copy(layer, image):
        assert (layer.height, layer.width) == image.shape[:2]
        stored = ctypes.string_at(layer.data, image.nbytes)
        return np.frombuffer(stored, image.dtype).reshape(image.shape)
