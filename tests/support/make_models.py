#!/usr/bin/env python3
"""Writes the small ONNX models that the tests run: make_models.py FOLDER

Every model takes one float32 tensor "input" of 1x512x512x3 (batch, rows, columns, channels) and
gives one float32 tensor "output" of that shape, unless its line in MODELS says otherwise. The
arrays in ARRAYS are written beside them as .npy files: what a model multiplies with, for tests
that compute the expected result themselves. BROKEN holds files that are no models at all.
"""

import pathlib
import sys

import numpy as np
from onnx import TensorProto, checker, helper, numpy_helper

SIDE = 512
IMAGE = [1, SIDE, SIDE, 3]
OPSET = 13
IR_VERSION = 7
SEED = 20240607

# Weights of each sample's position, the same for the three channels; never 0.
PATTERN = np.random.RandomState(SEED).uniform(0.25, 1.0, (SIDE, SIDE, 1)).astype(np.float32)

# Half-precision numbers of every magnitude, among them subnormals and zeros of both signs.
HALF_PATTERN = np.random.RandomState(SEED + 1).uniform(-2, 2, (SIDE, SIDE, 1)).astype(np.float16)
HALF_PATTERN.flat[:6] = np.array([0x0001, 0x8001, 0x03FF, 0x8000, 0x7BFF, 0x0400],
                                 np.uint16).view(np.float16)

ARRAYS = {
    "pattern": PATTERN,
    "half_payload": HALF_PATTERN.astype(np.float32),
}


def model(nodes, initializers=(), input_shape=IMAGE, output_shape=IMAGE, input_type=TensorProto.FLOAT,
          output_type=TensorProto.FLOAT, further_inputs=(), output=None):
    """The bytes of a model whose nodes lead from "input" to "output"."""
    inputs = [helper.make_tensor_value_info("input", input_type, input_shape), *further_inputs]
    output = output or helper.make_tensor_value_info("output", output_type, output_shape)
    graph = helper.make_graph(nodes, "test", inputs, [output], list(initializers))
    made = helper.make_model(graph, opset_imports=[helper.make_opsetid("", OPSET)],
                             producer_name="nebulex2 tests", ir_version=IR_VERSION)
    checker.check_model(made)
    return made.SerializeToString()


def constant(name, value, dtype=np.float32):
    return numpy_helper.from_array(np.array(value, dtype), name)


def node(kind, inputs, output="output", **attributes):
    return helper.make_node(kind, inputs, [output], **attributes)


def with_constant(kind, value):
    """output = kind(input, value)"""
    return model([node(kind, ["input", "value"])], [constant("value", value)])


def filled(value):
    """Every output sample is `value`, whatever the input."""
    tensor = helper.make_tensor("value", TensorProto.FLOAT, [1], [value])
    return model([node("Shape", ["input"], "shape"),
                  node("ConstantOfShape", ["shape"], value=tensor)])


def cast(to):
    return model([node("Cast", ["input"], to=to)], output_type=to)


def cropped(side):
    bounds = [constant("starts", [0, 0], np.int64), constant("ends", [side, side], np.int64),
              constant("axes", [1, 2], np.int64)]
    return model([node("Slice", ["input", "starts", "ends", "axes"])], bounds,
                 output_shape=[1, side, side, 3])


def five_dimensions():
    return model([node("Unsqueeze", ["input", "axis"])], [constant("axis", [4], np.int64)],
                 output_shape=IMAGE + [1])


def one_channel():
    return model([node("ReduceMean", ["input"], axes=[3], keepdims=1)],
                 output_shape=[1, SIDE, SIDE, 1])


def any_size():
    shape = [1, "rows", "columns", 3]
    return model([node("Identity", ["input"])], input_shape=shape, output_shape=shape)


def two_inputs():
    second = helper.make_tensor_value_info("second", TensorProto.FLOAT, IMAGE)
    return model([node("Add", ["input", "second"])], further_inputs=[second])


def sequence_output():
    output = helper.make_tensor_sequence_value_info("output", TensorProto.FLOAT, IMAGE)
    return model([node("SequenceConstruct", ["input"])], output=output)


def half_payload():
    """A FLOAT initializer whose raw data holds two bytes an element."""
    weights = TensorProto(name="weights", dims=HALF_PATTERN.shape, data_type=TensorProto.FLOAT,
                          raw_data=HALF_PATTERN.astype("<f2").tobytes())
    graph = helper.make_graph(
        [node("Mul", ["input", "weights"])], "test",
        [helper.make_tensor_value_info("input", TensorProto.FLOAT, IMAGE)],
        [helper.make_tensor_value_info("output", TensorProto.FLOAT, IMAGE)], [weights])
    # No check: to ONNX this is no valid model before its payload is expanded.
    return helper.make_model(graph, opset_imports=[helper.make_opsetid("", OPSET)],
                             ir_version=IR_VERSION).SerializeToString()


