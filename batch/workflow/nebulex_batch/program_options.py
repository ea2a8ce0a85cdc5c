"""The program's options, checked before the first frame with what the program says of itself."""

import json
import math
import os
import subprocess

from . import BatchError

# What the workflow itself says to the program for each frame.
OWN_OPTIONS = ("input", "output", "mask", "unscreen")

NUMBERS = {"integer": (int, "a whole number"), "number": (float, "a number")}

# Limits of a number: whether a value is within, and the words for it.
LIMITS = {
    "minimum": (lambda value, limit: value >= limit, "at least"),
    "maximum": (lambda value, limit: value <= limit, "at most"),
    "exclusive_minimum": (lambda value, limit: value > limit, "above"),
    "exclusive_maximum": (lambda value, limit: value < limit, "below"),
}


def ask_program(program):
    """The processing options that the program has, each by its flags. Raises BatchError where it does
    not tell."""
    try:
        answer = subprocess.run([program, "--machine-info"], stdin=subprocess.DEVNULL,
                                capture_output=True, timeout=60, check=True)
        options = json.loads(answer.stdout)["options"]
    except (OSError, subprocess.SubprocessError, ValueError, KeyError) as error:
        raise BatchError(f"program: {program} does not say what it can do: {error}") from None
    return {flag: option for option in options if option["mode"] == "processing"
            for flag in option["flags"]}


def resolve(words, known, folder, key):
    """The words with absolute paths, which start in the folder. Raises BatchError, with the key in
    front, where no frame could be run with them."""
    try:
        return _resolve(words, known, folder)
    except BatchError as error:
        raise BatchError(f"{key}: {error}") from None


def _resolve(words, known, folder):
    resolved, given = [], {}
    rest = iter(words)
    for word in rest:
        option = _find(word, known)
        if option["name"] in given:
            raise BatchError(f"{word} is given twice.")
        given[option["name"]] = word
        resolved.append(word)
        if option["type"] != "boolean":
            resolved.append(_value(word, next(rest, None), option, folder))
    for name, word in given.items():
        _check_company(word, next(one for one in known.values() if one["name"] == name), given, known)
    return resolved


def _find(word, known):
    option = known.get(word)
    if option is None:
        if not word.startswith("-"):
            raise BatchError(f"'{word}' is no option. Names with spaces need quotes.")
        raise BatchError(f"the program has no option {word} for a run.")
    if option["name"] in OWN_OPTIONS:
        raise BatchError(f"{word} is chosen for each frame; see `suffix` and `layers`.")
    return option


def _value(word, value, option, folder):
    if value is None:
        raise BatchError(f"{word} needs a value.")
    if option["type"] in NUMBERS:
        _check_number(word, value, option)
    if option["type"] == "path":
        value = os.path.normpath(os.path.join(folder, os.path.expanduser(value)))
        if not option.get("creates_output") and not os.path.isfile(value):
            raise BatchError(f"{word}: there is no file {value}.")
    return value


def _check_number(word, value, option):
    convert, name = NUMBERS[option["type"]]
    try:
        number = convert(value)
    except ValueError:
        number = math.nan
    if not math.isfinite(number):
        raise BatchError(f"{word} has to be {name}, not '{value}'.")
    for limit, (is_within, words) in LIMITS.items():
        if limit in option and not is_within(number, option[limit]):
            raise BatchError(f"{word} has to be {words} {option[limit]:g}, not {value}.")
    if option.get("constraints", {}).get("even") and number % 2:
        raise BatchError(f"{word} has to be even, not {value}.")


def _check_company(word, option, given, known):
    needed = option.get("requires")
    if needed and needed not in given:
        flag = next(flag for flag, one in known.items() if one["name"] == needed)
        raise BatchError(f"{word} needs {flag} beside it.")
