"""A larger network that computes what a smaller one does, so that training goes on from there."""

import re

import torch

from .network import StarNet

# Tensors that lead from one level's channels back into them, added to what is there.
_ADDED_TO = re.compile(r".*\.b\.(weight|bias)")


def grown(network, shape):
    """A network of the shape that gives the same pictures as network at first.

    New channels look at everything and are looked at by nothing old; new blocks add nothing; one
    that learns to fill, or to borrow for it, does next to nothing of that yet. All of it learns,
    since what it leads to has gradients. Raises ValueError where a level would shrink or an
    ability be lost.
    """
    old = network.shape
    pairs = (*zip(old.widths, shape.widths), *zip(old.blocks, shape.blocks))
    pairs += ((old.fills, shape.fills), (old.fills and old.borrows, shape.borrows))
    pairs += ((old.gates, shape.gates),)
    if len(old.widths) != len(shape.widths) or any(small > large for small, large in pairs):
        raise ValueError(f"A network of {old} cannot grow to {shape}.")
    larger = StarNet(shape)
    known = network.state_dict()
    with torch.no_grad():
        for name, parameter in larger.named_parameters():
            if name in known:
                _take_over(name, parameter, known[name])
            elif _ADDED_TO.fullmatch(name):
                parameter.zero_()
    return larger


def _take_over(name, parameter, value):
    """Puts value into the first entries of parameter and cuts the old outputs off the new inputs."""
    inner = tuple(slice(0, length) for length in value.shape)
    if value.dim() == 4:
        # The weights of a transposed convolution have the inputs first.
        inputs, outputs = (0, 1) if name.startswith("up.") else (1, 0)
        old_outputs = [slice(None)] * 4
        old_outputs[outputs] = inner[outputs]
        new_inputs = list(old_outputs)
        new_inputs[inputs] = slice(value.shape[inputs], None)
        parameter[tuple(new_inputs)] = 0.0
    parameter[inner] = value
