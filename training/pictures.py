#!/usr/bin/env python3
"""Makes the pictures of models/MODEL_CARD.md, and those of the real sky in README.md.

    training/pictures.py [--photographs FOLDER] [--program PROGRAM] [--model FILE]

Computed scenes are those of the sets that measure, at 100 %: with stars, the truth, the result. Of
photographs, which are no part of the project, small parts before and after are kept; their authors
and licences stand in docs/images/CREDITS.md. Without --photographs these are left as they are.
"""

import argparse
import pathlib

import cv2
import numpy as np

from nebulex_training.evaluation.computed import MeasuredScene
from nebulex_training.evaluation.photographs import load_photograph
from nebulex_training.evaluation.program import ProgramRemover

_ROOT = pathlib.Path(__file__).resolve().parent.parent
_IMAGES = _ROOT / "docs" / "images"
_SIZE = 512  # pixels of a scene
_PART = 320  # pixels of it that are shown
_GAP = 6
# Name, set, and of each scene that is shown its number, first row and first column.
_SHEETS = (
    ("network-good.jpg", "validation", ((5, 96, 96), (8, 96, 96), (12, 96, 96), (17, 96, 96))),
    ("deep-field.jpg", "deep-validation", ((4, 96, 96),)),
)
# Name, the beginning of the photograph's name, first row and first column.
_PHOTOGRAPHS = (
    ("sky-ring.jpg", "a03", 120, 60),
    ("sky-andromeda.jpg", "a08", 260, 300),
    ("sky-horsehead.jpg", "a09", 190, 380),
)
_PHOTOGRAPH_PART = 480


def _side_by_side(panels):
    gap = np.ones((panels[0].shape[0], _GAP, 3), np.float32)
    row = [panels[0]]
    for panel in panels[1:]:
        row += [gap, panel]
    return np.hstack(row)


def _save(name, rows):
    gap = np.ones((_GAP, rows[0].shape[1], 3), np.float32)
    lines = [rows[0]]
    for row in rows[1:]:
        lines += [gap, row]
    picture = np.round(np.clip(np.vstack(lines), 0.0, 1.0) * 255.0).astype(np.uint8)
    if not cv2.imwrite(str(_IMAGES / name), picture[:, :, ::-1], [cv2.IMWRITE_JPEG_QUALITY, 90]):
        raise OSError(f"{_IMAGES / name} cannot be written.")


def _part(picture, row, column, side):
    return picture[row : row + side, column : column + side]


def make_sheets(remover):
    for name, scene_set, places in _SHEETS:
        rows = []
        for number, row, column in places:
            scene = MeasuredScene(scene_set, number, _SIZE)
            panels = (scene.picture, scene.truth, remover(scene.picture))
            rows.append(_side_by_side([_part(each, row, column, _PART) for each in panels]))
        _save(name, rows)


def make_photographs(remover, folder):
    for name, beginning, row, column in _PHOTOGRAPHS:
        (path,) = folder.glob(f"{beginning}*")
        picture = load_photograph(path)
        panels = (picture, remover(picture))
        parts = [_part(each, row, column, _PHOTOGRAPH_PART) for each in panels]
        _save(name, [_side_by_side(parts)])


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--photographs", type=pathlib.Path, help="where the photographs lie")
    parser.add_argument("--program", default=_ROOT / "build" / "program" / "bin" / "nebulex2")
    parser.add_argument("--model", default=_ROOT / "models" / "Nebulex2_weights.onnx")
    options = parser.parse_args()
    remover = ProgramRemover("shown", options.program, options.model, 256)
    make_sheets(remover)
    if options.photographs:
        make_photographs(remover, options.photographs)


if __name__ == "__main__":
    main()
