"""Tells what became of the frames, however the run has ended."""

from nebulex_batch import report


if IS_MAIN:

    onsuccess:
        report.write(PLAN)

    onerror:
        report.write(PLAN)
