#!/usr/bin/env python3
"""Draws a contact sheet of computed scenes: with stars, without, and the difference.

    training/preview.py sheet.png [--mix hard] [--seed 1] [--count 8] [--size 512]
"""

import argparse

import torch
from PIL import Image

from nebulex_training.dice import Dice
from nebulex_training.mix import DEEP, FORMER, HARD, USUAL
from nebulex_training.scenes import compute_layers, develop

_MIXES = {"usual": USUAL, "hard": HARD, "deep": DEEP, "former": FORMER}


def draw_sheet(seed, count, size, mix=USUAL, pairs_a_row=2):
    """rows x columns x 3 bytes: triples of pictures, pairs_a_row of them side by side."""
    cells = []
    for scene in range(count):
        dice = Dice(seed + scene)
        layers = compute_layers(dice, 1, size, mix)
        noisy, target = develop(dice, layers.sky, layers.stars, layers.level, mix=mix)
        cells.append(torch.cat((noisy[0], target[0], (noisy - target)[0].abs()), dim=2))
    while len(cells) % pairs_a_row:
        cells.append(torch.zeros_like(cells[0]))
    starts = range(0, len(cells), pairs_a_row)
    lines = [torch.cat(cells[start : start + pairs_a_row], dim=2) for start in starts]
    sheet = torch.cat(lines, dim=1).permute(1, 2, 0)
    return (sheet * 255.0).round().byte().numpy()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("sheet", help="the picture to write")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=8)
    parser.add_argument("--size", type=int, default=512, help="pixels, a multiple of 16")
    parser.add_argument("--mix", choices=_MIXES, default="usual",
                        help="hard: learned from; former: without what came later")  # fmt: skip
    options = parser.parse_args()
    sheet = draw_sheet(options.seed, options.count, options.size, _MIXES[options.mix])
    Image.fromarray(sheet).save(options.sheet)


if __name__ == "__main__":
    main()
