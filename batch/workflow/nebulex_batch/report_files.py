"""The files for people in the results' folder, and how they are told from those of others."""

import os
import pathlib
import shlex
import tempfile

from . import BatchError
from .words import frame_count

REPORT, FAILED = "report.html", "failed.tsv"
MARKS = {
    REPORT: "<!-- written by nebulex2's batch -->",
    FAILED: "# written by nebulex2's batch",
}
RETRY = pathlib.Path(__file__).resolve().parents[2] / "retry"


def check(folder):
    """Raises BatchError where a file of somebody else is in a report's place."""
    for name, mark in MARKS.items():
        path = pathlib.Path(folder, name)
        if os.path.lexists(path) and not _begins_with(path, mark):
            raise BatchError(
                f"{path} is in the place of this batch's own file of that name and was not written "
                "by it. Move it away, or choose another folder for the results."
            )


def _begins_with(path, mark):
    try:
        with open(path, "rb") as file:
            return file.read(len(mark)) == mark.encode("ascii")
    except OSError:
        return False


def write(folder, name, text):
    """Writes one of the files, its mark first, in place of the one of an earlier run.

    Raises BatchError as `check` does."""
    check(folder)
    path = pathlib.Path(folder, name)
    handle, beside = tempfile.mkstemp(prefix=".nebulex2-batch-", dir=folder)
    with os.fdopen(handle, "w", encoding="utf-8", errors="backslashreplace") as file:
        file.write(MARKS[name] + "\n" + text)
    os.chmod(beside, 0o644)
    os.replace(beside, path)


def summary_text(folder, counts):
    """What has become of the frames, in a line or two."""
    parts = [f"{frame_count(counts['done'])} done"]
    parts += [f"{counts[key]} {text}" for key, text in
              (("kept", "left alone"), ("failed", "failed"), ("unfinished", "not finished"))
              if counts[key]]
    text = ", ".join(parts) + f". Report: {pathlib.Path(folder, REPORT)}"
    if counts["failed"] + counts["unfinished"]:
        text += f"\nWhich failed, and why: {pathlib.Path(folder, FAILED)}"
    if counts["unfinished"]:
        text += "\nThe same command goes on with those that are not finished."
    if counts["failed"]:
        text += f"\nTo have the failed ones tried again by the next run: {RETRY} {shlex.quote(str(folder))}"
    return text
