"""Gives each frame processors of its own.

The program takes as many threads as its process may use processors. Frames that run side by side on
one machine would each take all of them, so each is restricted to some that no other frame has.
"""

import os
import random
import socket


def claim(count):
    """Processors for one frame, out of those that this process may use, and what holds the claim.

    A claim is a socket with an agreed name that belongs to no file: one process of the machine can
    have it, and it is free when that process is gone. Where too few are free, for example because
    another batch runs, some are taken at random."""
    allowed = sorted(os.sched_getaffinity(0))
    if len(allowed) <= count:
        return allowed, []
    taken, held = [], []
    for processor in allowed:
        claimed = _try_claim(processor)
        if claimed:
            taken.append(processor)
            held.append(claimed)
            if len(taken) == count:
                return taken, held
    others = [processor for processor in allowed if processor not in taken]
    return taken + random.sample(others, count - len(taken)), held


def _try_claim(processor):
    claimed = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        claimed.bind(f"\0nebulex2-batch-processor-{processor}")
    except OSError:
        claimed.close()
        return None
    return claimed
