"""Runs that are ended from outside."""

import random
import signal
import subprocess
import time
import unittest
import unittest.mock

from faults import SANITIZED, Fault, FaultTest, spread
from program import PROGRAM, run

MOMENTS = 10 if SANITIZED else 50
ENDING = (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGPIPE, signal.SIGTERM,
          signal.SIGXCPU)


class Signals(FaultTest):
    def setUp(self):
        super().setUp()
        self.source = self.input("in.fits")
        self.before = self.source.read_bytes()
        self.targets = self.outputs("out.fits.gz", "mask.tif", "stars.png")
        started = time.monotonic()
        self.whole = self.complete(self.source, self.targets)
        self.duration = time.monotonic() - started
        self.run_arguments = self.arguments(self.source, self.targets)

    def end_after(self, seconds, number):
        """The status of a run that gets a signal after so many seconds."""
        with subprocess.Popen([PROGRAM, *self.run_arguments], stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
            time.sleep(seconds)
            process.send_signal(number)
            return process.wait()

    def check_disk(self, status, leftovers=0):
        self.judge(unittest.mock.Mock(status=status), self.targets, self.whole, leftovers)
        self.assertEqual(self.source.read_bytes(), self.before)

    def end_at_random_moments(self, number, leftovers):
        moments = random.Random(number)
        ended = 0
        for _ in range(MOMENTS):
            seconds = moments.uniform(0, 1.1 * self.duration)
            with self.subTest(seconds=seconds):
                self.restore(self.targets)
                status = self.end_after(seconds, number)
                self.assertIn(status, (0, -number))
                self.check_disk(status, leftovers)
                ended += status != 0
                for leftover in self.results.glob(".nebulex2-*"):
                    leftover.unlink()
        self.assertGreater(ended, 0)

    def test_terminated_at_random_moments(self):
        self.end_at_random_moments(signal.SIGTERM, leftovers=0)

    def test_killed_at_random_moments(self):
        self.end_at_random_moments(signal.SIGKILL, leftovers=1)

    def strike_at_calls(self, call, number, leftovers):
        for at in spread(self.count_calls(call, *self.run_arguments, path=self.results), 6):
            with self.subTest(call=call, at=at):
                self.restore(self.targets)
                fault = Fault(call, number=at, path=self.results, signal=int(number))
                result, hit = self.struck(fault, *self.run_arguments)
                self.assertTrue(hit)
                self.assertEqual(result.status, -number)
                self.check_disk(result.status, leftovers)
                for leftover in self.results.glob(".nebulex2-*"):
                    if call == "write":
                        self.assertEqual(leftover.stat().st_mode & 0o777, 0o600)
                    leftover.unlink()

    def test_terminated_while_it_writes(self):
        for call in ("open", "write", "flush", "close", "rename"):
            self.strike_at_calls(call, signal.SIGTERM, leftovers=0)

    def test_killed_while_it_writes(self):
        for call in ("write", "rename"):
            self.strike_at_calls(call, signal.SIGKILL, leftovers=1)

    def test_half_a_result_is_for_its_owner_alone(self):
        self.targets = self.outputs("out.fits", "mask.fits.gz")
        self.whole = self.complete(self.source, self.targets)
        self.run_arguments = self.arguments(self.source, self.targets)
        self.strike_at_calls("write", signal.SIGKILL, leftovers=1)

    def test_every_ending_signal_removes_what_is_unfinished(self):
        for number in ENDING:
            with self.subTest(number=number):
                self.restore(self.targets)
                fault = Fault("write", number=5, path=self.results, signal=int(number))
                result, _ = self.struck(fault, *self.run_arguments)
                self.assertEqual(result.status, -number)
                self.check_disk(result.status)

    def test_a_signal_that_is_ignored_stays_ignored(self):
        self.restore(self.targets)
        fault = Fault("write", number=1, path=self.results, signal=int(signal.SIGHUP))
        result, _ = self.struck(
            fault, *self.run_arguments,
            preexec=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        self.assertEqual(result.status, 0, result.err)
        self.check_disk(result.status)

    def test_leftovers_of_a_killed_run_with_the_same_number_do_no_harm(self):
        script = (
            'for n in 0 1 2 3 4 5 6 7; do for e in .fits.gz .tif .png; do '
            'echo leftover >"$1/.nebulex2-$$-$n$e"; done; done; shift; exec "$@"'
        )
        result = run(*self.run_arguments, inside=("sh", "-c", script, "sh", self.results))
        self.assertEqual(result.status, 0, result.err)
        self.check_disk(result.status, leftovers=24)
        leftovers = list(self.results.glob(".nebulex2-*"))
        self.assertEqual(len(leftovers), 24)
        for leftover in leftovers:
            self.assertEqual(leftover.read_bytes(), b"leftover\n")


if __name__ == "__main__":
    unittest.main()
