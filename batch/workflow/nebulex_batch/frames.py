"""The frames of a batch: which files they are, what they are called, where their results go."""

import fnmatch
import os
import re
import urllib.parse

from . import BatchError

# The longest name of a file that common file systems take, less what is put behind an id.
LONGEST_ID_BYTES = 240

# What a file name can hold without a meaning to shells, to the engine or to a record of lines.
_PLAIN = re.compile(r"[\w./+,=@-]", re.UNICODE)
_SUFFIX = re.compile(r"\.[^./]+(\.gz)?$", re.IGNORECASE)


def frame_id(name):
    """The path of a frame below its folder, with all that is not plain percent-encoded: the name by
    which the engine knows it. `frame_name` is the inverse; bytes that are no UTF-8 survive."""
    return "".join(
        character if _PLAIN.match(character) and character.isprintable()
        else urllib.parse.quote(os.fsencode(character), safe="")
        for character in name
    )


def frame_name(identifier):
    return urllib.parse.unquote(identifier, errors="surrogateescape")


def result_names(name, suffix, layers):
    """Paths of a frame's results below their folder, keyed by the program's option for each."""
    found = _SUFFIX.search(name)
    stem = name[: found.start()] if found else name
    ending = suffix or name[len(stem):]
    names = {"--output": stem + ending}
    for layer in layers:
        names["--" + layer] = f"{stem}_{layer}{ending}"
    return names


def fits_pattern(name, pattern):
    """Whether a frame's path below its folder fits a pattern, or its last part one without a
    slash."""
    text = name if "/" in pattern else name.rsplit("/", 1)[-1]
    return fnmatch.fnmatchcase(text.lower(), pattern.lower())


def find_frames(folder, patterns):
    """Sorted paths, below the folder, of the files that fit one of the patterns. Names that begin
    with a dot are left aside, links to folders are not followed.

    Raises BatchError where a folder cannot be read: frames would be missing without a word."""

    def give_up(error):
        raise BatchError(
            f"{error.filename} cannot be read ({error.strerror}), and frames in it would be missing. "
            "Make it readable, or move it away."
        )

    found = []
    for parent, folders, files in os.walk(folder, onerror=give_up):
        folders[:] = [name for name in folders if not name.startswith(".")]
        below = os.path.relpath(parent, folder)
        for file in files:
            name = file if below == "." else f"{below}/{file}"
            if not file.startswith(".") and any(fits_pattern(name, one) for one in patterns):
                found.append(name)
    return sorted(found)


def check_folders(source, target):
    """Raises BatchError unless frames can come from the one folder and results go to the other."""
    if os.path.isfile(source):
        raise BatchError(f"Frames are taken from a folder, and this is a file: {source}")
    if not os.path.isdir(source):
        raise BatchError(f"The folder of the frames does not exist: {source}")
    real_source, real_target = os.path.realpath(source), os.path.realpath(target)
    if is_inside(real_target, real_source) or is_inside(real_source, real_target):
        raise BatchError(
            f"Frames and results need folders of their own, none within the other: {source} and "
            f"{target}. Frames are never written to."
        )
    if os.path.lexists(target) and not os.path.isdir(target):
        raise BatchError(f"The folder of the results is no folder: {target}")


def is_inside(path, folder):
    """Whether a path, both without links, is the folder or lies in it."""
    return os.path.commonpath([path, folder]) == folder


def check_names(names, suffix, layers):
    """Raises BatchError where two frames would have the same result, or a name is too long."""
    owners = {}
    for name in names:
        if max(len(os.fsencode(part)) for part in frame_id(name).split("/")) > LONGEST_ID_BYTES:
            raise BatchError(f"The name of this frame is too long for a batch; shorten it: {name}")
        for result in result_names(name, suffix, layers).values():
            other = owners.setdefault(result, name)
            if other != name:
                raise BatchError(
                    f"Two frames would have the same result, {result}: {other} and {name}. Rename "
                    "one, or choose other values of pattern, suffix or layers."
                )
