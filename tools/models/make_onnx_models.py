#!/usr/bin/env python3
"""Writes the small ONNX models the tests run, with inputs and numpy-computed outputs.

Run with the project's virtual environment:  .venv/bin/python tools/models/make_onnx_models.py

For each model <m>.onnx it writes <m>.<layer>.in.bin per input and <m>.<layer>.out.bin per
output: the raw little-endian elements, C order. Half-precision outputs are stored as
32-bit floats, the element type in which the WindowsML engine hands them out.

Opset 13 and IR version 8: older than opset 16 and read by ONNX Runtime 1.29 and
OpenVINO 2025.
"""
import os

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tests", "data", "onnx")
OPSET = 13
IR_VERSION = 8
rng = np.random.default_rng(20240607)


def save(name, nodes, inputs, outputs, feeds, results, initializers=()):
    graph = helper.make_graph(nodes, name, inputs, outputs, initializer=list(initializers))
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", OPSET)],
                              producer_name="kel-tests")
    model.ir_version = IR_VERSION
    onnx.checker.check_model(model, full_check=True)
    onnx.save(model, os.path.join(OUT, name + ".onnx"))
    for layer, array in feeds.items():
        array.tofile(os.path.join(OUT, f"{name}.{layer}.in.bin"))
    for layer, array in results.items():
        if array.dtype == np.float16:
            array = array.astype(np.float32)
        array.tofile(os.path.join(OUT, f"{name}.{layer}.out.bin"))


def static_two_io():
    # Two static f32 inputs and two outputs.
    a = rng.standard_normal((1, 2, 3)).astype(np.float32)
    b = rng.standard_normal((1, 2, 3)).astype(np.float32)
    save("static_two_io",
         [helper.make_node("Add", ["a", "b"], ["sum"]),
          helper.make_node("Mul", ["a", "b"], ["product"])],
         [helper.make_tensor_value_info("a", TensorProto.FLOAT, [1, 2, 3]),
          helper.make_tensor_value_info("b", TensorProto.FLOAT, [1, 2, 3])],
         [helper.make_tensor_value_info("sum", TensorProto.FLOAT, [1, 2, 3]),
          helper.make_tensor_value_info("product", TensorProto.FLOAT, [1, 2, 3])],
         {"a": a, "b": b}, {"sum": a + b, "product": a * b})


def dynamic_batch():
    # A batch dimension left open; the data uses a batch of 3.
    x = rng.standard_normal((3, 4)).astype(np.float32)
    three = numpy_helper.from_array(np.array(3.0, dtype=np.float32), "three")
    one = numpy_helper.from_array(np.array(1.0, dtype=np.float32), "one")
    save("dynamic_batch",
         [helper.make_node("Mul", ["x", "three"], ["t"]),
          helper.make_node("Sub", ["t", "one"], ["y"])],
         [helper.make_tensor_value_info("x", TensorProto.FLOAT, ["N", 4])],
         [helper.make_tensor_value_info("y", TensorProto.FLOAT, ["N", 4])],
         {"x": x}, {"y": x * np.float32(3) - np.float32(1)}, [three, one])


def mixed_types():
    # u8, i64 and bool layers side by side.
    pix = rng.integers(0, 256, (2, 3)).astype(np.uint8)
    offset = rng.integers(-1000, 1000, (2, 3)).astype(np.int64)
    flag = np.array([[True, False, True], [True, True, False]])
    zero = numpy_helper.from_array(np.array(0, dtype=np.int64), "zero")
    save("mixed_types",
         [helper.make_node("Cast", ["pix"], ["pix64"], to=TensorProto.INT64),
          helper.make_node("Add", ["pix64", "offset"], ["sum"]),
          helper.make_node("Greater", ["offset", "zero"], ["gt"]),
          helper.make_node("And", ["gt", "flag"], ["positive"]),
          helper.make_node("Transpose", ["pix"], ["pix_t"], perm=[1, 0])],
         [helper.make_tensor_value_info("pix", TensorProto.UINT8, [2, 3]),
          helper.make_tensor_value_info("offset", TensorProto.INT64, [2, 3]),
          helper.make_tensor_value_info("flag", TensorProto.BOOL, [2, 3])],
         [helper.make_tensor_value_info("sum", TensorProto.INT64, [2, 3]),
          helper.make_tensor_value_info("positive", TensorProto.BOOL, [2, 3]),
          helper.make_tensor_value_info("pix_t", TensorProto.UINT8, [3, 2])],
         {"pix": pix, "offset": offset, "flag": flag},
         {"sum": pix.astype(np.int64) + offset, "positive": (offset > 0) & flag,
          "pix_t": np.ascontiguousarray(pix.T)},
         [zero])


def half():
    # Half-precision in and out.
    h = rng.standard_normal((1, 4)).astype(np.float16)
    two = numpy_helper.from_array(np.array(2.0, dtype=np.float16), "two")
    save("half",
         [helper.make_node("Mul", ["h", "two"], ["doubled"])],
         [helper.make_tensor_value_info("h", TensorProto.FLOAT16, [1, 4])],
         [helper.make_tensor_value_info("doubled", TensorProto.FLOAT16, [1, 4])],
         {"h": h}, {"doubled": h * np.float16(2)}, [two])


def misdeclared():
    # Declares its output as [1, 4] but computes [1, n]: the data uses n = 2.
    x = rng.standard_normal((1, 4)).astype(np.float32)
    n = np.array([2], dtype=np.int64)
    starts = numpy_helper.from_array(np.array([0], dtype=np.int64), "starts")
    axes = numpy_helper.from_array(np.array([1], dtype=np.int64), "axes")
    save("misdeclared",
         [helper.make_node("Slice", ["x", "starts", "n", "axes"], ["y"])],
         [helper.make_tensor_value_info("x", TensorProto.FLOAT, [1, 4]),
          helper.make_tensor_value_info("n", TensorProto.INT64, [1])],
         [helper.make_tensor_value_info("y", TensorProto.FLOAT, [1, 4])],
         {"x": x, "n": n}, {"y": x[:, :2]}, [starts, axes])


def huge():
    # Static shapes that ask for 4 TiB per layer: more than any process here may have.
    shape = [65536, 65536, 256]
    save("huge",
         [helper.make_node("Relu", ["x"], ["y"])],
         [helper.make_tensor_value_info("x", TensorProto.FLOAT, shape)],
         [helper.make_tensor_value_info("y", TensorProto.FLOAT, shape)],
         {}, {})


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    static_two_io()
    dynamic_batch()
    mixed_types()
    half()
    misdeclared()
    huge()
