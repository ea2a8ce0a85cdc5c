"""Weights of the network from and to files: ONNX models, and plain PyTorch files of weights."""

import re

import numpy as np
import onnx
import torch
from onnx import numpy_helper

from .network import Shape, StarNet


def load_network(path):
    """The network whose weights an exported model (.onnx) or a checkpoint's weights.pt holds."""
    if str(path).endswith(".onnx"):
        return _from_onnx(path)
    saved = torch.load(path, map_location="cpu")
    network = StarNet(Shape(**{"borrows": False, "gates": False, **saved["shape"]}))  # older files do not say
    network.load_state_dict(saved["weights"])
    return network


def save_network(network, path):
    """Writes the weights in a form that load_network() takes."""
    weights = {name: value.detach().cpu() for name, value in network.state_dict().items()}
    torch.save({"shape": network.shape.as_dict(), "weights": weights}, path)


def _from_onnx(path):
    graph = onnx.load(str(path)).graph
    weights = {}
    for tensor in graph.initializer:
        if tensor.name.startswith("n."):
            array = np.array(numpy_helper.to_array(tensor))
            weights[tensor.name[2:]] = torch.from_numpy(array)
    if "inp.weight" not in weights:
        raise ValueError(f"{path} is not a model that training/export.py wrote.")
    network = StarNet(_shape_of(weights))
    network.load_state_dict(weights)
    return network


def _shape_of(weights):
    levels = sum(1 for name in weights if re.fullmatch(r"dn\.\d+\.weight", name)) + 1
    widths = [weights["inp.weight"].shape[0]]
    widths += [weights[f"dn.{level}.weight"].shape[0] for level in range(levels - 1)]

    def count(prefix):
        return sum(1 for name in weights if re.fullmatch(prefix + r"\.\d+\.a\.weight", name))

    blocks = [count(rf"enc\.{level}") for level in range(levels - 1)] + [count("mid")]
    fills = "fill.weight" in weights
    # Without borrowing it has four planes, with it six, each folded 2 x 2.
    borrows = fills and weights["fill.weight"].shape[0] > 16
    return Shape(tuple(widths), tuple(blocks), fills, borrows, "gate.0.a.weight" in weights)
