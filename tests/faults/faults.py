"""Runs the program while something goes wrong, and judges what is on the disk afterwards."""

import gzip
import itertools
import os
import pathlib
import re
import shutil
import tempfile

import numpy
import tifffile
from astropy.io import fits

from program import FAILURE, ProgramTest, model, run, star_field, write_image

# Runs under the sanitizers take several times as long, so fewer of many faults are tried.
SANITIZED = os.environ["NEBULEX2_SANITIZERS"] != ""
MOST_FAULTS = 4

# The program flushes every result to the disk, and there are many: memory spares the disk.
if os.access("/dev/shm", os.W_OK) and shutil.disk_usage("/dev/shm").free > 2**28:
    tempfile.tempdir = "/dev/shm"

OLD = b"what was here before"
EIO, ENOMEM, ENOSPC = 5, 12, 28
ALWAYS = NEVER = 10**6

# CFITSIO notes when it computed the checksum, and the checksum covers that note.
CHECKSUM_CARDS = re.compile(rb"(CHECKSUM|DATASUM )= .{70}")


def spread(count, most=MOST_FAULTS):
    """The numbers from 1 to `count`, or as many of them, evenly, with both ends."""
    return sorted(set(numpy.linspace(1, count, min(count, most)).round().astype(int).tolist()))


class Fault:
    """One thing that goes wrong, as FaultPlan.h describes it: Fault("write", number=3, error=5)."""

    def __init__(self, call, **plan):
        self.library = os.environ[
            "NEBULEX2_FAILING_ALLOCATIONS" if call == "allocate" else "NEBULEX2_FAILING_FILES"
        ]
        self.plan = {"call": call, **plan}

    def environment(self, **reports):
        plan = {**self.plan, **reports}
        return {
            "LD_PRELOAD": self.library,
            # The sanitizer's library is not the first one then.
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0",
            **{f"NEBULEX2_FAULT_{name.upper()}": str(value) for name, value in plan.items()},
        }


def content(path):
    """The bytes of a file but for what differs between two runs; None where there is no file."""
    if not path.exists():
        return None
    stored = path.read_bytes()
    if path.name.endswith(".gz"):
        try:
            stored = gzip.decompress(stored)
        except (OSError, EOFError):
            return stored
    return CHECKSUM_CARDS.sub(b"", stored) if ".fits" in path.name else stored


def write_astro_tiff(path, rgb, header):
    tifffile.imwrite(path, rgb, photometric="rgb", description=header, metadata=None)
    return path


def write_fits(path, rgb, header=()):
    """Writes RGB samples as a FITS cube with the colours on the third axis."""
    unit = fits.PrimaryHDU(numpy.moveaxis(rgb, 2, 0))
    unit.header.extend(header)
    unit.writeto(path, overwrite=True)
    return path


class FaultTest(ProgramTest):
    """A test whose results go to a folder of their own, `results`, where old files lie."""

    weights = "dimmer"

    def setUp(self):
        super().setUp()
        self.results = self.path("results")
        self.results.mkdir()
        self.report = self.path("report")
        self.stored = star_field(512, 512)

    def input(self, name="in.tif"):
        if ".fits" in name:
            return write_fits(self.path(name), self.stored.astype(numpy.float32) / 65535)
        return write_image(self.path(name), self.stored)

    def outputs(self, *names):
        return [self.results / name for name in names]

    def arguments(self, source, outputs, *more):
        options = zip(("-o", "-m", "-n"), outputs)
        return ["-i", source, "-w", model(self.weights), *itertools.chain(*options), *more]

    def complete(self, source, outputs, *more):
        """What the outputs hold after a run in which nothing goes wrong; nothing else is there."""
        shutil.rmtree(self.results)
        self.results.mkdir()
        self.succeed(*self.arguments(source, outputs, *more))
        contents = [content(path) for path in outputs]
        self.assertNotIn(None, contents)
        return contents

    def restore(self, outputs):
        """Puts old files where the outputs will go."""
        for path in outputs:
            path.parent.mkdir(exist_ok=True)
            path.write_bytes(OLD)

    def struck(self, fault, *arguments, **options):
        """Runs the program with a fault; whether that came to anything is the second value."""
        self.report.unlink(missing_ok=True)
        result = run(*arguments, env=fault.environment(report=self.report), **options)
        return result, self.report.exists()

    def count_calls(self, call, *arguments, **plan):
        fault = Fault(call, number=NEVER, **plan)
        result = run(*arguments, env=fault.environment(count=self.report))
        self.assertEqual(result.status, 0, result.err)
        return int(self.report.read_text())

    def judge(self, result, outputs, complete, leftovers=0):
        """Every output is whole, the old or the new one; success means that all are new, a message
        that the last is not. Nothing else is there."""
        contents = [content(path) for path in outputs]
        for path, found, new in zip(outputs, contents, complete):
            self.assertIn(found, (OLD, new), f"{path} is damaged")
        if result.status == 0:
            self.assertEqual(contents, complete, "success was reported for old files")
        elif result.status == FAILURE:
            self.assertEqual(contents[-1], OLD, "failure was reported for complete files")
        folder = outputs[0].parent
        if folder.exists():
            names = {path.name for path in folder.iterdir()} - {path.name for path in outputs}
            self.assertLessEqual(len(names), leftovers, names)

    def failed(self, result, pattern):
        """The message before the model context, which has to match. ONNX Runtime may have logged
        an error of its own before it, in colour."""
        self.assertEqual(result.status, FAILURE, result.err)
        errors = [line for line in result.err.splitlines()
                  if not line.startswith(("Info [", "Warning [", "\x1b["))]
        self.assertRegex(errors[0], pattern)

    def sweep(self, call, pattern, source, outputs, *more, most=MOST_FAULTS, **plan):
        """Lets one call after the other of a run go wrong. Each run has to fail with a message that
        matches `pattern`, or to succeed in spite of it. Returns how many failed."""
        complete = self.complete(source, outputs, *more)
        arguments = self.arguments(source, outputs, *more)
        before = source.read_bytes()
        failures = 0
        for number in spread(self.count_calls(call, *arguments, **plan), most):
            with self.subTest(call=call, number=number, **plan):
                self.restore(outputs)
                result, hit = self.struck(Fault(call, number=number, **plan), *arguments)
                self.assertTrue(hit)
                if result.status != 0:
                    self.failed(result, pattern)
                    failures += 1
                self.judge(result, outputs, complete)
                self.assertEqual(source.read_bytes(), before)
        return failures
