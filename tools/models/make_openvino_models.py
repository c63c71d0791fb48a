"""Builds the small OpenVINO test models and their expected outputs.

Run from the repository root with the project's virtual environment:
    .venv/bin/python tools/models/make_openvino_models.py

Every model is written to tests/data/openvino/. Inputs come from a fixed seed; the
expected outputs are computed with numpy alone, so a fault in the runtime or in kel
cannot hide in the reference numbers. Tensors are stored raw, little-endian, C order,
as <model>.in.<layer>.raw and <model>.out.<layer>.raw; their shapes and types are in
manifest.txt ("<file> <type> <dims,...>").
"""
import os
import pathlib

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper
import openvino as ov
import openvino.opset13 as ops

OUT = pathlib.Path(__file__).resolve().parents[2] / "tests" / "data" / "openvino"
rng = np.random.default_rng(20250414)
manifest = []


def named(node, name):
    node.output(0).get_tensor().set_names({name})
    node.set_friendly_name(name)
    return node


def param(name, dtype, shape):
    return named(ops.parameter(shape, dtype, name=name), name)


def result(node, name):
    named(node, name)
    return ops.result(node)


def save_ir(model, stem, keep_bin=True):
    xml, bin_ = OUT / f"{stem}.xml", OUT / f"{stem}.bin"
    ov.serialize(model, str(xml), str(bin_))
    if not keep_bin:
        bin_.unlink()


def store(stem, kind, layer, array):
    name = f"{stem}.{kind}.{layer}.raw"
    arr = np.ascontiguousarray(array)
    arr.astype(arr.dtype.newbyteorder("<")).tofile(OUT / name)
    manifest.append(f"{name} {arr.dtype.name} {','.join(str(d) for d in arr.shape)}")


def sigmoid(x):
    return 1.0 / (1.0 + np.exp(-x))


def static_model():
    # One input, one output, constants in the weights file.
    scale = rng.uniform(0.5, 1.5, (1, 3, 1, 1)).astype(np.float32)
    bias = rng.uniform(-0.5, 0.5, (1, 3, 1, 1)).astype(np.float32)
    x = param("data", np.float32, [1, 3, 4, 5])
    y = ops.sigmoid(ops.add(ops.multiply(x, ops.constant(scale)), ops.constant(bias)))
    save_ir(ov.Model([result(y, "prob")], [x], "static"), "static")

    data = rng.standard_normal((1, 3, 4, 5)).astype(np.float32)
    store("static", "in", "data", data)
    store("static", "out", "prob", sigmoid(data * scale + bias).astype(np.float32))
    return scale, bias


def static_onnx(scale, bias):
    # The same network as "static", for the runtime's ONNX reader.
    graph = helper.make_graph(
        [
            helper.make_node("Mul", ["data", "scale"], ["scaled"]),
            helper.make_node("Add", ["scaled", "bias"], ["shifted"]),
            helper.make_node("Sigmoid", ["shifted"], ["prob"]),
        ],
        "static_onnx",
        [helper.make_tensor_value_info("data", TensorProto.FLOAT, [1, 3, 4, 5])],
        [helper.make_tensor_value_info("prob", TensorProto.FLOAT, [1, 3, 4, 5])],
        [numpy_helper.from_array(scale, "scale"), numpy_helper.from_array(bias, "bias")],
    )
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 17)])
    model.ir_version = 8
    onnx.checker.check_model(model)
    onnx.save(model, OUT / "static.onnx")


def multi_model():
    # Two inputs, two outputs of different shapes.
    weights = rng.uniform(-1, 1, (4, 3)).astype(np.float32)
    a = param("a", np.float32, [2, 4])
    b = param("b", np.float32, [2, 4])
    total = ops.add(a, ops.multiply(b, ops.constant(np.float32(2.0))))
    mm = ops.matmul(b, ops.constant(weights), False, False)
    save_ir(ov.Model([result(total, "sum"), result(mm, "mm")], [a, b], "multi"), "multi")

    av = rng.standard_normal((2, 4)).astype(np.float32)
    bv = rng.standard_normal((2, 4)).astype(np.float32)
    store("multi", "in", "a", av)
    store("multi", "in", "b", bv)
    store("multi", "out", "sum", av + bv * np.float32(2.0))
    store("multi", "out", "mm", bv @ weights)


