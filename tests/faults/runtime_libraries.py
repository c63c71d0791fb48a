"""The runtime libraries beside libkel.so missing, truncated or not a library: kel refuses at
construction with its message, and a second kelCreate in the same process says so again.
Each case runs in a copy of the library directory with one library damaged.

Usage: runtime_libraries.py <directory of libkel.so and the staged runtime libraries>
"""
import os
import shutil
import subprocess
import sys
import tempfile

STAGED = os.path.abspath(sys.argv[1])
# Two handles, one after the other, each with its pending text read, reset and destroyed.
HOST = r"""
import ctypes, sys
kel = ctypes.CDLL(sys.argv[1])
kel.kelCreate.restype = ctypes.c_void_p
for _ in range(2):
    h = ctypes.c_void_p(kel.kelCreate())
    n = ctypes.c_uint64()
    if kel.kelGetExceptionStringLength(h, ctypes.byref(n)) == 0:
        text = ctypes.create_string_buffer(n.value + 1)
        kel.kelGetExceptionString(h, text)
        print(text.value.decode().splitlines()[1])
    else:
        print("no error")
    kel.kelResetExceptionString(h)
    kel.kelDestory(h)
"""


def damaged(directory, name, how):
    path = os.path.join(directory, name)
    real = open(path, "rb").read()
    os.remove(path)  # a link into the runtime's own tree: replaced, never written through
    if how == "truncated":
        open(path, "wb").write(real[:4096])
    elif how == "not a library":
        open(path, "w").write("not a library\n")


failures = []
for name, stem in (("libopenvino.so", "openvino"), ("libopenvino_ir_frontend.so", "openvino_ir_frontend")):
    refusal = (f"{stem} shared library and kel shared library are not in the same directory. "
               f"Please put {stem} shared library in the same directory with kel shared library.")
    for how in ("missing", "truncated", "not a library", None):
        with tempfile.TemporaryDirectory() as directory:
            for entry in os.listdir(STAGED):
                if entry.startswith("lib") and ".so" in entry:
                    shutil.copy2(os.path.join(STAGED, entry), directory, follow_symlinks=False)
            if how:
                damaged(directory, name, how)
            p = subprocess.run([sys.executable, "-c", HOST, os.path.join(directory, "libkel.so")],
                               capture_output=True, text=True, timeout=120)
            want = [refusal, refusal] if how else ["no error", "no error"]
            if p.returncode != 0 or p.stdout.splitlines() != want:
                failures.append(f"{name} {how or 'intact'}: exit {p.returncode}\n{p.stdout}{p.stderr[-2000:]}")

for failure in failures:
    print("FAILED:", failure)
print(f"{8 - len(failures)} of 8 cases passed")
sys.exit(1 if failures else 0)
