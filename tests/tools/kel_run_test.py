"""kel-run end to end: its built-in job, models fed from .npy and back, and bad input.
Usage: kel_run_test.py <kel-run> <tests/data directory> <plugin library directory>"""
import json
import os
import re
import subprocess
import sys
import tempfile

import numpy as np

KEL_RUN, DATA, PLUGINS = (os.path.abspath(a) for a in sys.argv[1:4])
failures = []


def run(*args, cwd=None):  # a crash shows as a negative exit code in check's report
    return subprocess.run([KEL_RUN, *args], capture_output=True, text=True, cwd=cwd, timeout=120)


def check(cond, what, p):
    if not cond:
        failures.append(f"{what}\n  exit {p.returncode}\n  stdout: {p.stdout[-1500:]}\n  stderr: {p.stderr[-1500:]}")


def default_job():
    # From another working directory: libraries and data are found from the executable.
    p = run("--json", cwd="/")
    report = json.loads(p.stdout) if p.returncode == 0 else {"engines": [], "passed": False}
    latencies = [e["latency_us"] for e in report["engines"]]
    check([e["engine"] for e in report["engines"]] == ["OpenVINO", "WindowsML"] and report["passed"] and
          all(0 < lat["min"] <= lat["p50"] <= lat["p90"] <= lat["p99"] for lat in latencies), f"--json {latencies}", p)


def models_round_trip(tmp):
    def npy(layer, stored, dtype, shape):
        path = os.path.join(tmp, os.path.basename(stored) + ".npy")
        np.save(path, np.fromfile(os.path.join(DATA, stored), dtype).reshape(shape))
        return ["-i", f"{layer}={path}"]

    # {model, arguments, outputs (the first is read back), its shape, type and stored values (floats as
    # float32)}. The CPU plugin may compute in reduced precision: a loose tolerance.
    cases = [
        # A dynamic IR input takes its dims from the .npy.
        ("openvino/dynamic.xml", npy("x", "openvino/dynamic.in.x.raw", np.float32, (3, 4)),
         ["y"], (3, 2), np.float32, "openvino/dynamic.out.y.raw"),
        # .onnx runs on WindowsML unless -e says otherwise; integer and boolean arrays.
        ("onnx/mixed_types.onnx", npy("pix", "onnx/mixed_types.pix.in.bin", np.uint8, (2, 3)) +
         npy("offset", "onnx/mixed_types.offset.in.bin", np.int64, (2, 3)) +
         npy("flag", "onnx/mixed_types.flag.in.bin", np.bool_, (2, 3)),
         ["pix_t", "positive", "sum"], (3, 2), np.uint8, "onnx/mixed_types.pix_t.out.bin"),
        ("onnx/half.onnx", ["-e", "OpenVINO"] + npy("h", "onnx/half.h.in.bin", np.float16, (1, 4)),
         ["doubled"], (1, 4), np.float16, "onnx/half.doubled.out.bin"),
        # A dynamic output is read back through --shape.
        ("onnx/dynamic_batch.onnx",
         ["--shape", "y=[3,4]"] + npy("x", "onnx/dynamic_batch.x.in.bin", np.float32, (3, 4)),
         ["y"], (3, 4), np.float32, "onnx/dynamic_batch.y.out.bin"),
    ]
    for i, (model, args, outputs, shape, dtype, stored) in enumerate(cases):
        out = os.path.join(tmp, f"out{i}")
        p = run("-m", os.path.join(DATA, model), *args, "-n", "3", "-o", out, "--json")
        report = json.loads(p.stdout) if p.returncode == 0 else {"count": 0, "outputs": []}
        names = [o["name"] for o in report["outputs"]]
        check(report["count"] == 3 and sorted(names) == outputs, f"{model}: three runs, outputs {names}", p)
        if p.returncode == 0:
            got = np.load(os.path.join(out, f"{outputs[0]}.npy"))
            want = np.fromfile(os.path.join(DATA, stored), np.float32 if got.dtype.kind == "f" else got.dtype)
            check(got.shape == shape and got.dtype == dtype and np.allclose(got.ravel(), want, atol=1e-2),
                  f"{model} {outputs[0]}: {got!r}", p)

    # A plugin model library runs on the engine it was built for; -t bounds the run.
    p = run("--plugin", os.path.join(PLUGINS, "libkel_digits_windowsml.so"), "--fill", "zero", "-t", "0.2")
    check(p.returncode == 0 and re.search(r"^Engine: WindowsML(.|\n)*^Count: +[1-9](.|\n)*^P99 Latency", p.stdout,
                                          re.M), "plugin model library, text report", p)


