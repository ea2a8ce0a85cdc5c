"""A training on its way from one machine to another: at most four parts of less than 16 MiB.

It holds the slowest average of the weights as it is, and in half of the bits how far the raw
weights are from it and the second moments of Adam. First moments and the other averages are not
carried: those are rebuilt in some ten steps, these go on from the slowest.
"""

import io
import pathlib
import shutil

import torch

_PART_BYTES = 16 * 1024 * 1024 - 1
_MOST_PARTS = 4


def write_carried(folder, network, average, optimizer, step):
    """Writes the parts into the folder in the place of older ones.

    Raises ValueError where they would be more than four.
    """
    raw, mean = network.state_dict(), average.state_dict()
    moments = [
        optimizer.state[parameter]["exp_avg_sq"] if parameter in optimizer.state else None
        for parameter in network.parameters()
    ]
    state = {
        "step": step,
        "shape": network.shape.as_dict(),
        "average": {name: value.detach().cpu().float() for name, value in mean.items()},
        "raw": {name: (raw[name] - mean[name]).cpu().to(torch.bfloat16) for name in mean},
        "moments": [None if each is None else each.cpu().to(torch.bfloat16) for each in moments],
    }
    buffer = io.BytesIO()
    torch.save(state, buffer)
    data = buffer.getvalue()
    starts = range(0, len(data), _PART_BYTES)
    if len(starts) > _MOST_PARTS:
        raise ValueError(f"The training has {len(data)} bytes, more than {_MOST_PARTS} parts hold.")
    folder = pathlib.Path(folder)
    fresh = folder.with_name(folder.name + "-unfinished")
    shutil.rmtree(fresh, ignore_errors=True)
    fresh.mkdir(parents=True)
    for number, start in enumerate(starts):
        (fresh / f"part-{number}").write_bytes(data[start : start + _PART_BYTES])
    shutil.rmtree(folder, ignore_errors=True)
    fresh.rename(folder)


def read_carried(folder):
    """The state that write_carried() wrote, its raw weights and moments in full length again.

    Raises OSError where there is none.
    """
    parts = sorted(pathlib.Path(folder).glob("part-*"))
    if not parts:
        raise FileNotFoundError(f"{folder} holds no training that was carried.")
    state = torch.load(io.BytesIO(b"".join(part.read_bytes() for part in parts)),
                       map_location="cpu")  # fmt: skip
    mean = state["average"]
    state["raw"] = {name: mean[name] + value.float() for name, value in state["raw"].items()}
    state["moments"] = [None if each is None else each.float() for each in state["moments"]]
    return state


def adopt_moments(optimizer, parameters, moments, step):
    """Lets Adam go on with second moments that were carried, as of so many steps."""
    for parameter, moment in zip(parameters, moments):
        if moment is not None:
            optimizer.state[parameter] = {
                "step": torch.tensor(float(step)),
                "exp_avg": torch.zeros_like(parameter.detach()),
                "exp_avg_sq": torch.zeros_like(parameter.detach()).copy_(moment),
            }
