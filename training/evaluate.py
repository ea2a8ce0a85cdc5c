#!/usr/bin/env python3
"""Measures models through the program, on computed scenes and on photographs.

    training/evaluate [--model NAME=FILE]... [--set validation] [--photographs FOLDER]...

Without --model, the weights in models/ are measured. Each model is compared with the last one,
scene by scene. The folder gets table.md, results.json with the figures of each scene, scenes.png,
worst.png and photographs.png. Photographs stay where they are; nothing of them is kept but the
sheet.

The sets held-out and deep-held-out are for the end: a set that has chosen anything measures nothing
any more.
"""

import argparse
import json
import pathlib
import sys

from nebulex_training.evaluation.comparison import paired_ratio
from nebulex_training.evaluation.computed import (
    MeasuredScene,
    knowing_the_truth,
    paired_values,
    scene_figures,
    star_error,
    summary,
)
from nebulex_training.evaluation.linear_photographs import is_linear
from nebulex_training.evaluation.photographs import (
    best_of_photograph,
    find_photographs,
    load_photograph,
    measure_forms,
    measure_linear,
    measure_photograph,
    typical_measures,
)
from nebulex_training.evaluation.program import (
    OPENING_DIAMETERS,
    InpaintingRemover,
    NothingRemover,
    OpeningRemover,
    ProgramRemover,
)
from nebulex_training.evaluation.sheet import crop_of_interest, write_sheet
from nebulex_training.evaluation.worst import WorstScenes
from nebulex_training.scene_sets import SETS

_ROOT = pathlib.Path(__file__).resolve().parent.parent
_SHEET_SCENES = 16
_WORST_SCENES = 12
_SCENES_FOR_OPENING = 12
_BEST = "knowing the truth"
_SMALLEST = 512  # pixels, what the program takes


def parse_options():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    add = parser.add_argument
    add("--model", action="append", default=[], metavar="NAME=FILE", help="a model to measure")
    add("--photographs", action="append", default=[], metavar="PLACE", help="a file or a folder")
    add("--program", help="the nebulex2 to call (default: that of a build folder)")
    add("--set", choices=SETS, default="validation", help="which computed scenes")
    add("--scenes", type=int, help="so many of the set, 0 for none; default: all")
    add("--forms", action="store_true", help="also measure photographs multiplied, turned, linear")
    add("--scene-size", type=int, default=512)
    add("--stride", type=int, default=256)
    add("--time", action="store_true", help="also measure the time for a tile")
    add("--no-classical", action="store_true", help="leave the classical ways out")
    add("--out", type=pathlib.Path, default=_ROOT / "build" / "evaluation")
    options = parser.parse_args()
    if not options.model:
        options.model = [f"shipped={_ROOT / 'models' / 'Nebulex2_weights.onnx'}"]
    for model in options.model:
        if "=" not in model or not pathlib.Path(model.split("=", 1)[1]).is_file():
            parser.error(f"--model takes NAME=FILE with an existing file, not {model}")
    of_set = SETS[options.set].count
    options.scenes = of_set if options.scenes is None else min(options.scenes, of_set)
    options.program = options.program or _find_program()
    if options.program is None:
        parser.error("no nebulex2 in the build folders; build it first, or name one with --program")
    return options


def _find_program():
    built = [_ROOT / "build" / name / "bin" / "nebulex2" for name in ("program", "release", "ci")]
    built = [path for path in built if path.is_file()]
    return built[0] if built else None


def main():
    options = parse_options()
    options.out.mkdir(parents=True, exist_ok=True)
    removers = [
        ProgramRemover(model.split("=", 1)[0], options.program, model.split("=", 1)[1],
                       options.stride)
        for model in options.model
    ]  # fmt: skip
    table = [f"Time for a tile, in seconds: {_tile_times(removers)}", ""] if options.time else []
    models = _names(removers)
    removers.append(NothingRemover())
    if not options.no_classical:
        removers += [InpaintingRemover(), _best_opening(options)]
    results = {}
    if options.scenes:
        figures, worst = _measure_scenes(options, removers)
        results["scenes"] = figures
        results["computed scenes"] = {name: dict(summary(figures[name])) for name in figures}
        table += _as_table(f"{options.scenes} scenes: {options.set}", results["computed scenes"])
        for name in models[:-1]:
            table += _paired_table(name, models[-1], figures)
        table += [f"Where {removers[0].name} harms most of what is no star: scenes {worst}", ""]
        _write_results(options.out, table, results)
    lines, photographs = [], []
    for path, picture in _load_photographs(options.photographs):
        results[path.name], line = _measure_one(path, picture, removers, options.forms)
        lines.append(line)
        table += _as_table(path.name, results[path.name])
        write_sheet(options.out / "photographs.png", ["before"] + _names(removers), lines)
        photographs.append(results[path.name])
        _write_results(options.out, table, results)
    if len(lines) > 1:
        results["typical photograph"] = _typical_photograph(photographs)
        table += _as_table("The typical photograph", results["typical photograph"])
        _write_results(options.out, table, results)
    print("\n".join(table))