def fails_at_run():
    """Asks for a reshape to 7 samples, which nothing but running it can find out."""
    nodes = [node("ReduceMin", ["input"], "least", keepdims=0),
             node("Mul", ["least", "zero"], "nothing"),
             node("Add", ["nothing", "seven"], "count"),
             node("Cast", ["count"], "integer", to=TensorProto.INT64),
             node("Reshape", ["integer", "one"], "shape"),
             node("Reshape", ["input", "shape"])]
    constants = [constant("zero", 0), constant("seven", 7), constant("one", [1], np.int64)]
    return model(nodes, constants, output_shape=["samples"])


def slow():
    """Many steps that are not much each."""
    names = ["input", *(f"step{i}" for i in range(400)), "output"]
    nodes = [node("Sin", [before], after) for before, after in zip(names[:-2], names[1:-1])]
    return model([*nodes, node("Min", [names[-2], "input"])])


def fails_on_tiles():
    """Hands a tile through whose samples are all 0.125 and fails on any other."""
    nodes = [node("Sub", ["input", "warmup"], "difference"),
             node("Abs", ["difference"], "distance"),
             node("ReduceMax", ["distance"], "greatest", keepdims=0),
             node("Sign", ["greatest"], "sign"),
             node("Cast", ["sign"], "index", to=TensorProto.INT64),
             node("Gather", ["factors", "index"], "factor"),
             node("Mul", ["input", "factor"])]
    return model(nodes, [constant("warmup", 0.125), constant("factors", [1])])


MODELS = {
    "identity": lambda: model([node("Identity", ["input"])]),
    "identity_any_size": any_size,
    "unused_weights": lambda: model([node("Identity", ["input"])], [constant("unused", 1)]),
    "scaling": lambda: with_constant("Mul", 0.5),
    "pattern": lambda: with_constant("Mul", PATTERN),
    "zero": lambda: filled(0.0),
    "slightly_dimmer": lambda: with_constant("Mul", 0.9999),
    "dimmer": lambda: with_constant("Min", 0.4),
    "colours": lambda: with_constant("Mul", [0.9, 0.8, 0.7]),
    "slow": slow,
    "brighter": lambda: with_constant("Mul", 1.5),
    "half_payload": half_payload,
    "nan_output": lambda: filled(float("nan")),
    "wrong_shape": lambda: cropped(256),
    "extra_dim": five_dimensions,
    "one_channel": one_channel,
    "half_output": lambda: cast(TensorProto.FLOAT16),
    "double_output": lambda: cast(TensorProto.DOUBLE),
    "sequence_output": sequence_output,
    "double_input": lambda: model([node("Cast", ["input"], to=TensorProto.FLOAT)],
                                  input_type=TensorProto.DOUBLE),
    "two_inputs": two_inputs,
    "fails_at_run": fails_at_run,
    "fails_on_tiles": fails_on_tiles,
}

VARINT, FIXED64, DELIMITED, GROUP_START, FIXED32 = 0, 1, 2, 3, 5


def varint(value):
    groups = bytearray()
    while value > 0x7F:
        groups.append(value & 0x7F | 0x80)
        value >>= 7
    groups.append(value)
    return bytes(groups)


def key(number, wire_type):
    return varint(number << 3 | wire_type)


def delimited(number, payload, claimed=None):
    """A length-delimited field; `claimed` is a length that is not the payload's own."""
    return key(number, DELIMITED) + varint(len(payload) if claimed is None else claimed) + payload


def initializer(tensor):
    """A model with one initializer, given as the bytes of its message."""
    return delimited(7, delimited(5, tensor))


def float_tensor(dims):
    """An initializer's message that declares FLOAT and these dims."""
    return delimited(1, b"".join(varint(dim) for dim in dims)) + key(2, VARINT) + varint(1)


IR_VERSION_FIELD = key(1, VARINT) + varint(IR_VERSION)

BROKEN = {
    "empty": b"",
    "no_graph": IR_VERSION_FIELD,
    "truncated_varint": key(1, VARINT) + b"\x80",
    "invalid_varint": key(1, VARINT) + b"\xFF" * 11,
    "graph_length": IR_VERSION_FIELD + delimited(7, b"\x0A\x01g", claimed=100),
    "initializer_length": delimited(7, delimited(5, b"", claimed=100)),
    "raw_data_length": initializer(float_tensor([2]) + delimited(9, b"\0\0\0\0", claimed=2**63)),
    "dims_overflow": initializer(float_tensor([2**33, 2**33])),
    "size_overflow": initializer(float_tensor([2**31, 2**31])),
    "truncated_fixed64": key(1, FIXED64) + b"\0" * 7,
    "truncated_fixed32": key(1, FIXED32) + b"\0" * 3,
    "truncated_delimited": delimited(2, b"short", claimed=2**40),
    "group_wire_type": key(15, GROUP_START),
}


def main():
    if len(sys.argv) != 2:
        sys.exit(f"usage: {sys.argv[0]} FOLDER")
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for name, make in MODELS.items():
        (folder / f"{name}.onnx").write_bytes(make())
    for name, content in BROKEN.items():
        (folder / f"{name}.onnx").write_bytes(content)
    for name, array in ARRAYS.items():
        np.save(folder / f"{name}.npy", array)


if __name__ == "__main__":
    main()
