"""One frame's run, begun, interrupted and taken up again."""

import json
import os
import signal
import subprocess
import time
import unittest

from batches import BATCH, PYTHON, TIMEOUT_S, BatchTest
from waiting import wait_for

from nebulex_batch import records

RUNNER = BATCH / "workflow" / "nebulex_batch" / "run_frame.py"


class RunFrame(BatchTest):
    def setUp(self):
        super().setUp()
        self.state = self.results / records.STATE_FOLDER
        self.set_batch()

    def set_batch(self, **values):
        batch = {"in": str(self.source), "out": str(self.results), "program": str(self.program),
                 "suffix": "", "layers": ["mask"], "options": [], "exceptions": [], "threads": 1,
                 "attempts": 3, **values}
        records.write_record(self.state / records.BATCH_FILE, batch)

    def start(self, name, attempt=1):
        return subprocess.Popen([PYTHON, str(RUNNER), str(self.state), name, str(attempt), "350", "2"])

    def run_frame(self, name, attempt=1, status=0):
        with self.start(name, attempt) as process:
            self.assertEqual(process.wait(TIMEOUT_S), status)

    def interrupt_placing(self, *in_place):
        """Puts a.tif into the state of a run that was killed while it moved results in place."""
        if not (self.source / "a.tif").exists():  # else it would be another frame, by its time
            self.frame("a.tif")
        self.run_frame("a.tif")
        work = records.work_folder(self.state, "a.tif")
        work.mkdir(parents=True)
        for name in ("a.tif", "a_mask.tif"):
            if name not in in_place:
                (self.results / name).rename(work / name)
        records.status_path(self.state, "a.tif").unlink()

    def check_whole(self, starts):
        self.assertEqual(self.result_names(), ["a.tif", "a_mask.tif"])
        self.assertEqual((self.results / "a.tif").read_bytes(), b"frame a.tif")
        self.assertEqual((self.results / "a_mask.tif").read_bytes(), b"mask\n")
        self.assertEqual(self.status("a.tif")["outcome"], "done")
        self.assertEqual(self.starts("a.tif"), starts)
        self.assertEqual(os.listdir(self.state / "work"), [])

    def test_finished_results_are_put_in_place_without_the_program(self):
        for in_place in ((), ("a.tif",), ("a_mask.tif",), ("a.tif", "a_mask.tif")):
            with self.subTest(in_place=in_place):
                self.interrupt_placing(*in_place)
                self.run_frame("a.tif")
                self.check_whole(starts=1)

    def test_a_result_that_is_linked_to_its_place_already_is_finished(self):
        self.interrupt_placing("a.tif", "a_mask.tif")
        os.link(self.results / "a.tif", records.work_folder(self.state, "a.tif") / "a.tif")
        self.run_frame("a.tif")
        self.check_whole(starts=1)

    def test_half_a_set_is_run_again(self):
        self.interrupt_placing("a.tif")
        (records.work_folder(self.state, "a.tif") / "a_mask.tif").unlink()
        self.run_frame("a.tif")
        self.check_whole(starts=2)

    def test_results_of_other_options_are_run_again(self):
        self.interrupt_placing()
        self.set_batch(options=["--linear"])
        self.run_frame("a.tif")
        self.check_whole(starts=2)

    def test_results_of_another_frame_are_run_again(self):
        self.interrupt_placing("a.tif")
        self.age(self.source / "a.tif", 500)
        self.run_frame("a.tif")
        self.check_whole(starts=2)

    def test_a_file_that_came_in_between_is_left_alone(self):
        self.interrupt_placing("a_mask.tif")
        (self.results / "a.tif").write_bytes(b"by hand")
        self.run_frame("a.tif")
        self.assertEqual((self.results / "a.tif").read_bytes(), b"by hand")
        self.assertEqual(self.status("a.tif")["outcome"], "kept")

    def test_what_a_killed_program_has_left_is_cleared(self):
        self.frame("a.tif")
        work = records.work_folder(self.state, "a.tif")
        work.mkdir(parents=True)
        (work / "a.tif").write_bytes(b"half a res")
        (work / ".nebulex2-1-0.tif").write_bytes(b"half a result")
        self.run_frame("a.tif")
        self.check_whole(starts=1)

    def test_two_runs_of_a_frame_start_the_program_once(self):
        self.frame("held.tif")
        first = self.start("held.tif")
        wait_for(lambda: self.starts("held.tif"), "the program's start")
        second = self.start("held.tif")
        time.sleep(0.5)
        self.assertEqual(self.starts("held.tif"), 1)
        (self.folder / "gate").touch()
        self.assertEqual((first.wait(TIMEOUT_S), second.wait(TIMEOUT_S)), (0, 0))
        self.assertEqual(self.starts("held.tif"), 1)
        self.assertEqual(self.status("held.tif")["outcome"], "done")

    def test_a_signal_ends_the_program_too_and_leaves_no_status(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number=number):
                self.frame("held.tif")
                before = len(self.starts())
                process = self.start("held.tif", attempt=3)
                wait_for(lambda start=before: len(self.starts()) > start, "the program's start")
                process.send_signal(number)
                self.assertEqual(process.wait(TIMEOUT_S), 128 + number)
                self.assertFalse(records.status_path(self.state, "held.tif").exists())
                self.assertEqual(self.result_names(), [])

    def test_a_program_that_ends_by_the_same_signal_first_leaves_no_status(self):
        # As on Ctrl-C, which reaches both: the program is often gone when its runner hears of it.
        self.frame("a.tif")
        self.program.write_text("#!/bin/sh\nsleep 0.1\nkill -INT $PPID\nkill -INT $$\n")
        for _ in range(20):
            self.run_frame("a.tif", status=128 + signal.SIGINT)
        self.assertFalse((self.state / "status" / "a.tif.json").exists())

    def test_a_killed_program_is_for_the_engine_to_try_again_until_the_last_attempt(self):
        self.frame("killed_9.tif")
        for attempt in (1, 2):
            self.run_frame("killed_9.tif", attempt, status=128 + signal.SIGKILL)
            self.assertFalse(records.status_path(self.state, "killed_9.tif").exists())
        self.run_frame("killed_9.tif", 3)
        status = self.status("killed_9.tif")
        self.assertEqual((status["outcome"], status["status"]), ("failed", -signal.SIGKILL))
        self.assertEqual(status["message"], "The program was killed by SIGKILL in each of 3 attempts, "
                                            "the last one with 350 MB.")

    def test_a_status_says_what_the_program_said_and_used(self):
        self.frame("warned.tif")
        self.run_frame("warned.tif")
        status = self.status("warned.tif")
        self.assertEqual(status["warnings"], [{"code": "data_loss",
                                               "message": "Samples were clipped."}])
        self.assertEqual(status["asked"], {"mem_mb": 350, "minutes": 2})
        self.assertGreater(status["seconds"], 0)
        self.assertGreater(status["mem_mb"], 0.5)

    def test_a_place_that_cannot_be_written_is_the_frames_failure(self):
        self.frame("night/a.tif")
        (self.results / "night").write_bytes(b"a file where the folder would be")
        self.run_frame("night/a.tif")
        status = self.status("night/a.tif")
        self.assertEqual(status["outcome"], "failed")
        self.assertIn(str(self.results / "night"), status["message"])

    def test_a_program_that_has_gone_is_named(self):
        self.frame("a.tif")
        self.program.unlink()
        self.run_frame("a.tif")
        self.assertEqual(self.status("a.tif")["message"], f"{self.program}: No such file or directory")

    def test_libraries_words_between_the_records_do_no_harm(self):
        self.frame("a.tif")
        self.program.write_text('#!/bin/sh\necho "[1] null \\"x" >&2\nprintf "17\\n\\377\\n" >&2\nexit 3\n')
        self.run_frame("a.tif")
        self.assertEqual(self.status("a.tif")["message"], "The program ended with status 3.")
        self.assertEqual(json.dumps(self.status("a.tif")["warnings"]), "[]")


if __name__ == "__main__":
    unittest.main()
