"""Reads and checks what a batch is to do."""

import json
import os
import pathlib
import shutil
import subprocess

import jsonschema
import yaml

from . import BatchError

SCHEMA = pathlib.Path(__file__).parents[1] / "schemas" / "config.schema.json"
FOLDERS = ("in", "out")

# What the workflow itself says to the program for each frame.
OWN_OPTIONS = ("input", "output", "mask", "unscreen")


def read_file(path):
    """What a configuration file says. Raises BatchError where it has an unknown key or a value that
    cannot be."""
    try:
        with open(path, encoding="utf-8") as file:
            values = yaml.safe_load(file)
    except (OSError, UnicodeDecodeError, yaml.YAMLError) as error:
        raise BatchError(f"{path} cannot be read: {error}") from None
    values = values if values is not None else {}
    _check(values, path, required=False)
    return values


def check_values(values):
    """Raises BatchError where all configuration taken together is not complete or not right."""
    _check(values, "configuration", required=True)


def _check(values, where, required):
    with open(SCHEMA, encoding="ascii") as file:
        schema = json.load(file)
    if not required:
        del schema["required"]
    errors = sorted(jsonschema.Draft7Validator(schema).iter_errors(values), key=_order)
    if errors:
        # Each missing key is an error of its own, with the same description.
        lines = dict.fromkeys(f"{where}: {_describe(error)}" for error in errors)
        raise BatchError("\n".join(lines))


def _order(error):
    return [str(part) for part in error.path], error.message


def _describe(error):
    key = "".join(f"[{part}]" if isinstance(part, int) else f".{part}" for part in error.path)
    place = key.lstrip(".") + ": " if key else ""
    if error.validator == "additionalProperties":
        known = error.schema["properties"]
        return "; ".join(f"{place}unknown key '{name}'" for name in error.instance
                         if name not in known)
    if error.validator == "required":
        return "; ".join(f"{place}key '{name}' is missing" for name in error.validator_value
                         if name not in error.instance)
    return place + error.message


def resolve(values, folder):
    """The values with absolute paths; relative ones start in the folder. Checks the program and its
    options with what the program says of itself."""
    resolved = dict(values)
    for key in FOLDERS:
        path = os.path.expanduser(values[key])
        resolved[key] = os.path.normpath(os.path.join(folder, path))
    resolved["program"] = find_program(values["program"], folder)
    known = ask_program(resolved["program"])
    resolved["options"] = _resolve_options(values["options"], known, folder, "options")
    resolved["exceptions"] = [
        {**exception, "options": _resolve_options(
            exception["options"], known, folder, f"exceptions[{number}].options")}
        for number, exception in enumerate(values["exceptions"])
    ]
    return resolved


def find_program(program, folder):
    """The program's absolute path. Raises BatchError where there is none."""
    path = os.path.expanduser(program)
    found = shutil.which(os.path.join(folder, path) if "/" in path else path)
    if found is None:
        raise BatchError(f"program: {program} is not there, or cannot be run.")
    return os.path.abspath(found)


def ask_program(program):
    """The processing options that the program has, each by its flags."""
    try:
        answer = subprocess.run([program, "--machine-info"], stdin=subprocess.DEVNULL,
                                capture_output=True, timeout=60, check=True)
        options = json.loads(answer.stdout)["options"]
    except (OSError, subprocess.SubprocessError, ValueError, KeyError) as error:
        raise BatchError(f"program: {program} does not say what it can do: {error}") from None
    return {flag: option for option in options if option["mode"] == "processing"
            for flag in option["flags"]}


def _resolve_options(options, known, folder, key):
    resolved = []
    words = iter(options)
    for word in words:
        option = known.get(word)
        if option is None:
            raise BatchError(f"{key}: the program has no option {word} for a run.")
        if option["name"] in OWN_OPTIONS:
            raise BatchError(f"{key}: {word} is chosen for each frame; see `suffix` and `layers`.")
        resolved.append(word)
        if option["type"] == "boolean":
            continue
        value = next(words, None)
        if value is None:
            raise BatchError(f"{key}: {word} needs a value.")
        if option["type"] == "path":
            value = os.path.normpath(os.path.join(folder, os.path.expanduser(value)))
        resolved.append(value)
    return resolved
