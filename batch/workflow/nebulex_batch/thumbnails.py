"""Small pictures of frames before and after, for the report.

Decoding images is left to a process of its own: a library that fails on a frame costs its picture
only.
"""

import base64
import contextlib
import json
import os
import pathlib
import subprocess
import sys
import tempfile

WIDTH = 360
LONGEST_S = 60  # for one frame
MIDDLE = 0.25  # where the stretch puts the median of a dark image


def make(batch, statuses):
    """The pictures of done frames as (name, before, after), the latter two JPEG files in base64.
    Frames of which no picture can be made are left out."""
    pictures = []
    while statuses:
        made = _make_pairs(batch, statuses)
        pictures += [(status["frame"], *pair) for status, pair in zip(statuses, made) if pair]
        statuses = statuses[len(made) + 1:]  # past the frame that the process ended with
    return pictures


def _make_pairs(batch, statuses):
    """Pairs of pictures, one for each frame up to the one that the process ended with; None for a
    frame that has none."""
    paths = []
    for status in statuses:
        paths += [os.path.join(batch["in"], status["frame"]),
                  os.path.join(batch["out"], status["request"]["results"]["--output"])]
    with tempfile.TemporaryFile() as made:
        with contextlib.suppress(subprocess.TimeoutExpired):
            subprocess.run(
                [sys.executable, str(pathlib.Path(__file__).resolve()), *paths], check=False,
                stdin=subprocess.DEVNULL, stdout=made, stderr=subprocess.DEVNULL,
                timeout=LONGEST_S * len(statuses))
        made.seek(0)
        return [json.loads(line) for line in made.read().splitlines() if line.endswith(b"]")
                or line == b"null"]


def _read(path):
    """Samples as rows x columns x colours, the latter in the order that OpenCV writes, 0 to 1."""
    import cv2  # pylint: disable=import-outside-toplevel # only the process of its own needs these
    import numpy  # pylint: disable=import-outside-toplevel
    from astropy.io import fits  # pylint: disable=import-outside-toplevel

    if path.lower().endswith((".fit", ".fits", ".fts", ".gz")):
        with fits.open(path) as units:
            data = next(unit.data for unit in units
                        if unit.is_image and unit.data is not None and unit.data.ndim in (2, 3))
        if data.ndim == 3:  # a plane for each colour, or a colour in each pixel
            data = data if data.shape[2] in (1, 3) else numpy.moveaxis(data, 0, 2)
            data = data[:, :, ::-1]
        data = numpy.asarray(data, numpy.float32)[::-1]  # the first row of the file is the lowest
    else:
        data = cv2.imdecode(numpy.fromfile(path, numpy.uint8), cv2.IMREAD_UNCHANGED)
        data = data.astype(numpy.float32)
    scale = WIDTH / data.shape[1]
    size = (WIDTH, max(1, round(data.shape[0] * scale)))
    return cv2.resize(numpy.ascontiguousarray(data), size, interpolation=cv2.INTER_AREA)


def _stretch_of(samples):
    """Black, white and exponent that make an image visible."""
    import numpy  # pylint: disable=import-outside-toplevel

    black, middle, white = numpy.nanpercentile(samples, (0.1, 50, 99.9))
    span = max(white - black, 1e-12)
    median = min(max((middle - black) / span, 1e-4), 0.999)
    exponent = numpy.log(MIDDLE) / numpy.log(median) if median < MIDDLE else 1.0
    return black, span, exponent


def _encode(samples, stretch):
    import cv2  # pylint: disable=import-outside-toplevel
    import numpy  # pylint: disable=import-outside-toplevel

    black, span, exponent = stretch
    shown = numpy.clip((numpy.nan_to_num(samples) - black) / span, 0, 1) ** exponent
    _, file = cv2.imencode(".jpg", numpy.rint(shown * 255).astype(numpy.uint8),
                           [cv2.IMWRITE_JPEG_QUALITY, 85])
    return base64.b64encode(file.tobytes()).decode("ascii")


def main():
    for before, after in zip(sys.argv[1::2], sys.argv[2::2]):
        print(json.dumps(_pair(before, after)), flush=True)


def _pair(before, after):
    try:
        samples = _read(before)
        stretch = _stretch_of(samples)
        return [_encode(samples, stretch), _encode(_read(after), stretch)]
    except Exception:  # pylint: disable=broad-except # whatever a library finds wrong
        return None


if __name__ == "__main__":
    main()
