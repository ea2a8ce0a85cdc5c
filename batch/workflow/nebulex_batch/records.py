"""What a batch remembers, as JSON files that are whole or not there at all.

Everything lies in one hidden folder of the results' folder:

    batch.json         what this batch is to do, written before the first frame starts
    asked.json         the same as the configuration that `run` hands to the engine
    summary.json       how many frames have which outcome
    snakemake.log      what the engine said in the latest run on this computer
    status/ID.json     what became of a frame; the output that the engine waits for
    written/ID.json    which result files this batch has written for a frame, and with which options.
                       The engine does not know these: it removes a status before a frame is done
                       again, and whose file a result is must not be forgotten with it
    logs/ID.jsonl      what the program said about a frame
    work/ID/           results of a frame that are not in place yet
"""

import json
import os
import pathlib
import tempfile

STATE_FOLDER = ".nebulex2-batch"
BATCH_FILE = "batch.json"
ASKED_FILE = "asked.json"
ENGINE_LOG = "snakemake.log"
SUMMARY_FILE = "summary.json"


def status_path(state, identifier):
    return pathlib.Path(state, "status", identifier + ".json")


def written_path(state, identifier):
    return pathlib.Path(state, "written", identifier + ".json")


def log_path(state, identifier):
    return pathlib.Path(state, "logs", identifier + ".jsonl")


def work_folder(state, identifier):
    return pathlib.Path(state, "work", identifier)


def write_record(path, record):
    """Writes a record to the disk beside its place and then puts it there."""
    path.parent.mkdir(parents=True, exist_ok=True)
    handle, beside = tempfile.mkstemp(prefix=".record-", dir=path.parent)
    try:
        with os.fdopen(handle, "w", encoding="ascii") as file:
            json.dump(record, file)
            file.flush()
            os.fsync(file.fileno())
        os.chmod(beside, 0o666 & ~_umask())
        os.replace(beside, path)
    except BaseException:
        os.unlink(beside)
        raise


def _umask():
    mask = os.umask(0)
    os.umask(mask)
    return mask


def read_record(path):
    """The record, or None where there is none or what is there is damaged."""
    try:
        with open(path, encoding="ascii") as file:
            record = json.load(file)
    except (FileNotFoundError, ValueError):
        return None
    return record if isinstance(record, dict) else None


def stamp(path):
    """Size and time of the last change of a file; None where there is none."""
    try:
        found = os.stat(path)
    except (FileNotFoundError, NotADirectoryError):
        return None
    return [found.st_size, found.st_mtime_ns]


def sync_folder(path):
    """Brings the names in a folder to the disk."""
    handle = os.open(path, os.O_RDONLY)
    try:
        os.fsync(handle)
    finally:
        os.close(handle)
