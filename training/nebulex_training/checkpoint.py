"""Checkpoints: the whole state of a training, in a folder of parts of at most 16 MB."""

import io
import pathlib
import shutil

import torch

_PART_BYTES = 16_000_000
_KEPT = 2


def compact_optimizer(state):
    """The state of Adam with its moments as bfloat16; half precision would lose the small ones."""
    for moments in state["state"].values():
        for name in ("exp_avg", "exp_avg_sq"):
            moments[name] = moments[name].to(torch.bfloat16)
    return state


def full_optimizer(state):
    """The reverse of compact_optimizer()."""
    for moments in state["state"].values():
        for name in ("exp_avg", "exp_avg_sq"):
            moments[name] = moments[name].float()
    return state


def write_checkpoint(folder, state):
    """Writes the state as the newest checkpoint of the folder; older ones but one go."""
    folder = pathlib.Path(folder)
    buffer = io.BytesIO()
    torch.save(state, buffer)
    data = buffer.getvalue()
    target = folder / f"checkpoint-{state['step']:08d}"
    fresh = folder / "checkpoint-unfinished"
    shutil.rmtree(fresh, ignore_errors=True)
    fresh.mkdir(parents=True)
    for number, start in enumerate(range(0, len(data), _PART_BYTES)):
        (fresh / f"part-{number:03d}").write_bytes(data[start : start + _PART_BYTES])
    shutil.rmtree(target, ignore_errors=True)
    fresh.rename(target)
    for old in _checkpoints(folder)[:-_KEPT]:
        shutil.rmtree(old)
    return target


def read_newest_checkpoint(folder, device):
    """The state last written to the folder, or None."""
    found = _checkpoints(pathlib.Path(folder))
    if not found:
        return None
    data = b"".join(part.read_bytes() for part in sorted(found[-1].glob("part-*")))
    return torch.load(io.BytesIO(data), map_location=device)


def _checkpoints(folder):
    return sorted(folder.glob("checkpoint-[0-9]*"))
