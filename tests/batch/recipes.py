"""The loops of docs/batch.md that need no workflow, as they stand there, and frames to try them on."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import textwrap
import unittest

from astropy.io import fits

from batches import MODELS, PROGRAM, SOURCE, TIMEOUT_S, star_field

GUIDE = SOURCE / "docs" / "batch.md"
GOOD = ["a.fits", "b b.fits", "ü's [1].fits"]
BAD = "text.fits"
OPTIONS = ["--stride", "512", "--weights", str(MODELS / "identity.onnx")]


def recipe(title):
    """The first block of code that follows a title in bold in the guide."""
    text = GUIDE.read_text(encoding="utf-8")
    block = []
    for line in text[text.index(f"\n**{title}**"):].splitlines():
        if line.startswith("    ") or (block and not line):
            block.append(line)
        elif block:
            break
    return textwrap.dedent("\n".join(block))


class RecipeTest(unittest.TestCase):
    """A folder as the guide has it, with three good frames and a bad one, and a PATH in which nebulex2
    writes down its starts."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-recipe-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        night, tools = self.folder / "night", self.folder / "tools"
        night.mkdir()
        tools.mkdir()
        for seed, name in enumerate(GOOD):
            fits.writeto(night / name, star_field(512, seed))
        (night / BAD).write_text("no image")
        for path in night.iterdir():
            os.utime(path, (1e9, 1e9))
        program = tools / "nebulex2"
        program.write_text(f'#!/bin/sh\necho x >>"{self.folder}/starts"\n'
                           f'exec "{PROGRAM}" {" ".join(OPTIONS)} "$@"\n')
        program.chmod(0o755)
        self.environment = {**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"}

    def shell(self, script):
        completed = subprocess.run(["sh", "-c", script], cwd=self.folder, env=self.environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=False,
                                   stderr=subprocess.STDOUT, text=True, timeout=TIMEOUT_S)
        return completed.stdout

    def starts(self):
        """How often the program was started since the last call of this."""
        path = self.folder / "starts"
        count = len(path.read_text().splitlines())
        path.unlink()
        return count

    def check_loop(self, script):
        """Runs a loop on all frames, and again when one of the results is gone."""
        for starts in (4, 2):  # the second time the bad frame's and the missing result's
            self.run_loop(script)
            self.assertEqual(self.starts(), starts)
            self.check_results()
            self.assertEqual(self.shell(recipe("What has no result")), f"night/{BAD}\n")
            (self.folder / "starless" / GOOD[1]).unlink()

    def run_loop(self, script):
        said = self.shell(script)
        self.assertIn(f"night/{BAD}", said)

    def check_results(self):
        results = self.folder / "starless"
        self.assertEqual(sorted(path.name for path in results.iterdir()), GOOD)
        alone = self.folder / "alone.fits"
        for name in GOOD:
            subprocess.run([PROGRAM, "-q", "--linear", *OPTIONS, "-i", self.folder / "night" / name, "-o",
                            alone], check=True)
            # The checksums' comments hold the time of writing.
            difference = fits.FITSDiff(results / name, alone, ignore_comments=["CHECKSUM", "DATASUM"],
                                       ignore_keywords=["CHECKSUM"])
            self.assertTrue(difference.identical, difference.report())
