"""Writes the benchmark's convolutional network as ONNX and as OpenVINO IR.

Four 3x3 convolutions with ReLU (about 460 MFLOPs on a 1x3x128x128 image), global average
pooling and a 10-way linear head. Weights come from a fixed seed, so every build benchmarks
the same network. Usage: make_convnet.py OUT_DIR
"""
import os
import sys

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper
import openvino as ov


def main(out_dir):
    os.makedirs(out_dir, exist_ok=True)
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
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)])
    model.ir_version = 8
    onnx.checker.check_model(model)
    onnx_path = os.path.join(out_dir, "convnet.onnx")
    onnx.save(model, onnx_path)
    # The IR keeps FP32 weights, so both engines run the same arithmetic.
    ov.save_model(ov.convert_model(onnx_path), os.path.join(out_dir, "convnet.xml"),
                  compress_to_fp16=False)


if __name__ == "__main__":
    main(sys.argv[1])
