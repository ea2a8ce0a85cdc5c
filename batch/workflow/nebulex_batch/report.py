"""The report of a batch: report.html, failed.tsv and the counts."""

import collections
import random

from . import frames, records, report_files, report_page, thumbnails

UNFINISHED = "No run of this frame came to an end: its jobs were killed, or the cluster refused them."


def write(plan):
    """Writes all three from the statuses that there are."""
    statuses = [_status(plan.state, name) for name in plan.names]
    counts = collections.Counter({"done": 0, "kept": 0, "failed": 0, "unfinished": 0})
    counts.update(status["outcome"] for status in statuses)
    bad = [status for status in statuses if status["outcome"] in ("failed", "unfinished")]
    sample = _sample(statuses, plan.batch["thumbnails"])
    pictures = thumbnails.make(plan.batch, sample)
    report_files.write(plan.batch["out"], report_files.FAILED, _table(bad))
    report_files.write(plan.batch["out"], report_files.REPORT,
                       report_page.page(plan.batch, counts, statuses, pictures))
    records.write_record(plan.state / records.SUMMARY_FILE, counts)


def _status(state, name):
    status = records.read_record(records.status_path(state, frames.frame_id(name)))
    return status or {"frame": name, "outcome": "unfinished", "status": None, "message": UNFINISHED}


def _sample(statuses, count):
    """Frames to show: spread at random, the same ones each time."""
    done = [status for status in statuses if status["outcome"] == "done"]
    return sorted(random.Random(1).sample(done, min(count, len(done))), key=lambda s: s["frame"])


def _table(bad):
    """Tab-separated: frame, exit status, message. Tabs and line ends of a name are escaped."""
    rows = ["frame\tstatus\tmessage"]
    for status in bad:
        exit_status = "" if status["status"] is None else status["status"]
        rows.append("\t".join(_one_line(cell) for cell in (status["frame"], exit_status,
                                                           status["message"])))
    return "\n".join(rows) + "\n"


def _one_line(value):
    text = str(value).replace("\\", "\\\\")
    return text.replace("\t", "\\t").replace("\n", "\\n").replace("\r", "\\r")
