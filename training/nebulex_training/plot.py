"""Draws the log of a training as a picture of curves."""

import csv
import math

from PIL import Image, ImageDraw

_WIDTH, _HEIGHT, _MARGIN = 900, 220, 50


def plot_log(log_path, picture_path):
    """One panel for each column but the first, over the column "step"."""
    with open(log_path, newline="", encoding="utf-8") as log:
        rows = list(csv.DictReader(log))
    if len(rows) < 2:
        return
    names = [name for name in rows[0] if name != "step"]
    picture = Image.new("RGB", (_WIDTH, _HEIGHT * len(names)), "white")
    draw = ImageDraw.Draw(picture)
    for panel, name in enumerate(names):
        points = [(float(row["step"]), float(row[name])) for row in rows]
        points = [point for point in points if math.isfinite(point[1])]
        if len(points) > 1:
            _draw_panel(draw, name, points, panel * _HEIGHT)
    picture.save(picture_path)


def _draw_panel(draw, name, points, top):
    steps, values = zip(*points)
    low, high = min(values), max(values)
    span, reach = (high - low) or 1.0, (steps[-1] - steps[0]) or 1.0
    left, right = _MARGIN, _WIDTH - _MARGIN
    base, roof = top + _HEIGHT - 25, top + 25
    draw.rectangle((left, roof, right, base), outline="grey")
    line = [
        (
            left + (step - steps[0]) / reach * (right - left),
            base - (value - low) / span * (base - roof),
        )
        for step, value in points
    ]
    draw.line(line, fill="navy", width=2)
    title = f"{name}: {low:.4g} to {high:.4g}, now {values[-1]:.4g}"
    draw.text((left, top + 8), title, fill="black")
    draw.text((right - 90, base + 6), f"step {steps[-1]:.0f}", fill="black")
