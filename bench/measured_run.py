"""One run of the program, measured from outside."""

import dataclasses
import json
import os
import pathlib
import subprocess
import tempfile
import time

WINDOW = 512


def padded_size(rows, columns, stride, upsampled=False):
    """Rows and columns of the working grid with its margins, and the number of tiles."""
    factor = 2 if upsampled else 1
    rows, columns = (-(-side * factor // stride) * stride for side in (rows, columns))
    margin = WINDOW - stride
    return rows + margin, columns + margin, (rows // stride) * (columns // stride)


@dataclasses.dataclass
class Run:
    """Seconds and bytes of one run."""

    wall_s: float  # from start to end of the process
    before_s: float  # until the first tile: starting, reading, preparing
    loop_s: float  # the tile loop without making the session and warming it up
    after_s: float  # from the last tile on: final images, writing
    create_s: float  # making the session
    warmup_s: float  # the session's first Run, on no tile
    session_s: float  # the session's Run on tiles
    inferred: int  # tiles that reached the session
    own_cpu_s: float  # the processor's time for the program's thread outside the session
    tile_cpu_s: float  # the same a tile, in the tile loop
    peak: int  # peak of the resident memory, bytes

    def outside_s(self):
        """Wall time less all time inside the session's Run."""
        return self.wall_s - self.session_s - self.warmup_s

    def own_s(self):
        """The tile loop's own work."""
        return self.loop_s - self.session_s


def measure(program, arguments, tiles_at_most=None, limit=None):
    """Runs `program` with `arguments` and returns a Run. With `tiles_at_most` the program is
    stopped after so many tiles; `limit` is called in the process before the program starts."""
    program = pathlib.Path(program).resolve()
    timer = program.parents[1] / "bench" / "libsession_timer.so"
    with tempfile.TemporaryDirectory() as folder:
        times = pathlib.Path(folder, "times.json")
        environment = {**os.environ, "LD_PRELOAD": str(timer), "NEBULEX_SESSION_TIMES": str(times)}
        begin = time.monotonic()
        process = subprocess.Popen([program, "--machine-progress", *map(str, arguments)],
                                   env=environment, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE, text=True, preexec_fn=limit)
        marks, seen = {}, ""
        for line in process.stderr:
            now = time.monotonic()
            seen += "" if '"stage":"inference"' in line else line
            event = json.loads(line) if '"stage":"inference"' in line else {}
            if event:
                marks.setdefault(event["event"], now)
                marks["last"] = now
            if event and tiles_at_most and event["current"] == tiles_at_most:
                process.kill()
                break
        process.wait()
        end = time.monotonic()
        if tiles_at_most:
            return marks
        if process.returncode != 0:
            raise RuntimeError(f"{program} {arguments} failed:\n{seen}")
        session = json.loads(times.read_text())
    made = session["create_s"] + session["warmup_s"]
    return Run(wall_s=end - begin, before_s=marks["start"] - begin,
               loop_s=marks["finish"] - marks["start"] - made, after_s=end - marks["finish"],
               create_s=session["create_s"], warmup_s=session["warmup_s"],
               session_s=session["run_s"], inferred=session["runs"],
               own_cpu_s=session["own_cpu_s"], tile_cpu_s=session["tile_cpu_s"],
               peak=session["peak_kb"] * 1024)
