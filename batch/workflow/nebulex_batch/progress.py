"""A line of progress for a run on this computer, from what the engine reports."""

import pathlib
import sys
import time

# The engine loads this file by its path.
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

# pylint: disable=wrong-import-position
from nebulex_batch import records
from nebulex_batch.words import duration, frame_count

LEAST_S_BETWEEN_LINES = 30  # where the line cannot overwrite itself


class Progress:
    """Counts the frames of a run as they end."""

    def __init__(self, stream, total=None, clock=time.monotonic):
        self.stream = stream
        self.total = total  # read when the first frame begins unless given
        self.clock = clock
        self.started = clock()
        self.last_line = None
        self.is_begun = False
        self.statuses = {}
        self.ended = self.failed = self.width = 0

    def take(self, message):
        """One of the engine's reports: a dictionary with its kind in "level"."""
        level = message["level"]
        if level == "job_info" and message["name"] == "starless":
            self.statuses[message["jobid"]] = message["output"][0]
            if not self.is_begun:
                self.begin()
        elif level == "job_finished" and message["jobid"] in self.statuses:
            status = records.read_record(self.statuses.pop(message["jobid"])) or {}
            self.ended += 1
            self.failed += status.get("outcome") == "failed"
            self.show()

    def begin(self):
        """Says that the first frame has begun, which may take minutes."""
        self.is_begun = True
        if self.total is None:
            self.total = records.read_record(pathlib.Path(records.BATCH_FILE))["open_frames"]
        self.show()

    def text(self):
        left = self.total - self.ended
        text = f"{self.ended - self.failed} of {frame_count(self.total)} done, {self.failed} failed"
        if self.ended and left:
            text += ", about " + duration((self.clock() - self.started) / self.ended * left) + " left"
        return text

    def show(self):
        last = self.ended == self.total
        if self.stream.isatty():
            text = self.text()
            self.stream.write("\r" + text.ljust(self.width) + ("\n" if last else ""))
            self.width = len(text)
        elif last or self.last_line is None or (
                self.clock() - self.last_line >= LEAST_S_BETWEEN_LINES):
            self.stream.write(self.text() + "\n")
            self.last_line = self.clock()
        self.stream.flush()


_progress = Progress(sys.stdout)


def log_handler(message):
    """What the engine calls."""
    _progress.take(message)
