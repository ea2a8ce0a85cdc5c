"""Writes a network as an ONNX model of plain operators."""

import inspect
import io

import onnx
import torch
from onnx import helper

from .network import TileModel

TILE = 512
_OPSET = 16
# All of these are carried out by the CPU, CUDA and DirectML providers of ONNX Runtime.
_OPERATORS = {
    "Abs", "Add", "AveragePool", "Clip", "Concat", "Conv", "ConvTranspose", "DepthToSpace", "Div",
    "GlobalAveragePool", "GlobalMaxPool", "Max", "MaxPool", "Min", "Mul", "Neg", "ReduceMean",
    "Relu", "Reshape", "Resize", "Sigmoid", "Slice", "Split", "Sqrt", "Sub", "Transpose",
}  # fmt: skip


def export_model(network, path):
    """Writes the model: "input" to "output", 1 x 512 x 512 x 3 float32 in [0, 1], channels last.

    Raises ValueError when the model would hold anything but plain operators.
    """
    buffer = io.BytesIO()
    model = TileModel(network).cpu().eval()
    example = torch.rand(1, TILE, TILE, 3)
    # Later versions of PyTorch have a second exporter, which names the weights differently.
    parameters = inspect.signature(torch.onnx.export).parameters
    choice = {"dynamo": False} if "dynamo" in parameters else {}
    torch.onnx.export(
        model,
        (example,),
        buffer,
        opset_version=_OPSET,
        do_constant_folding=True,
        input_names=["input"],
        output_names=["output"],
        **choice,
    )
    onnx_model = _with_constants_as_weights(onnx.load_from_string(buffer.getvalue()))
    unknown = {node.op_type for node in onnx_model.graph.node} - _OPERATORS
    if unknown:
        raise ValueError(f"The model holds operators that are not plain: {sorted(unknown)}")
    onnx.checker.check_model(onnx_model, full_check=True)
    onnx.save(onnx_model, str(path))


def _with_constants_as_weights(model):
    """The model with its Constant nodes and repeated weights turned into initializers."""
    graph = model.graph
    for node in [node for node in graph.node if node.op_type == "Constant"]:
        (value,) = [helper.get_attribute_value(item) for item in node.attribute]
        value.name = node.output[0]
        graph.initializer.append(value)
        graph.node.remove(node)
    # Equal weights are one to the exporter, and the others a node that repeats it.
    weights = {tensor.name: tensor for tensor in graph.initializer}
    for node in [node for node in graph.node if node.op_type == "Identity"]:
        if node.input[0] in weights:
            copy = graph.initializer.add()
            copy.CopyFrom(weights[node.input[0]])
            copy.name = node.output[0]
            graph.node.remove(node)
    del graph.value_info[:]
    graph.name = "nebulex2"
    model.producer_name, model.producer_version = "nebulex2", ""
    return model
