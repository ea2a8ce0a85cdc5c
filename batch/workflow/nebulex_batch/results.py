"""Puts the results of a frame in place without harming a file that this batch has not written."""

import errno
import os
import pathlib
import shutil

from .records import stamp, sync_folder


COARSEST_TIME_NS = 2_000_000_000  # what FAT keeps of a time


class ForeignFile(Exception):
    """A result's place is taken by a file that is not to be replaced; the text says why."""


def check_place(target, frames_folder):
    """Raises ForeignFile where the place of a result is, through a link, in the frames' folder."""
    parent = os.path.realpath(os.path.dirname(target))
    frames_folder = os.path.realpath(frames_folder)
    if os.path.commonpath([parent, frames_folder]) == frames_folder:
        raise ForeignFile(
            f"{target} leads into the folder of the frames, which is never written to."
        )


def is_same(one, other):
    """Whether two stamps are of the same content, as far as file systems keep times."""
    return (
        one is not None and other is not None
        and one[0] == other[0] and abs(one[1] - other[1]) <= COARSEST_TIME_NS
    )


def put_in_place(staged, target, own_stamps):
    """Moves a finished result to its place: to a free one without ever replacing what has come there
    meanwhile, or over the one that this batch has written before, known by its stamp.

    Raises ForeignFile where another file is there."""
    target.parent.mkdir(parents=True, exist_ok=True)
    if os.path.lexists(target) and not any(is_same(stamp(target), own) for own in own_stamps):
        raise ForeignFile(f"{target} has appeared, and this batch has not written it.")
    if os.stat(staged).st_dev != os.stat(target.parent).st_dev:
        staged = _carry_over(staged, target)
    if os.path.lexists(target):
        os.replace(staged, target)
    else:
        _move_to_free_place(staged, target)
    sync_folder(target.parent)


def _move_to_free_place(staged, target):
    try:
        os.link(staged, target)
    except FileExistsError:
        raise ForeignFile(f"{target} has appeared, and this batch has not written it.") from None
    except OSError as error:
        # File systems without hard links, such as exFAT.
        if error.errno not in (errno.EPERM, errno.EOPNOTSUPP, errno.ENOSYS, errno.EMLINK):
            raise
        os.rename(staged, target)
    else:
        os.unlink(staged)


def _carry_over(staged, target):
    """Copies a result beside its place on another file system, with its time."""
    beside = pathlib.Path(target.parent, ".nebulex2-batch-" + target.name)
    shutil.copyfile(staged, beside)
    with open(beside, "rb") as file:
        os.fsync(file.fileno())
    shutil.copystat(staged, beside)
    os.unlink(staged)
    return beside
