"""Trains kel-run's built-in default model: a small classifier of scikit-learn's 8x8
handwritten digits, exported as OpenVINO IR and as ONNX.

Run from the repository root with the project's virtual environment:
    .venv/bin/python tools/kel-run/train_digits.py

Writes to tools/kel-run/models/:
  digits.xml, digits.bin   the classifier as OpenVINO IR
  digits.onnx              the same classifier as ONNX (opset 13)
  digits_heldout_x.npy     held-out images, float32 [N, 64], pixels scaled to 0..1
  digits_heldout_y.npy     their labels, int64 [N]
The network takes "pixels" [1, 64] float32 and gives "scores" [1, 10] float32
(softmax probabilities). Training uses one split of the data set; the other split is
held out and never seen in training.
"""
import pathlib

import numpy as np
import onnx
import openvino as ov
import openvino.opset13 as ops
from onnx import TensorProto, helper, numpy_helper
from sklearn.datasets import load_digits
from sklearn.model_selection import train_test_split
from sklearn.neural_network import MLPClassifier

OUT = pathlib.Path(__file__).resolve().parent / "models"
SEED = 20251023


def train():
    digits = load_digits()
    x = (digits.data / 16.0).astype(np.float32)
    y = digits.target.astype(np.int64)
    x_train, x_test, y_train, y_test = train_test_split(x, y, test_size=0.3, random_state=SEED, stratify=y)
    clf = MLPClassifier(hidden_layer_sizes=(32,), max_iter=600, random_state=SEED)
    clf.fit(x_train, y_train)
    print(f"held-out accuracy (scikit-learn): {clf.score(x_test, y_test):.4f} on {len(y_test)} digits")
    w1, w2 = (w.astype(np.float32) for w in clf.coefs_)
    b1, b2 = (b.astype(np.float32) for b in clf.intercepts_)
    return (w1, b1, w2, b2), x_test, y_test


def export_ir(w1, b1, w2, b2):
    pixels = ops.parameter([1, 64], np.float32, name="pixels")
    pixels.output(0).get_tensor().set_names({"pixels"})
    hidden = ops.relu(ops.add(ops.matmul(pixels, ops.constant(w1), False, False), ops.constant(b1)))
    logits = ops.add(ops.matmul(hidden, ops.constant(w2), False, False), ops.constant(b2))
    scores = ops.softmax(logits, 1)
    scores.output(0).get_tensor().set_names({"scores"})
    scores.set_friendly_name("scores")
    model = ov.Model([ops.result(scores)], [pixels], "digits")
    ov.serialize(model, str(OUT / "digits.xml"), str(OUT / "digits.bin"))


def export_onnx(w1, b1, w2, b2):
    graph = helper.make_graph(
        [
            helper.make_node("MatMul", ["pixels", "w1"], ["h0"]),
            helper.make_node("Add", ["h0", "b1"], ["h1"]),
            helper.make_node("Relu", ["h1"], ["h2"]),
            helper.make_node("MatMul", ["h2", "w2"], ["l0"]),
            helper.make_node("Add", ["l0", "b2"], ["logits"]),
            helper.make_node("Softmax", ["logits"], ["scores"], axis=1),
        ],
        "digits",
        [helper.make_tensor_value_info("pixels", TensorProto.FLOAT, [1, 64])],
        [helper.make_tensor_value_info("scores", TensorProto.FLOAT, [1, 10])],
        [numpy_helper.from_array(w1, "w1"), numpy_helper.from_array(b1, "b1"),
         numpy_helper.from_array(w2, "w2"), numpy_helper.from_array(b2, "b2")],
    )
    model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", 13)], producer_name="kel")
    model.ir_version = 8
    onnx.checker.check_model(model)
    onnx.save(model, OUT / "digits.onnx")


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    params, x_test, y_test = train()
    export_ir(*params)
    export_onnx(*params)
    np.save(OUT / "digits_heldout_x.npy", x_test)
    np.save(OUT / "digits_heldout_y.npy", y_test)


if __name__ == "__main__":
    main()
