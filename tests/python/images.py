"""Images for the tests of the Python package, and the tests' networks."""

import os
import pathlib
import sys

import numpy as np

SOURCE = pathlib.Path(__file__).resolve().parents[2]
MODELS = pathlib.Path(os.environ["NEBULEX2_TEST_MODELS"])

sys.path.insert(0, str(SOURCE / "tests" / "e2e"))
import program  # noqa: E402  (after its folder is named)


def network(name):
    """The file of one of the networks that tests/support/make_models.py makes."""
    path = MODELS / f"{name}.onnx"
    assert path.exists(), path
    return path


def star_field(rows=512, columns=512, channels=3, dtype=np.uint16, seed=1):
    """Noisy sky and stars; integers fill their range, floating samples lie within [0, 1]."""
    if np.dtype(dtype).kind == "u":
        return program.star_field(rows, columns, channels, dtype, seed)
    whole = program.star_field(rows, columns, channels, np.uint16, seed)
    return (whole / 65535.0).astype(dtype)
