"""kel-run end to end: the built-in digits job, models fed from .npy and back, and the bad
inputs that must end with the library's text and a non-zero exit code.

Usage: kel_run_test.py <kel-run> <tests/data directory> <plugin library directory>
"""
import json
import os
import re
import subprocess
import sys
import tempfile

import numpy as np

KEL_RUN, DATA, PLUGINS = (os.path.abspath(a) for a in sys.argv[1:4])
failures = []


def run(*args, cwd=None):
    p = subprocess.run([KEL_RUN, *args], capture_output=True, text=True, cwd=cwd, timeout=120)
    if p.returncode < 0:
        failures.append(f"{args}: killed by signal {-p.returncode}\n{p.stderr}")
    return p


def check(cond, what, p=None):
    if not cond:
        detail = f"\n  exit {p.returncode}\n  stdout: {p.stdout[-1500:]}\n  stderr: {p.stderr[-1500:]}" if p else ""
        failures.append(what + detail)


def default_job():
    # From another working directory: libraries and data are found from the executable.
    p = run(cwd="/")
    check(p.returncode == 0, "default job exits 0", p)
    for key in ("kel version", "OpenVINO", "WindowsML", "Accuracy", "Latency p99 (us)",
                "Network creation (ms)", "Throughput", "Agreement:", "Result: PASS"):
        check(key in p.stdout, f"default job prints {key!r}", p)

    p = run("--json")
    check(p.returncode == 0, "default job --json exits 0", p)
    report = json.loads(p.stdout)
    check([e["engine"] for e in report["engines"]] == ["OpenVINO", "WindowsML"], "both engines in the report", p)
    for e in report["engines"]:
        check(e["accuracy"] > 0.9, f"{e['engine']} accuracy {e['accuracy']}", p)
        lat = e["latency_us"]
        check(0 < lat["min"] <= lat["p50"] <= lat["p90"] <= lat["p99"], f"{e['engine']} latency order {lat}", p)
    check(report["agreement"]["rate"] >= 0.95 and report["passed"], "engines agree", p)

    # Held-out data that no longer matches the classifier is a usage error, not a crash.
    with tempfile.TemporaryDirectory() as d:
        np.save(os.path.join(d, "digits_heldout_x.npy"), np.zeros((3, 64), np.float64))
        np.save(os.path.join(d, "digits_heldout_y.npy"), np.zeros(3, np.int64))
        p = run("--data", d)
        check(p.returncode == 2 and "held-out digits" in p.stderr, "wrong held-out dtype", p)


def models_round_trip(tmp):
    # IR with a dynamic input: the shape comes from the .npy; outputs come back as .npy. The
    # CPU plugin may compute in reduced precision, hence the loose tolerance.
    x = np.fromfile(os.path.join(DATA, "openvino/dynamic.in.x.raw"), np.float32).reshape(3, 4)
    y = np.fromfile(os.path.join(DATA, "openvino/dynamic.out.y.raw"), np.float32).reshape(3, 2)
    np.save(os.path.join(tmp, "x.npy"), x)
    out = os.path.join(tmp, "ir")
    p = run("-m", os.path.join(DATA, "openvino/dynamic.xml"), "-i", f"x={tmp}/x.npy", "-n", "3", "-o", out, "--json")
    check(p.returncode == 0, "dynamic IR fed from .npy", p)
    if p.returncode == 0:
        got = np.load(os.path.join(out, "y.npy"))
        check(got.shape == (3, 2) and np.allclose(got, y, atol=1e-2), f"dynamic IR output {got}", p)
        check(json.loads(p.stdout)["count"] == 3, "-n 3 runs three times", p)

    # ONNX on WindowsML, three element types in, three out, with a transposed output.
    names = {"pix": np.uint8, "offset": np.int64, "flag": np.bool_}
    args = []
    for name, dtype in names.items():
        a = np.fromfile(os.path.join(DATA, f"onnx/mixed_types.{name}.in.bin"), dtype).reshape(2, 3)
        np.save(os.path.join(tmp, f"{name}.npy"), a)
        args += ["-i", f"{name}={tmp}/{name}.npy"]
    out = os.path.join(tmp, "onnx")
    p = run("-m", os.path.join(DATA, "onnx/mixed_types.onnx"), *args, "-n", "2", "-o", out)
    check(p.returncode == 0 and "P99 Latency" in p.stdout and "Median:" in p.stdout, "mixed types on WindowsML", p)
    if p.returncode == 0:
        pix_t = np.load(os.path.join(out, "pix_t.npy"))
        expected = np.fromfile(os.path.join(DATA, "onnx/mixed_types.pix_t.out.bin"), pix_t.dtype).reshape(3, 2)
        check(pix_t.shape == (3, 2) and (pix_t == expected).all(), f"pix_t {pix_t}", p)

    # ONNX on OpenVINO: half precision in, and out widened to float as WindowsML hands it out;
    # a dynamic WindowsML output read back through --shape.
    half = np.fromfile(os.path.join(DATA, "onnx/half.h.in.bin"), np.float16).reshape(1, 4)
    x = np.fromfile(os.path.join(DATA, "onnx/dynamic_batch.x.in.bin"), np.float32).reshape(3, 4)
    np.save(os.path.join(tmp, "h.npy"), half)
    np.save(os.path.join(tmp, "x.npy"), x)
    for model, args, name, dtype, stored in [
            ("half", ["-e", "OpenVINO", "-i", f"h={tmp}/h.npy"], "doubled", np.float16, np.float32),
            ("dynamic_batch", ["--shape", "y=[3,4]", "-i", f"x={tmp}/x.npy"], "y", np.float32, np.float32)]:
        out = os.path.join(tmp, model)
        p = run("-m", os.path.join(DATA, f"onnx/{model}.onnx"), *args, "-n", "1", "-o", out)
        check(p.returncode == 0, f"{model} from .npy", p)
        if p.returncode == 0:
            got = np.load(os.path.join(out, f"{name}.npy"))
            expected = np.fromfile(os.path.join(DATA, f"onnx/{model}.{name}.out.bin"), stored)
            check(got.dtype == dtype and np.allclose(got.ravel(), expected, atol=1e-2), f"{model} {name}: {got}", p)

    # A plugin model library: the engine is the one the library was built for; -t bounds the run.
    p = run("--plugin", os.path.join(PLUGINS, "libkel_digits_windowsml.so"), "--fill", "zero", "-t", "0.2", "--json")
    check(p.returncode == 0, "plugin model library", p)
    if p.returncode == 0:
        report = json.loads(p.stdout)
        check(report["engine"] == "WindowsML" and report["count"] > 0, f"plugin report {report}", p)


