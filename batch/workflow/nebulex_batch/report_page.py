"""The page for people: one file, without scripts and without anything from elsewhere."""

import collections
import html
import time

from .words import duration, frame_count

MOST_ROWS = 1000
MOST_FRAMES_NAMED = 50
BARS = 24
LONGEST_IN_SECONDS = 600

STYLE = """
body { font: 16px/1.5 system-ui, sans-serif; max-width: 62rem; margin: 2rem auto; padding: 0 1rem;
  color: #1b1d21; background: #fff }
h1 { font-size: 1.5rem } h2 { font-size: 1.15rem; margin-top: 2.2rem }
table { border-collapse: collapse; width: 100% }
th, td { text-align: left; vertical-align: top; padding: .25rem .8rem .25rem 0;
  border-bottom: 1px solid #d9dce1 }
td:first-child { min-width: 10rem }
.counts { display: flex; gap: 2.5rem; margin: 1.2rem 0 }
.counts b { display: block; font-size: 2rem; line-height: 1.1 }
.bad b { color: #b3261e }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(26rem, 1fr)); gap: 1.5rem }
figure { margin: 0 } figure div { display: flex; gap: .4rem } figure img { flex: 1; min-width: 0 }
figcaption, .note { color: #5a6068; font-size: .9rem }
code { font-size: .9em; overflow-wrap: anywhere } svg text { font: 12px system-ui, sans-serif; fill: #5a6068 }
@media (prefers-color-scheme: dark) { body { color: #e4e6ea; background: #16181c }
  th, td { border-color: #3a3f47 } .bad b { color: #ff8a80 } figcaption, .note { color: #a3a9b3 }
  svg text { fill: #a3a9b3 } }
"""

COUNTS = (("done", "done"), ("kept", "left alone"), ("failed", "failed"), ("unfinished", "not finished"))


def page(batch, counts, statuses, pictures):
    """The whole page. `pictures` are (frame, before, after) with JPEG files in base64."""
    done = [status for status in statuses if status["outcome"] == "done"]
    parts = [
        "<!DOCTYPE html>", '<html lang="en"><head><meta charset="utf-8">',
        "<title>Stars taken out</title>", f"<style>{STYLE}</style></head><body>",
        "<h1>Stars taken out</h1>", _about(batch), _counts(counts),
        _failed([status for status in statuses if status["outcome"] in ("failed", "unfinished")]),
        _kept([status for status in statuses if status["outcome"] == "kept"]),
        _warnings(done), _pictures(pictures), _distributions(done), "</body></html>",
    ]
    return "\n".join(part for part in parts if part) + "\n"


def _escape(text):
    return html.escape(str(text))


def _about(batch):
    options = " ".join(batch["options"]) or "none"
    return (
        f"<p class=note>Frames: <code>{_escape(batch['in'])}</code><br>"
        f"Results: <code>{_escape(batch['out'])}</code><br>"
        f"Options: <code>{_escape(options)}</code><br>"
        f"{time.strftime('%Y-%m-%d %H:%M')}</p>"
    )


def _counts(counts):
    boxes = [
        f"<div{' class=bad' if key in ('failed', 'unfinished') and counts[key] else ''}>"
        f"<b>{counts[key]}</b>{text}</div>"
        for key, text in COUNTS if counts[key] or key in ("done", "failed")
    ]
    return f"<div class=counts>{''.join(boxes)}</div>"


def _failed(bad):
    if not bad:
        return ""
    rows = "".join(
        f"<tr><td><code>{_escape(status['frame'])}</code></td><td>{_escape(status['message'])}</td></tr>"
        for status in bad[:MOST_ROWS]
    )
    more = ""
    if len(bad) > MOST_ROWS:
        more = f"<p class=note>The first {MOST_ROWS} of {len(bad)}; failed.tsv has all.</p>"
    return (f"<h2>Failed</h2><table><tr><th>Frame</th><th>Why</th></tr>{rows}</table>{more}"
            "<p class=note>After <code>batch/retry</code> the same command tries them again.</p>")


def _kept(kept):
    if not kept:
        return ""
    return ("<h2>Left alone</h2><p>In the places of these frames' results are files that this batch has "
            f"not written and that are newer than the frame.</p>{_frame_list(kept)}")