def dynamic_model():
    # A batch dimension left open: the host's dims decide it.
    weights = rng.uniform(-1, 1, (4, 2)).astype(np.float32)
    bias = rng.uniform(-0.5, 0.5, (2,)).astype(np.float32)
    x = param("x", np.float32, ov.PartialShape([-1, 4]))
    y = ops.relu(ops.add(ops.matmul(x, ops.constant(weights), False, False), ops.constant(bias)))
    save_ir(ov.Model([result(y, "y")], [x], "dynamic"), "dynamic")

    xv = rng.standard_normal((3, 4)).astype(np.float32)
    store("dynamic", "in", "x", xv)
    store("dynamic", "out", "y", np.maximum(xv @ weights + bias, 0).astype(np.float32))


def types_model():
    # u8, i8 and f16 layers; values are kept small so no type overflows.
    u8 = param("u8in", np.uint8, [6])
    i8 = param("i8in", np.int8, [6])
    f16 = param("f16in", np.float16, [6])
    u8_add = np.array([1, 2, 3, 4, 5, 6], dtype=np.uint8)
    i8_sub = np.array([3, -3, 2, -2, 1, -1], dtype=np.int8)
    u8_out = ops.add(u8, ops.constant(u8_add))
    i8_out = ops.subtract(i8, ops.constant(i8_sub))
    f16_out = ops.add(ops.multiply(f16, ops.constant(np.float16(2.0))),
                      ops.constant(np.float16(0.5)))
    model = ov.Model([result(u8_out, "u8out"), result(i8_out, "i8out"),
                      result(f16_out, "f16out")], [u8, i8, f16], "types")
    save_ir(model, "types")

    uv = rng.integers(0, 100, 6, dtype=np.uint8)
    iv = rng.integers(-100, 100, 6, dtype=np.int8)
    fv = rng.uniform(-4, 4, 6).astype(np.float16)
    store("types", "in", "u8in", uv)
    store("types", "in", "i8in", iv)
    store("types", "in", "f16in", fv)
    store("types", "out", "u8out", uv + u8_add)
    store("types", "out", "i8out", iv - i8_sub)
    store("types", "out", "f16out", (fv.astype(np.float32) * 2 + 0.5).astype(np.float16))


def noweights_model():
    # No constants at all: the XML alone is the whole model and no .bin is written.
    a = param("a", np.float32, [2, 3])
    b = param("b", np.float32, [2, 3])
    y = ops.multiply(ops.relu(ops.subtract(a, b)), a)
    save_ir(ov.Model([result(y, "out")], [a, b], "noweights"), "noweights", keep_bin=False)

    av = rng.standard_normal((2, 3)).astype(np.float32)
    bv = rng.standard_normal((2, 3)).astype(np.float32)
    store("noweights", "in", "a", av)
    store("noweights", "in", "b", bv)
    store("noweights", "out", "out", np.maximum(av - bv, 0) * av)


def wide_model():
    # A large input shape for the shape-mismatch message; never run.
    x = param("image", np.float32, [1, 3, 224, 225])
    save_ir(ov.Model([result(ops.relu(x), "activated")], [x], "wide"), "wide", keep_bin=False)


def passthrough_model():
    # An input handed straight out: one tensor, known as the input "x" and the output "y".
    x = param("x", np.float32, [2, 3])
    x.output(0).get_tensor().set_names({"x", "y"})
    save_ir(ov.Model([ops.result(x)], [x], "passthrough"), "passthrough", keep_bin=False)
    data = np.arange(6, dtype=np.float32).reshape(2, 3)
    store("passthrough", "in", "x", data)
    store("passthrough", "out", "y", data)


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    for old in OUT.iterdir():
        old.unlink()
    scale, bias = static_model()
    static_onnx(scale, bias)
    multi_model()
    dynamic_model()
    types_model()
    noweights_model()
    wide_model()
    passthrough_model()
    (OUT / "manifest.txt").write_text("\n".join(manifest) + "\n")


if __name__ == "__main__":
    main()
