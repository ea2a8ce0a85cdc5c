"""Ways of taking stars out: the program with a model, and two classical ones.

Pictures are rows x columns x 3 float32 arrays in [0, 1].
"""

import pathlib
import subprocess
import tempfile
import time

import cv2
import numpy as np
import sep


def write_picture(path, picture):
    """Writes 16-bit TIFF or PNG."""
    stored = np.round(np.clip(picture, 0.0, 1.0) * 65535.0).astype(np.uint16)
    if not cv2.imwrite(str(path), stored[:, :, ::-1]):
        raise OSError(f"{path} cannot be written.")


def read_picture(path):
    """Reads 8-bit or 16-bit TIFF or PNG, grey ones into three equal channels."""
    stored = cv2.imread(str(path), cv2.IMREAD_ANYDEPTH | cv2.IMREAD_COLOR)
    if stored is None:
        raise OSError(f"{path} cannot be read as a picture.")
    return stored[:, :, ::-1].astype(np.float32) / np.float32(np.iinfo(stored.dtype).max)


class ProgramRemover:
    """Calls the program with one model."""

    def __init__(self, name, program, model, stride):
        self.name = name
        self._program, self._model, self._stride = program, model, stride

    def __call__(self, picture, linear=False):
        """The picture without its stars; the program is told if its data is linear."""
        return self._run(picture, self._stride, ("--linear",) if linear else ())

    def tile_seconds(self):
        """Time of the program for one more tile: many tiles against one, the best of three."""
        rng = np.random.default_rng(3)
        large = rng.uniform(0.1, 0.3, (1536, 1536, 3)).astype(np.float32)
        best = {}
        for _ in range(3):
            for side in (512, 1536):
                began = time.monotonic()
                self._run(large[:side, :side], 512)
                best[side] = min(best.get(side, np.inf), time.monotonic() - began)
        return (best[1536] - best[512]) / 8.0

    def _run(self, picture, stride, options=()):
        with tempfile.TemporaryDirectory() as folder:
            source, target = pathlib.Path(folder, "in.tif"), pathlib.Path(folder, "out.tif")
            write_picture(source, picture)
            command = [self._program, "-q", "-i", source, "-o", target, "-s", str(stride)]
            command += ["-w", self._model, *options]
            done = subprocess.run(
                [str(word) for word in command], capture_output=True, text=True, check=False
            )
            if done.returncode != 0:
                raise RuntimeError(f"{self._program} failed: {done.stderr.strip()}")
            return read_picture(target)


class NothingRemover:
    """Leaves every picture as it is, rounded as a file is."""

    name = "doing nothing"

    def __call__(self, picture, linear=False):
        return np.round(picture * np.float32(65535.0)) / np.float32(65535.0)


class InpaintingRemover:
    """Inpainting after Telea (2004) over whatever SEP finds above 3 sigma."""

    name = "inpainting"

    def __call__(self, picture):
        data = np.ascontiguousarray(picture.mean(axis=2))
        background = sep.Background(data, bw=32, bh=32)
        sep.set_extract_pixstack(5_000_000)
        _, segments = sep.extract(
            data - background.back(), 3.0, err=background.globalrms or 1e-4,
            segmentation_map=True, deblend_cont=1.0,
        )  # fmt: skip
        kernel = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (5, 5))
        mask = cv2.dilate((segments > 0).astype(np.uint8), kernel)
        # OpenCV's inpainting of floating-point planes overshoots; that of 16-bit ones does not.
        stored = np.round(np.clip(picture, 0.0, 1.0) * 65535.0).astype(np.uint16)
        planes = [
            cv2.inpaint(np.ascontiguousarray(stored[:, :, i]), mask, 5, cv2.INPAINT_TELEA)
            for i in range(3)
        ]
        return np.stack(planes, axis=2).astype(np.float32) / np.float32(65535.0)


class OpeningRemover:
    """Morphological opening with a disc."""

    def __init__(self, diameter):
        self.name = f"opening, {diameter} pixels"
        self._kernel = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (diameter, diameter))

    def __call__(self, picture):
        return cv2.morphologyEx(picture, cv2.MORPH_OPEN, self._kernel)


OPENING_DIAMETERS = (5, 7, 9, 11, 15, 21)
