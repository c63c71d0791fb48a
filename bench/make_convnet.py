"""Writes the benchmark's generated networks as ONNX and as OpenVINO IR.

convnet: four 3x3 convolutions with ReLU (about 460 MFLOPs on a 1x3x128x128 image), global
average pooling and a 10-way linear head. wide_mlp: a large model, three fully connected
layers (1024 -> 8192 -> 2048 -> 1024, ReLU between) whose 104 MB of weights dominate its
memory. Weights come from a fixed seed, so every build benchmarks the same networks.
Usage: make_convnet.py OUT_DIR
"""
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper
import openvino as ov


def save(model, out_dir, name):
    model.ir_version = 8
    onnx.checker.check_model(model)
    onnx_path = os.path.join(out_dir, name + ".onnx")
    onnx.save(model, onnx_path)
    # The IR keeps FP32 weights, so both engines run the same arithmetic.
    ov.save_model(ov.convert_model(onnx_path), os.path.join(out_dir, name + ".xml"), compress_to_fp16=False)


def wide_mlp(out_dir):
    rng = np.random.default_rng(9)
    nodes, inits, x = [], [], "features"
    widths = [1024, 8192, 2048, 1024]
    layers = list(zip(widths, widths[1:]))
    for i, (fan_in, fan_out) in enumerate(layers):
        w = rng.normal(0, np.sqrt(2.0 / fan_in), (fan_in, fan_out)).astype(np.float32)
        inits += [numpy_helper.from_array(w, f"w{i}"), numpy_helper.from_array(np.zeros(fan_out, np.float32), f"b{i}")]
        last = i == len(layers) - 1
        nodes.append(helper.make_node("Gemm", [x, f"w{i}", f"b{i}"], ["embedding" if last else f"g{i}"]))
        if not last:
            nodes.append(helper.make_node("Relu", [f"g{i}"], [f"h{i}"]))
            x = f"h{i}"
    graph = helper.make_graph(
        nodes, "wide_mlp", [helper.make_tensor_value_info("features", TensorProto.FLOAT, [1, widths[0]])],
        [helper.make_tensor_value_info("embedding", TensorProto.FLOAT, [1, widths[-1]])], inits)
    save(helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)]), out_dir, "wide_mlp")


def main(out_dir):
    os.makedirs(out_dir, exist_ok=True)
    wide_mlp(out_dir)
    rng = np.random.default_rng(8)
    nodes, inits = [], []
    x = "image"
    channels = 3
    for i, (out_ch, stride) in enumerate([(32, 2), (64, 1), (128, 2), (256, 2)]):
        fan_in = channels * 9
        w = rng.normal(0, np.sqrt(2.0 / fan_in), (out_ch, channels, 3, 3)).astype(np.float32)
        b = rng.normal(0, 0.01, out_ch).astype(np.float32)
        inits += [numpy_helper.from_array(w, f"w{i}"), numpy_helper.from_array(b, f"b{i}")]
        nodes.append(helper.make_node("Conv", [x, f"w{i}", f"b{i}"], [f"c{i}"],
                                      kernel_shape=[3, 3], strides=[stride, stride],
                                      pads=[1, 1, 1, 1]))
        nodes.append(helper.make_node("Relu", [f"c{i}"], [f"r{i}"]))
        x, channels = f"r{i}", out_ch
    nodes.append(helper.make_node("GlobalAveragePool", [x], ["pooled"]))
    nodes.append(helper.make_node("Flatten", ["pooled"], ["flat"], axis=1))
    wf = rng.normal(0, np.sqrt(1.0 / channels), (channels, 10)).astype(np.float32)
    inits += [numpy_helper.from_array(wf, "wf"),
              numpy_helper.from_array(np.zeros(10, np.float32), "bf")]
    nodes.append(helper.make_node("Gemm", ["flat", "wf", "bf"], ["scores"]))
    graph = helper.make_graph(
        nodes, "convnet",
        [helper.make_tensor_value_info("image", TensorProto.FLOAT, [1, 3, 128, 128])],
        [helper.make_tensor_value_info("scores", TensorProto.FLOAT, [1, 10])], inits)
    save(helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)]), out_dir, "convnet")


if __name__ == "__main__":
    main(sys.argv[1])