def bad_inputs(tmp):
    static_xml = os.path.join(DATA, "openvino/static.xml")
    text = os.path.join(tmp, "notes.xml")
    with open(text, "w") as f:
        f.write("this is not a model\n")
    text_onnx = os.path.join(tmp, "notes.onnx")
    os.link(text, text_onnx)
    kel_failures = {
        "missing file": ["-m", os.path.join(tmp, "missing.xml")],
        "text file as IR": ["-m", text],
        "text file as ONNX": ["-m", text_onnx],
        "text file as plugin": ["--plugin", text],
        "wrong engine": ["-m", static_xml, "-e", "TensorFlow"],
        "unknown device": ["-m", static_xml, "-d", "NOPE"],
        "unknown device on WindowsML": ["-m", os.path.join(DATA, "onnx/static_two_io.onnx"), "-d", "NOPE"],
        "dynamic input without shape": ["-m", os.path.join(DATA, "openvino/dynamic.xml")],
        "wrong dims for a static input": ["-m", static_xml, "--shape", "data=[2,2]"],
    }
    for what, args in kel_failures.items():
        p = run(*args)
        check(p.returncode == 1 and re.search(r"^kel-run: kel error: \S", p.stderr, re.M),
              f"{what}: exit 1 with the library's text", p)
    p = run("-m", os.path.join(DATA, "openvino/dynamic.xml"))
    check("dynamic shape" in p.stderr and "--shape x=" in p.stderr, "dynamic input hint", p)

    np.save(os.path.join(tmp, "wrong.npy"), np.zeros((1, 3, 4, 5), np.float64))
    usage_errors = {
        "unknown option": ["--frobnicate"],
        "missing value": ["-m"],
        "bad count": ["-m", static_xml, "-n", "ten"],
        "bad shape": ["-m", static_xml, "--shape", "data=[1,x]"],
        "dtype mismatch": ["-m", static_xml, "-i", f"data={tmp}/wrong.npy"],
        "not a .npy": ["-m", static_xml, "-i", f"data={text}"],
        "unknown input": ["-m", static_xml, "-i", f"nothere={tmp}/wrong.npy"],
    }
    np.save(os.path.join(tmp, "fortran.npy"), np.asfortranarray(np.zeros((1, 3, 4, 5), np.float32)))
    np.save(os.path.join(tmp, "big.npy"), np.zeros((1, 3, 4, 5), ">f4"))
    np.save(os.path.join(tmp, "short.npy"), np.zeros((1, 3, 4, 5), np.float32))
    with open(os.path.join(tmp, "short.npy"), "r+b") as f:
        f.truncate(os.path.getsize(f.name) - 8)
    usage_errors.update({
        "Fortran order": ["-m", static_xml, "-i", f"data={tmp}/fortran.npy"],
        "big-endian": ["-m", static_xml, "-i", f"data={tmp}/big.npy"],
        "truncated .npy": ["-m", static_xml, "-i", f"data={tmp}/short.npy"],
    })
    for what, args in usage_errors.items():
        p = run(*args)
        check(p.returncode == 2 and "usage error" in p.stderr, f"{what}: exit 2", p)
    p = run("--json", "-m", os.path.join(tmp, "missing.xml"))
    check(p.returncode == 1 and json.loads(p.stdout)["exit_code"] == 1, "--json error report", p)
    p = run("--help")
    check(p.returncode == 0 and "Exit codes" in p.stdout, "--help", p)


with tempfile.TemporaryDirectory() as tmp:
    default_job()
    models_round_trip(tmp)
    bad_inputs(tmp)

for f in failures:
    print("FAIL:", f)
print(f"kel-run: {len(failures)} failure(s)")
sys.exit(1 if failures else 0)
