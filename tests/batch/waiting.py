"""Waits for what other processes do."""

import time

LONGEST_S = 240  # much more than it ever takes, as the machine may be busy with other things


def wait_for(condition, what):
    """Raises TimeoutError when it takes far too long."""
    end = time.monotonic() + LONGEST_S
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"{what} did not come within {LONGEST_S} s")
        time.sleep(0.05)