def _write_results(folder, table, results):
    """Writes what is known so far, since a large evaluation takes long."""
    (folder / "table.md").write_text("\n".join(table) + "\n", encoding="utf-8")
    (folder / "results.json").write_text(json.dumps(results, indent=1), encoding="utf-8")


def _names(removers):
    return [remover.name for remover in removers]


def _tile_times(removers):
    return ", ".join(f"{remover.name} {remover.tile_seconds():.3f}" for remover in removers)


def _best_opening(options):
    """The opening whose result is nearest to the truth on the first scenes."""
    count = min(_SCENES_FOR_OPENING, options.scenes)
    scenes = [MeasuredScene(options.set, n, options.scene_size) for n in range(count)]
    openings = [OpeningRemover(diameter) for diameter in OPENING_DIAMETERS]
    return min(openings, key=lambda way: sum(star_error(s, way(s.picture)) for s in scenes))


def _measure_scenes(options, removers):
    figures = {name: [] for name in [*_names(removers), _BEST]}
    lines, worst = [], WorstScenes(_WORST_SCENES)
    for number in range(options.scenes):
        scene = MeasuredScene(options.set, number, options.scene_size)
        taken_out = [remover(scene.picture) for remover in removers]
        for name, result in zip(figures, [*taken_out, knowing_the_truth(scene)]):
            figures[name].append(scene_figures(scene, result))
        worst.add(number, scene, taken_out)
        if number < _SHEET_SCENES:
            part = crop_of_interest(scene.picture)
            lines.append([picture[part] for picture in (scene.picture, scene.truth, *taken_out)])
        if (number + 1) % 10 == 0:
            print(f"{number + 1} of {options.scenes} scenes", file=sys.stderr, flush=True)
    titles = ["before", "truth"] + _names(removers)
    write_sheet(options.out / "scenes.png", titles, lines)
    write_sheet(options.out / "worst.png", titles, worst.rows())
    numbers = ", ".join(str(number) for number in worst.numbers())
    return figures, numbers


def _paired_table(name, other, figures):
    """The median over scenes of one model's value over the other's, with its 95 % interval."""
    lines = [f"## {name} / {other}, scene by scene", "", "| | ratio | from | to | scenes |"]
    lines.append("|---" * 5 + "|")
    first, second = (dict(paired_values(figures[each])) for each in (name, other))
    for measure, values in first.items():
        ratio, low, high, count = paired_ratio(values, second[measure])
        lines.append(f"| {measure} | {ratio:.3f} | {low:.3f} | {high:.3f} | {count} |")
    return lines + [""]


def _load_photographs(places):
    """Path and picture of each photograph that is large enough; the others are named."""
    for path in find_photographs(places):
        try:
            picture = load_photograph(path)
        except (OSError, ValueError) as error:
            print(f"{path} is left out: {error}", file=sys.stderr)
            continue
        if min(picture.shape[:2]) < _SMALLEST:
            print(f"{path} is left out: smaller than {_SMALLEST} pixels", file=sys.stderr)
            continue
        yield path, picture


def _measure_one(path, picture, removers, with_forms):
    part = crop_of_interest(picture)
    results, line = {}, [picture[part]]
    for remover in removers:
        results[remover.name], result = measure_photograph(remover, picture)
        if with_forms and isinstance(remover, ProgramRemover):
            results[remover.name].update(measure_forms(remover, picture))
            if is_linear(path):
                results[remover.name].update(measure_linear(remover, path))
        line.append(result[part])
    results[_BEST] = best_of_photograph(picture)
    return results, line


def _typical_photograph(photographs):
    return {name: typical_measures([each[name] for each in photographs]) for name in photographs[0]}


def _as_table(title, results):
    names = list(results)
    measures = list(results[names[0]])
    lines = [f"## {title}", "", "| | " + " | ".join(names) + " |", "|---" * (len(names) + 1) + "|"]
    for measure in measures:
        values = (_as_text(results[name].get(measure)) for name in names)
        lines.append(f"| {measure} | " + " | ".join(values) + " |")
    return lines + [""]


def _as_text(value):
    return "" if value is None else f"{value:.3f}"


if __name__ == "__main__":
    main()