def _warnings(done):
    kinds = collections.defaultdict(dict)
    for status in done:
        for warning in status["warnings"]:
            kinds[warning["code"]].setdefault(status["frame"], warning["message"])
    if not kinds:
        return ""
    parts = ["<h2>Warnings</h2>"]
    for code, found in sorted(kinds.items()):
        rows = "".join(
            f"<tr><td><code>{_escape(frame)}</code></td><td>{_escape(message)}</td></tr>"
            for frame, message in list(found.items())[:MOST_ROWS]
        )
        parts.append(f"<details open><summary><b>{_escape(code)}</b>: {frame_count(len(found))}</summary>"
                     f"<table>{rows}</table></details>")
    return "".join(parts)


def _frame_list(statuses):
    names = ", ".join(f"<code>{_escape(status['frame'])}</code>"
                      for status in statuses[:MOST_FRAMES_NAMED])
    more = len(statuses) - MOST_FRAMES_NAMED
    return f"<p>{names}{f' and {more} more' if more > 0 else ''}</p>"


def _pictures(pictures):
    if not pictures:
        return ""
    figures = "".join(
        f'<figure><div><img alt="before" src="data:image/jpeg;base64,{before}">'
        f'<img alt="after" src="data:image/jpeg;base64,{after}"></div>'
        f"<figcaption>{_escape(name)}</figcaption></figure>"
        for name, before, after in pictures
    )
    return (f"<h2>Before and after</h2><div class=pictures>{figures}</div>"
            "<p class=note>Frames taken at random, both with the stretch of the frame.</p>")


def _distributions(done):
    if not done:
        return ""
    seconds = [status["seconds"] for status in done]
    memory = [status["mem_mb"] for status in done]
    asked_seconds = max(status["asked"]["minutes"] for status in done) * 60
    asked_memory = max(status["asked"]["mem_mb"] for status in done)
    return (
        "<h2>Time and memory of a frame</h2>"
        + _histogram(seconds, asked_seconds, _tick_label(asked_seconds))
        + _histogram(memory, asked_memory, lambda value: f"{value:.0f} MB")
        + f"<p class=note>{duration(sum(seconds))} of running in all. The most that was asked for a frame "
        f"was {duration(asked_seconds)} and {asked_memory} MB; the most that one took was "
        f"{duration(max(seconds))} and {max(memory):.0f} MB.</p>"
    )


def _tick_label(most_s):
    """What writes durations so that the quarters of the longest one differ."""
    return duration if most_s > LONGEST_IN_SECONDS else lambda seconds: f"{seconds:.0f} s"


def _histogram(values, asked, label):
    """A bar chart of the values from 0 to what was asked for, which is marked."""
    width, height, foot = 900, 120, 20
    top = max(asked, max(values)) * 1.02
    counts = collections.Counter(min(int(value / top * BARS), BARS - 1) for value in values)
    most = max(counts.values())
    bars = "".join(
        f'<rect x="{bar * width / BARS + 1:.1f}" y="{height * (1 - count / most):.1f}" '
        f'width="{width / BARS - 2:.1f}" height="{height * count / most:.1f}" fill="#4a78c2">'
        f"<title>{count}</title></rect>"
        for bar, count in sorted(counts.items())
    )
    ticks = "".join(
        f'<text x="{width * part / 4:.0f}" y="{height + 15}" '
        f'text-anchor="{("start", "middle", "middle", "middle", "end")[part]}">'
        f"{_escape(label(top * part / 4))}</text>"
        for part in range(5)
    )
    mark = width * asked / top
    return (
        f'<svg viewBox="0 0 {width} {height + foot}" role="img">{bars}'
        f'<line x1="0" y1="{height}" x2="{width}" y2="{height}" stroke="#8a9099"/>'
        f'<line x1="{mark:.1f}" y1="0" x2="{mark:.1f}" y2="{height}" stroke="#b3261e" stroke-dasharray="4"/>'
        f'<text x="{mark - 5:.1f}" y="12" text-anchor="end">asked for</text>{ticks}</svg>'
    )
