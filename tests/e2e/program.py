"""Runs the real nebulex2 and makes the images that the end-to-end tests feed it."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import cv2
import numpy
import tifffile

PROGRAM = pathlib.Path(os.environ["NEBULEX2_PROGRAM"])
MODELS = pathlib.Path(os.environ["NEBULEX2_TEST_MODELS"])
SOURCE = pathlib.Path(__file__).resolve().parents[2]

FAILURE = 255  # what a shell shows of the exit status -1
TIMEOUT_S = 240


class Result:
    """What one run of the program left behind."""

    def __init__(self, completed):
        self.status = completed.returncode
        self.out = completed.stdout
        self.err = completed.stderr

    def records(self):
        """Standard error as JSON objects, one a line."""
        return [json.loads(line) for line in self.err.splitlines()]

    def messages(self, code):
        """Messages of the human records with this code, in their order."""
        marks = (f"Info [{code}]: ", f"Warning [{code}]: ")
        return [
            line.split("]: ", 1)[1] for line in self.err.splitlines() if line.startswith(marks)
        ]

    def warnings(self):
        return [line for line in self.err.splitlines() if line.startswith("Warning [")]


def run(*arguments, cwd=None, preexec=None, env=None, inside=()):
    """Runs the program with `env` added to the environment, through the command `inside`."""
    completed = subprocess.run(
        [*map(str, inside), str(PROGRAM), *map(str, arguments)],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        cwd=cwd,
        preexec_fn=preexec,
        env={**os.environ, **(env or {})},
        timeout=TIMEOUT_S,
        check=False,
    )
    completed.stdout = completed.stdout.decode("utf-8", "surrogateescape")
    completed.stderr = completed.stderr.decode("utf-8", "surrogateescape")
    return Result(completed)


def model(name):
    path = MODELS / f"{name}.onnx"
    assert path.exists(), path
    return path


def star_field(rows, columns, channels=3, dtype=numpy.uint16, seed=1):
    """A noisy sky with a gradient and Gaussian stars, in RGB order; one channel without an axis."""
    random = numpy.random.default_rng(seed)
    y, x = numpy.mgrid[0:rows, 0:columns]
    sky = 0.08 + 0.05 * x / columns + 0.03 * y / rows
    image = numpy.repeat(sky[:, :, None], channels, axis=2)
    image *= random.uniform(0.7, 1.0, channels)
    for _ in range(rows * columns // 6000):
        r, c = random.integers(0, rows), random.integers(0, columns)
        window = numpy.s_[max(r - 8, 0) : r + 9, max(c - 8, 0) : c + 9]
        profile = numpy.exp(-((x[window] - c) ** 2 + (y[window] - r) ** 2) / 4.5)
        image[window] += (
            random.uniform(0.05, 0.8) * profile[:, :, None] * random.uniform(0.6, 1.0, channels)
        )
    image += random.normal(0, 0.004, image.shape)
    white = numpy.iinfo(dtype).max
    stored = numpy.rint(numpy.clip(image, 0, 1) * white).astype(dtype)
    return stored if channels > 1 else stored[:, :, 0]


def write_image(path, rgb):
    """Writes RGB or grey samples as TIFF (tifffile) or PNG (OpenCV)."""
    if str(path).lower().endswith((".tif", ".tiff")):
        tifffile.imwrite(path, rgb, photometric="rgb" if rgb.ndim == 3 else "minisblack")
    else:
        bgr = rgb[:, :, ::-1] if rgb.ndim == 3 else rgb
        assert cv2.imwrite(str(path), bgr)
    return path


def read_tiff(path):
    """Samples of a TIFF in RGB order, through libtiff's own tools where it is LZW compressed."""
    with tempfile.TemporaryDirectory() as folder:
        plain = pathlib.Path(folder, "plain.tif")
        subprocess.run(["tiffcp", "-c", "none", path, plain], check=True)
        return tifffile.imread(plain)


def read_image(path):
    """Samples of a raster format, colours in RGB order; not read by the way they were written."""
    if str(path).lower().endswith((".tif", ".tiff")):
        return read_tiff(path)
    stored = cv2.imread(str(path), cv2.IMREAD_UNCHANGED)
    assert stored is not None, path
    return stored[:, :, ::-1] if stored.ndim == 3 else stored


class ProgramTest(unittest.TestCase):
    """A test with a folder of its own."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-e2e-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def path(self, name):
        return self.folder / name

    def files(self):
        return sorted(entry.name for entry in self.folder.iterdir())

    def image(self, name="in.tif", rows=512, columns=512, **options):
        return write_image(self.path(name), star_field(rows, columns, **options))

    def succeed(self, *arguments, **options):
        result = run(*arguments, **options)
        self.assertEqual(result.status, 0, result.err)
        return result

    def fail_with(self, message, *arguments, **options):
        """Runs the program, which has to fail in the run with exactly this message before the
        model context."""
        result = run(*arguments, **options)
        self.assertEqual(result.status, FAILURE, result.err)
        errors = [
            line
            for line in result.err.splitlines()
            if not line.startswith(("Info [", "Warning ["))
        ]
        self.assertEqual(errors[0], message)
        self.assertTrue(errors[-1].startswith("Executable='"), errors)
        return result
