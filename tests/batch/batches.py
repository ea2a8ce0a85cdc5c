"""Runs batches in a folder of their own, with the real program or with one that a test controls."""

import contextlib
import hashlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import numpy
import tifffile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BATCH = SOURCE / "batch"
PROGRAM = pathlib.Path(os.environ["NEBULEX2_PROGRAM"])
MODELS = pathlib.Path(os.environ["NEBULEX2_TEST_MODELS"])
PYTHON = sys.executable
TIMEOUT_S = 240

sys.path.insert(0, str(BATCH / "workflow"))

# A program that copies its input to its results. It writes down each start, and the name of the
# frame decides what goes wrong: held ones wait until the test opens the gate, killed ones kill
# themselves at as many starts as the name says.
CONTROLLED = """#!/bin/sh
[ "$1" != --machine-info ] || exec {program} --machine-info
given=$*
while [ $# -gt 0 ]; do
  case $1 in
    --input) input=$2 ;;
    --output) output=$2 ;;
    --mask) mask=$2 ;;
  esac
  shift
done
name=$(basename "$input")
echo "$name $given" >>{folder}/starts
case $name in
  bad*)
    printf '%s\\n' '{{"event":"error","message":"This frame is bad.\\nContext"}}' >&2
    exit 255 ;;
  killed*)
    times=$(echo "$name" | tr -dc 0-9)
    [ "$(grep -c "^$name " {folder}/starts)" -gt "$times" ] || kill -KILL $$ ;;
  warned*)
    printf '%s\\n' '{{"severity":"warning","code":"data_loss","message":"Samples were clipped."}}' >&2 ;;
  held*)
    while [ ! -e {folder}/gate ] && [ -d {folder} ]; do sleep 0.05; done ;;
esac
cat "$input" >"$output" && [ -z "$mask" ] || echo mask >"$mask"
"""


def end_group(process):
    """Ends what is left of a process that was started with a group of its own."""
    with contextlib.suppress(ProcessLookupError):
        os.killpg(process.pid, signal.SIGKILL)


def digests(folder):
    """Content and time of every file of a folder, links as links."""
    found = {}
    for path in sorted(pathlib.Path(folder).rglob("*")):
        try:
            state = path.lstat()
        except FileNotFoundError:  # a run is at work
            continue
        content = os.readlink(path) if path.is_symlink() else (
            hashlib.sha256(path.read_bytes()).hexdigest() if path.is_file() else "")
        found[str(path.relative_to(folder))] = (content, state.st_mtime_ns)
    return found


def star_field(side=512, seed=1):
    random = numpy.random.default_rng(seed)
    image = random.normal(6000, 300, (side, side))
    for row, column in random.integers(8, side - 8, (40, 2)):
        image[row - 2 : row + 3, column - 2 : column + 3] += random.uniform(5000, 50000)
    return numpy.clip(image, 0, 65535).astype(numpy.uint16)


class BatchTest(unittest.TestCase):
    """A test with a folder that holds IN and OUT. Frames are never changed by a batch: each test
    ends with a look at that."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-batch-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.source, self.results = self.folder / "in", self.folder / "out"
        self.source.mkdir()
        self.program = self.folder / "controlled"
        self.program.write_text(CONTROLLED.format(program=PROGRAM, folder=self.folder))
        self.program.chmod(0o755)
        self.frames_before = {}

    def tearDown(self):
        for name, content in self.frames_before.items():
            self.assertEqual((self.source / name).read_bytes(), content, name)
        names = {str(path.relative_to(self.source)) for path in self.source.rglob("*")
                 if not path.is_dir()}
        self.assertEqual(names, set(self.frames_before), "the folder of the frames has changed")

    def frame(self, name, content=None):
        """A frame that is a minute old."""
        path = self.source / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content if content is not None else b"frame " + os.fsencode(name))
        self.age(path, 60)
        self.frames_before[name] = path.read_bytes()
        return path

    def image(self, name, seed=1):
        path = self.folder / "image.tif"
        tifffile.imwrite(path, star_field(seed=seed))
        return self.frame(name, path.read_bytes())

    def nine_frames(self):
        """Six good frames, whose names are returned, and three bad ones."""
        good = ["a.tif", "b b.tif", "night 1/a.tif", "night 1/q'\"$(x)`.tif", "{x}[1]%20.tif", "ü星.tif"]
        for seed, name in enumerate(good):
            self.image(name, seed)
        self.frame("empty.tif", b"")
        self.frame("text.tif", b"no image at all")
        self.frame("night 1/cut.tif", self.image("night 1/cut.tif").read_bytes()[:4000])
        return good

    @staticmethod
    def age(path, seconds):
        then = time.time() - seconds
        os.utime(path, (then, then))

    def command(self, *options):
        return [PYTHON, str(BATCH / "run"), str(self.source), str(self.results), "--program",
                str(self.program), *map(str, options)]

    def run_batch(self, *options, status=0):
        completed = subprocess.run(self.command(*options), stdin=subprocess.DEVNULL, check=False,
                                   capture_output=True, text=True, timeout=TIMEOUT_S)
        self.assertEqual(completed.returncode, status, completed.stdout + completed.stderr)
        return completed

    def start_batch(self, *options):
        """A run in a process group of its own."""
        process = subprocess.Popen(  # pylint: disable=consider-using-with
            self.command(*options), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, start_new_session=True)
        self.addCleanup(process.communicate)
        self.addCleanup(end_group, process)
        return process

    def configure(self, **values):
        """The option that names a configuration file with these values."""
        path = self.folder / "night.yaml"
        path.write_text(json.dumps(values))
        return ("--configfile", path)

    def retry(self, *patterns):
        return subprocess.run([PYTHON, str(BATCH / "retry"), str(self.results), *patterns],
                              capture_output=True, text=True, check=True).stdout

    def starts(self, name=None):
        """Names of the frames that the controlled program was started for, or the number of starts
        for one."""
        path = self.folder / "starts"
        lines = path.read_text().splitlines() if path.exists() else []
        names = sorted(line.split()[0] for line in lines)
        return names if name is None else names.count(name)

    def status(self, name):
        path = self.results / ".nebulex2-batch" / "status" / (name + ".json")
        return json.loads(path.read_text())

    def failed(self):
        """Rows of failed.tsv: a frame and its message."""
        lines = (self.results / "failed.tsv").read_text().splitlines()[2:]
        return {line.split("\t")[0]: line.split("\t")[2] for line in lines}

    def report(self):
        return (self.results / "report.html").read_text()

    def result_names(self):
        return sorted(str(path.relative_to(self.results)) for path in self.results.rglob("*")
                      if path.is_file() and ".nebulex2-batch" not in path.parts
                      and path.name not in ("report.html", "failed.tsv"))
