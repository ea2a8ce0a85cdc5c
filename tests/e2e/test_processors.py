"""The program keeps to the processors that it was given."""

import os
import pathlib
import subprocess
import time
import unittest

from program import PROGRAM, ProgramTest, model, run

FIRST_LINE = b"Working: 0.0%\r"
ALLOWED = sorted(os.sched_getaffinity(0))


def thread_affinities(process):
    """The processors that each thread of a running process may use, as the kernel lists them."""
    found = []
    for status in pathlib.Path(f"/proc/{process.pid}/task").glob("*/status"):
        try:
            lines = status.read_text().splitlines()
        except (FileNotFoundError, ProcessLookupError):  # the thread has just ended
            continue
        found += [line.split()[1] for line in lines if line.startswith("Cpus_allowed_list:")]
    return found


@unittest.skipIf(len(ALLOWED) < 2, "there is one processor only")
class Processors(ProgramTest):
    def restrict(self):
        os.sched_setaffinity(0, {ALLOWED[-1]})

    def test_no_thread_leaves_the_processors_of_the_process(self):
        command = [PROGRAM, "-i", self.image(rows=1024, columns=1024), "-o", self.path("out.tif"),
                   "-s", "64"]
        affinities, most_threads = set(), 0
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, preexec_fn=self.restrict) as process:
            # The second progress line comes after the first tile: the session is there.
            started = process.stdout.read(len(FIRST_LINE) + 1)
            end = time.monotonic() + 1
            while time.monotonic() < end and process.poll() is None:
                now = thread_affinities(process)
                affinities.update(now)
                most_threads = max(most_threads, len(now))
                time.sleep(0.01)
            process.kill()
            process.communicate()
        self.assertEqual(started, FIRST_LINE + b"W")
        self.assertEqual(affinities, {str(ALLOWED[-1])})
        self.assertEqual(most_threads, 1)

    def test_nothing_is_said_about_affinity(self):
        command = ("-i", self.image(), "-o", self.path("out.tif"), "-w", model("identity"))
        result = run(*command, preexec=self.restrict)
        self.assertEqual(result.status, 0, result.err)
        self.assertNotIn("affinity", (result.out + result.err).lower())

    def test_results_do_not_depend_on_the_number_of_processors(self):
        source = self.image()
        self.succeed("-i", source, "-o", self.path("all.tif"), "-q")
        self.succeed("-i", source, "-o", self.path("one.tif"), "-q", preexec=self.restrict)
        self.assertEqual(self.path("all.tif").read_bytes(), self.path("one.tif").read_bytes())


if __name__ == "__main__":
    unittest.main()
