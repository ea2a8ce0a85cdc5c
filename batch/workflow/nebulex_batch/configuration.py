"""Reads and checks what a batch is to do."""

import json
import os
import pathlib
import shutil

import jsonschema
import yaml

from . import BatchError, program_options

SCHEMA = pathlib.Path(__file__).parents[1] / "schemas" / "config.schema.json"
FOLDERS = ("in", "out")


def read_file(path):
    """What a configuration file says. Raises BatchError where it has an unknown key or a value that
    cannot be."""
    try:
        with open(path, encoding="utf-8") as file:
            values = yaml.safe_load(file)
    except (OSError, UnicodeDecodeError, yaml.YAMLError) as error:
        reason = getattr(error, "strerror", None) or error
        raise BatchError(f"{path} cannot be read: {reason}") from None
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
    if error.validator == "enum":
        allowed = ", ".join(value for value in error.validator_value if value)
        return f"{place}'{error.instance}' is not one of {allowed}"
    return place + error.message


def resolve(values, folder):
    """The values with absolute paths; relative ones start in the folder. Checks the program and its
    options with what the program says of itself."""
    resolved = dict(values)
    for key in FOLDERS:
        path = os.path.expanduser(values[key])
        resolved[key] = os.path.normpath(os.path.join(folder, path))
    resolved["program"] = find_program(values["program"], folder)
    known = program_options.ask_program(resolved["program"])
    resolved["options"] = program_options.resolve(values["options"], known, folder, "options")
    resolved["exceptions"] = [
        {**exception, "options": program_options.resolve(
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
