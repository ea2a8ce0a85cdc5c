"""The line of progress."""

import io
import os
import pathlib
import tempfile
import unittest

import batches  # noqa: F401 # makes the package known

from nebulex_batch.words import duration, frame_count
from nebulex_batch.progress import Progress
from nebulex_batch.records import write_record


class Terminal(io.StringIO):
    def isatty(self):
        return True


class ProgressLine(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()  # pylint: disable=consider-using-with
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.now = 0

    def end(self, progress, number, outcome, seconds):
        path = self.folder / f"{number}.json"
        write_record(path, {"outcome": outcome})
        progress.take({"level": "job_info", "name": "starless", "jobid": number, "output": [str(path)]})
        self.now += seconds
        progress.take({"level": "job_finished", "jobid": number})

    def test_counts_and_tells_the_time_left(self):
        stream = Terminal()
        progress = Progress(stream, 4, lambda: self.now)
        self.end(progress, 1, "done", 100)
        # The first line comes when the first frame begins.
        self.assertEqual(stream.getvalue(), "\r0 of 4 frames done, 0 failed"
                         "\r1 of 4 frames done, 0 failed, about 5 min left")
        self.end(progress, 2, "failed", 100)
        self.assertTrue(stream.getvalue().endswith("\r1 of 4 frames done, 1 failed, about 3 min left"))
        self.end(progress, 3, "kept", 10)
        self.assertTrue(stream.getvalue().rstrip(" ").endswith(
            "\r2 of 4 frames done, 1 failed, about 70 s left"))
        self.end(progress, 4, "done", 10)
        # A shorter line covers the longer one before it.
        last = stream.getvalue().split("\r")[-1]
        self.assertEqual(last.rstrip(), "3 of 4 frames done, 1 failed")
        self.assertTrue(last.endswith("\n"))
        self.assertEqual(len(last), len("2 of 4 frames done, 1 failed, about 70 s left") + 1)

    def test_writes_few_lines_where_they_cannot_overwrite_themselves(self):
        stream = io.StringIO()
        progress = Progress(stream, 20, lambda: self.now)
        for number in range(20):
            self.end(progress, number, "done", 10)
        lines = stream.getvalue().splitlines()
        self.assertEqual(len(lines), 8)  # at the start, then after 30 s each, and at the end
        self.assertEqual(lines[-1], "20 of 20 frames done, 0 failed")

    def test_other_reports_of_the_engine_count_nothing(self):
        stream = io.StringIO()
        progress = Progress(stream, 1, lambda: self.now)
        progress.take({"level": "info", "msg": "x"})
        progress.take({"level": "job_info", "name": "all", "jobid": 0, "output": []})
        progress.take({"level": "job_finished", "jobid": 0})
        self.assertEqual(stream.getvalue(), "")

    def test_takes_the_number_of_frames_from_the_batch(self):
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        os.chdir(self.folder)
        write_record(pathlib.Path("batch.json"), {"open_frames": 7})
        stream = io.StringIO()
        self.end(Progress(stream, clock=lambda: self.now), 1, "done", 1)
        self.assertEqual(stream.getvalue(), "0 of 7 frames done, 0 failed\n")

    def test_durations(self):
        for seconds, text in ((0.4, "0 s"), (89, "89 s"), (90, "2 min"), (3600, "60 min"),
                              (5400, "1.5 h"), (360000, "100.0 h")):
            self.assertEqual(duration(seconds), text)


class Frames(unittest.TestCase):
    def test_are_counted_in_words(self):
        self.assertEqual([frame_count(number) for number in (0, 1, 2)],
                         ["0 frames", "1 frame", "2 frames"])


if __name__ == "__main__":
    unittest.main()
