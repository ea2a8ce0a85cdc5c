"""What is done once, before the first frame: finding the frames, and which of them are done."""

import fcntl
import os
import pathlib
import shutil

from . import BatchError, frames, records, report_files
from .plan_of_frame import request_of
from .results import is_same


def check(batch):
    """The frames of a batch. Raises BatchError where it cannot start; writes nothing."""
    frames.check_folders(batch["in"], batch["out"])
    names = frames.find_frames(batch["in"], batch["pattern"])
    if not names:
        raise BatchError(
            f"There is no frame in {batch['in']}: no file whose name fits "
            + ", ".join(batch["pattern"])
        )
    frames.check_names(names, batch["suffix"], batch["layers"])
    report_files.check(batch["out"])
    return names


class Plan:
    """A batch that may start. Holds its lock as long as this object lives."""

    def __init__(self, batch):
        """Raises BatchError where the batch cannot start; then nothing has been written."""
        self.batch = batch
        self.names = check(batch)
        self.state = pathlib.Path(batch["out"], records.STATE_FOLDER)
        self._lock = lock(self.state)
        self._drop_statuses_that_no_longer_hold()
        opened = sum(not self._status_path(name).exists() for name in self.names)
        records.write_record(self.state / records.BATCH_FILE, {**batch, "open_frames": opened})

    def identifiers(self):
        return [frames.frame_id(name) for name in self.names]

    def _status_path(self, name):
        return records.status_path(self.state, frames.frame_id(name))

    def _drop_statuses_that_no_longer_hold(self):
        for name in self.names:
            path = self._status_path(name)
            if not os.path.lexists(path):
                continue
            if path.is_dir():
                shutil.rmtree(path)
            elif not self.holds(name, records.read_record(path)):
                path.unlink()

    def holds(self, name, status):
        """Whether what a status says of a frame is still so."""
        if status is None or status.get("request") != request_of(self.batch, name):
            return False
        found = records.stamp(os.path.join(self.batch["in"], name))
        if found is None or not is_same(status.get("stamp"), found):
            return False
        if status.get("outcome") == "failed":
            return status.get("status") is not None  # else the program has never seen the frame
        return all(
            os.path.exists(os.path.join(self.batch["out"], result))
            for result in status["request"]["results"].values()
        )


def lock(state):
    """Keeps other runs out of a batch. The kernel lets go of it when this process is gone, however
    it went. Makes the folder. Raises BatchError where another run has it, where the folder cannot be
    written to, or where its file system keeps no locks."""
    try:
        state.mkdir(parents=True, exist_ok=True)
        file = open(state / "lock", "a+", encoding="ascii")  # pylint: disable=consider-using-with
    except OSError as error:
        raise BatchError(
            f"The folder of the results cannot be written to: {state.parent} ({error.strerror})."
        ) from None
    try:
        _take(file, state)
    except BatchError:
        file.close()
        raise
    file.truncate(0)
    file.write(f"process {os.getpid()} on {os.uname().nodename}")
    file.flush()
    return file


def _take(file, state):
    try:
        fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        file.seek(0)
        raise BatchError(
            f"Another run is at work on {state.parent} ({file.read().strip()})."
        ) from None
    except OSError as error:
        raise BatchError(
            f"{state.parent} is on a file system without locks ({error.strerror}), which a batch needs. "
            "Choose another place for the results, or have it mounted with them."
        ) from None
