"""Runs the program on one frame and writes down what became of it.

    run_frame.py STATE ID ATTEMPT MEM_MB MINUTES

Ends with 0 once there is a status, whatever became of the frame: one bad frame must not cost the
others of its job. Ends otherwise where the frame is to be tried again: the program was killed, or
this process is told to end.

It starts once for each frame, so it loads nothing that takes long.
"""

import contextlib
import ctypes
import fcntl
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import time

if __package__ is None:
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
    __package__ = "nebulex_batch"  # pylint: disable=redefined-builtin

# pylint: disable=wrong-import-position
from . import processors, records, results
from .frames import frame_name, result_names
from .plan_of_frame import options_of, request_of

LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1
LOCK = ".lock"
ENDED_FROM_OUTSIDE = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)


class TryAgain(Exception):
    """The program was killed; what killed it may be gone or have more room at the next attempt."""

    def __init__(self, signal_number):
        super().__init__(signal_number)
        self.signal_number = signal_number


class Frame:
    """One frame of a batch: its files, and what is asked for."""

    def __init__(self, state, identifier):
        self.state = pathlib.Path(state)
        self.identifier = identifier
        self.batch = records.read_record(self.state / records.BATCH_FILE)
        self.name = frame_name(identifier)
        self.path = os.path.join(self.batch["in"], self.name)
        self.request = request_of(self.batch, self.name)
        names = result_names(self.name, self.batch["suffix"], self.batch["layers"])
        self.targets = {
            option: pathlib.Path(self.batch["out"], name) for option, name in names.items()
        }
        self.work = records.work_folder(self.state, identifier)

    def staged(self, target):
        return self.work / target.name

    @contextlib.contextmanager
    def alone(self):
        """Keeps a second run of this frame waiting, such as a job that was left in a queue."""
        lock_path = self.work / LOCK
        while True:
            self.work.mkdir(parents=True, exist_ok=True)
            with open(lock_path, "w", encoding="ascii") as lock:
                fcntl.flock(lock, fcntl.LOCK_EX)
                if not _is_file_at(lock, lock_path):
                    continue  # its holder has removed it while this process was waiting
                yield
                shutil.rmtree(self.work, ignore_errors=True)
                return

    def read_written(self):
        return records.read_record(records.written_path(self.state, self.identifier))

    def write_status(self, status):
        status = {"frame": self.name, "request": self.request, **status}
        records.write_record(records.status_path(self.state, self.identifier), status)

    def clear_work(self):
        for entry in self.work.iterdir():
            if entry.name != LOCK:
                entry.unlink()


def _is_file_at(file, path):
    try:
        return os.path.samestat(os.fstat(file.fileno()), os.stat(path))
    except FileNotFoundError:
        return False


def run(frame, attempt, asked):
    """Brings the results of a frame in place unless they are, and writes its status."""
    before = records.stamp(frame.path)
    written = frame.read_written()
    if written and written["request"] == frame.request and results.is_same(written["stamp"], before):
        if finish(frame, written):
            frame.write_status(written["status"])
            return
    try:
        for target in frame.targets.values():
            results.check_place(target, frame.batch["in"])
        if is_kept(frame, before, written):
            frame.write_status({"outcome": "kept", "stamp": before, "status": 0})
            return
        status = process(frame, attempt, asked)
        status["stamp"] = before
        if status["outcome"] == "done":
            place(frame, status, written)
    except results.ForeignFile as refused:
        status = {"outcome": "failed", "stamp": before, "status": None, "message": str(refused)}
    except OSError as error:
        status = {"outcome": "failed", "stamp": before, "status": None,
                  "message": f"{error.filename or frame.name}: {error.strerror}"}
    frame.write_status(status)


def is_kept(frame, before, written):
    """Whether the places of the results are taken by files that are not this batch's and newer than
    the frame. Raises ForeignFile where such files are older, or are there for some results only."""
    foreign = [
        target for target in frame.targets.values()
        if os.path.lexists(target) and not any(
            results.is_same(records.stamp(target), own) for own in own_stamps(written, target))
    ]
    if not foreign:
        return False
    stamps = [records.stamp(target) for target in frame.targets.values()]
    if before and all(found and found[1] > before[1] for found in stamps):
        return True
    raise results.ForeignFile(
        f"{foreign[0]} is not a result of this batch, or was changed since, and is not newer than "
        "everything it would come from. It was left as it is: move it away, or choose another folder."
    )


def own_stamps(written, target):
    """Stamps of what this batch has put, or is about to put, in a result's place."""
    if written is None:
        return []
    return [stamps[str(target)] for stamps in (written["results"], written["replaces"])
            if str(target) in stamps]


