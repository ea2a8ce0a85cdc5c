"""Runs that end early: Ctrl-C, and functions that raise."""

import signal
import subprocess
import sys
import time
import unittest

import numpy as np

import nebulex
from images import network, star_field

# Prints a line when tiles are being computed, another one when Ctrl-C has come out of the call, and
# a third one when the model has done something else.
VICTIM = """
import numpy as np
import nebulex

image = np.random.default_rng(1).random((1500, 1500, 3), np.float32)
model = nebulex.Model()
try:
    nebulex.remove_stars(image, model=model, stride=64,
                         progress=lambda done, total: done == 1 and print("working", flush=True))
except KeyboardInterrupt:
    print("stopped", flush=True)
flat = np.full((512, 512), 0.25, np.float32)
assert (nebulex.remove_stars(flat, model=model).starless == flat).all()
print("went on", flush=True)
"""
OPENING = """
import nebulex

print("working", flush=True)
try:
    nebulex.Model()
    print("opened", flush=True)
except KeyboardInterrupt:
    print("stopped", flush=True)
print("went on", flush=True)
"""
TRIES = 3


class Full(Exception):
    pass


class Interruption(unittest.TestCase):
    def seconds_to_stop(self, code, delay):
        with subprocess.Popen([sys.executable, "-c", code], stdout=subprocess.PIPE,
                              text=True) as process:
            self.assertEqual(process.stdout.readline(), "working\n")
            time.sleep(delay)
            begin = time.monotonic()
            process.send_signal(signal.SIGINT)
            self.assertEqual(process.stdout.readline(), "stopped\n")
            seconds = time.monotonic() - begin
            self.assertEqual(process.stdout.readline(), "went on\n")
            self.assertEqual(process.wait(), 0)
        return seconds

    def stops_within_a_second(self, code, delay):
        # Other work on the computer may hold up one try.
        tries = []
        while len(tries) < TRIES and (not tries or min(tries) >= 1):
            tries.append(self.seconds_to_stop(code, delay))
        self.assertLess(min(tries), 1, tries)

    def test_ctrl_c_stops_a_run_in_the_middle_of_a_tile_and_the_model_goes_on(self):
        self.stops_within_a_second(VICTIM, delay=0.1)

    def test_ctrl_c_does_not_wait_for_a_model_to_open(self):
        self.stops_within_a_second(OPENING, delay=0.02)

    def test_what_a_progress_function_raises_comes_out(self):
        image = star_field(600, 700, dtype=np.float32)
        model = nebulex.Model(network("pattern"))
        expected = nebulex.remove_stars(image, model=model).starless
        total = 3 * 3
        for last in (0, 4, total):
            calls = []

            def fill_up(done, count):
                calls.append(done)
                if done == last:
                    raise Full(f"{done} of {count}")

            with self.assertRaisesRegex(Full, f"^{last} of {total}$"):
                nebulex.remove_stars(image, model=model, progress=fill_up)
            self.assertEqual(calls, list(range(last + 1)))
            again = nebulex.remove_stars(image, model=model).starless
            np.testing.assert_array_equal(again, expected)


if __name__ == "__main__":
    unittest.main()