def refusals(tmp):
    static_xml = os.path.join(DATA, "openvino/static.xml")
    zeros = np.zeros((1, 3, 4, 5), np.float32)
    arrays = {"wrong": zeros.astype(np.float64), "big": zeros.astype(">f4"), "fortran": np.asfortranarray(zeros),
              "short": zeros, "digits_heldout_x": np.zeros((3, 64)), "digits_heldout_y": np.zeros(3, np.int64)}
    for name, array in arrays.items():
        np.save(os.path.join(tmp, f"{name}.npy"), array)
    with open(os.path.join(tmp, "short.npy"), "r+b") as f:
        f.truncate(os.path.getsize(f.name) - 8)

    kel_failure = r"^kel-run: kel error: \S"
    # {arguments, exit code, what standard output or standard error must match}
    cases = [
        (["--list"], 0, r"^OpenVINO \(runtime .+\): AUTO, CPU"),
        (["--json", "-m", os.path.join(tmp, "missing.xml")], 1, r'^\{"error": .*"exit_code": 1\}'),
        # The device is the engine's error, not a run on the processor.
        (["-m", os.path.join(DATA, "onnx/static_two_io.onnx"), "-d", "NOPE"], 1, kel_failure),
        (["-m", os.path.join(DATA, "openvino/dynamic.xml")], 1, r"^\(input x has a dynamic shape: give --shape x="),
        (["--data", tmp], 2, r"^kel-run: usage error: the held-out digits in .* are not float32"),
        (["--frobnicate"], 2, r"^kel-run: usage error: unknown argument '--frobnicate'"),
        (["-m"], 2, r"-m needs a value"),
        (["-m", static_xml, "--shape", "data=[1,x]"], 2, r"--shape takes a whole number, not 'x'"),
        (["-m", static_xml, "-i", f"data={tmp}/wrong.npy"], 2, r"holds FP64 but input data takes FP32"),
        (["-m", static_xml, "-i", f"data={static_xml}"], 2, r"not a \.npy file"),
        (["-m", static_xml, "-i", f"nothere={tmp}/wrong.npy"], 2, r"the model has no input named nothere"),
        (["-m", static_xml, "-i", f"data={tmp}/fortran.npy"], 2, r"Fortran-ordered arrays are not supported"),
        (["-m", static_xml, "-i", f"data={tmp}/big.npy"], 2, r"big-endian arrays are not supported"),
        (["-m", static_xml, "-i", f"data={tmp}/short.npy"], 2, r"holds fewer elements than its shape says"),
    ]
    for args, code, pattern in cases:
        p = run(*args)
        check(p.returncode == code and re.search(pattern, p.stdout + p.stderr, re.M), f"{args}: {code}, {pattern}", p)


def compare(tmp):
    import onnx
    from onnx import numpy_helper
    static_onnx, static_xml = (os.path.join(DATA, "openvino", f) for f in ("static.onnx", "static.xml"))
    # The same network with its bias moved by 0.05: a difference planted between the engines.
    model = onnx.load(static_onnx)
    bias = next(i for i in model.graph.initializer if i.name == "bias")
    bias.CopyFrom(numpy_helper.from_array(numpy_helper.to_array(bias) + np.float32(0.05), "bias"))
    planted = os.path.join(tmp, "planted.onnx")
    onnx.save(model, planted)
    with open(os.path.join(tmp, "text.xml"), "w") as f:
        f.write("not a model\n")
    # {arguments, exit code, agreement per output (None: no verdicts), engines that made the network}
    cases = [
        (["-m", static_onnx, "--ir", static_xml], 0, [True], [True, True]),
        (["-m", planted, "--ir", static_xml], 3, [False], [True, True]),
        (["-m", planted, "--ir", static_xml, "--atol", "0.06"], 0, [True], [True, True]),
        # The output's shape is left open: WindowsML reads it with the shape OpenVINO found.
        (["-m", os.path.join(DATA, "onnx/dynamic_batch.onnx"), "--shape", "x=[3,4]"], 0, [True], [True, True]),
        (["-m", static_onnx, "--ir", os.path.join(tmp, "text.xml")], 1, [], [False, True]),
    ]
    for args, code, agree, created in cases:
        p = run("--compare", *args, "-n", "3", "--json")
        report = json.loads(p.stdout) if p.stdout.startswith("{") else {"outputs": [], "engines": []}
        check(p.returncode == code and report.get("exit_code") == code and
              [o["agree"] for o in report["outputs"]] == agree and
              [e["created"] for e in report["engines"]] == created, f"--compare {args}: {code}", p)
        if code == 3:
            check(report["outputs"][0]["max_abs_diff"] > 0.01, f"planted difference {report['outputs']}", p)
    p = run("--compare", "-m", planted, "--ir", static_xml, "-n", "3")
    check(p.returncode == 3 and re.search(r"^prob +\[1,3,4,5\] .* differ$(.|\n)*^Result: DIFFER$", p.stdout, re.M),
          "--compare, text report", p)


with tempfile.TemporaryDirectory() as tmp:
    compare(tmp)
    default_job()
    models_round_trip(tmp)
    refusals(tmp)

for f in failures:
    print("FAIL:", f)
print(f"kel-run: {len(failures)} failure(s)")
sys.exit(1 if failures else 0)