def process(frame, attempt, asked):
    """Runs the program into the frame's work folder; the status without what is known outside.

    Raises TryAgain where it was killed and another attempt is left."""
    frame.clear_work()
    command = [frame.batch["program"], "--machine-progress",
               *options_of(frame.batch, frame.name), "--input", frame.path]
    for option, target in frame.targets.items():
        command += [option, str(frame.staged(target))]
    log = records.log_path(frame.state, frame.identifier)
    log.parent.mkdir(parents=True, exist_ok=True)

    allowed, claim = processors.claim(frame.batch["threads"])
    started = time.time()
    ended_by, usage = run_program(command, log, allowed)
    seconds = time.time() - started
    for held in claim:
        held.close()

    if ended_by < 0 and (-ended_by in ENDED_FROM_OUTSIDE or attempt < frame.batch["attempts"]):
        raise TryAgain(-ended_by)
    told = read_log(log)
    status = {
        "outcome": "done" if ended_by == 0 else "failed",
        "status": ended_by,
        "warnings": told["warnings"],
        "started": started,
        "seconds": seconds,
        "processor_seconds": usage.ru_utime + usage.ru_stime,
        "mem_mb": usage.ru_maxrss / 1024,
        "asked": asked,
        "attempt": attempt,
        "host": socket.gethostname(),
    }
    if ended_by < 0:
        name = signal.Signals(-ended_by).name
        status["message"] = (
            f"The program was killed by {name} in each of {attempt} attempts, the last one with "
            f"{asked['mem_mb']} MB."
        )
    elif ended_by > 0:
        status["message"] = told["error"] or f"The program ended with status {ended_by}."
    return status


def run_program(command, log, allowed):
    """Runs the program on the allowed processors with standard error in the log; it does not outlive
    this process. Its status, negative for a signal, and what it used."""

    def prepare():
        LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
        os.sched_setaffinity(0, allowed)

    with open(log, "wb") as file:
        try:
            child = subprocess.Popen(  # pylint: disable=consider-using-with # wait4 waits for it
                command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=file,
                preexec_fn=prepare,
            )
        except OSError as error:
            raise OSError(error.errno, error.strerror, command[0]) from None

        def pass_on(number, _):
            # Not with the object's own method: that waits for a child that has ended, and its status
            # would be lost.
            if child.returncode is None:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(child.pid, number)

        for number in ENDED_FROM_OUTSIDE:
            signal.signal(number, pass_on)
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
    return child.returncode, usage


def read_log(path):
    """The first line of the error that the program ended with, if any, and its warnings."""
    told = {"error": None, "warnings": []}
    with open(path, encoding="utf-8", errors="replace") as file:
        for line in file:
            try:
                record = json.loads(line)
            except ValueError:
                continue  # a library's own words
            if not isinstance(record, dict):
                continue
            if record.get("event") == "error":
                told["error"] = record["message"].splitlines()[0]
            elif record.get("severity") == "warning":
                told["warnings"].append({key: record[key] for key in ("code", "message")})
    return told


def place(frame, status, written):
    """Puts finished results in place. What is about to happen is written down before, so that what
    is interrupted can be finished without the program."""
    record = {
        "request": frame.request,
        "stamp": status["stamp"],
        "status": status,
        "results": {
            str(target): records.stamp(frame.staged(target)) for target in frame.targets.values()
        },
        "replaces": {
            str(target): records.stamp(target)
            for target in frame.targets.values() if own_stamps(written, target)
        },
    }
    status["results"] = record["results"]
    records.write_record(records.written_path(frame.state, frame.identifier), record)
    move(frame, record)


def move(frame, record):
    for target in frame.targets.values():
        staged = frame.staged(target)
        if os.path.exists(staged):
            results.put_in_place(staged, target, own_stamps(record, target))


def finish(frame, written):
    """Finishes what `place` had begun. Whether all results are in place then."""
    for target in frame.targets.values():
        recorded = written["results"][str(target)]
        staged = frame.staged(target)
        if results.is_same(records.stamp(target), recorded):
            staged.unlink(missing_ok=True)
        elif not results.is_same(records.stamp(staged), recorded):
            return False
    try:
        move(frame, written)
    except results.ForeignFile:
        return False
    return True


def main():
    """The exit status: 0 once there is a status file, else that of a killed program in a shell."""
    state, identifier, attempt, mem_mb, minutes = sys.argv[1:]
    frame = Frame(state, identifier)
    with frame.alone():
        try:
            run(frame, int(attempt), {"mem_mb": int(mem_mb), "minutes": int(minutes)})
        except TryAgain as killed:
            return 128 + killed.signal_number
    return 0


if __name__ == "__main__":
    sys.exit(main())
