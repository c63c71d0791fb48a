#!/usr/bin/env bash
# What a user gets: installs kel from a build, moves the tree, packs it, and builds hosts
# outside kel's tree with Debian's default compiler settings against the installed package
# and the unpacked .deb. Nothing is installed system-wide.
#   bash tests/install/run.sh <build dir>
set -euo pipefail
HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
SRC="$(cd "$HERE/../.." && pwd)"
BUILD="$(cd "$1" && pwd)"
DATA="$SRC/tests/data"
MODEL="$DATA/onnx/static_two_io.onnx"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
say() { printf '[install] %s\n' "$*"; }
fail() { printf '[install] FAILED: %s\n' "$*" >&2; exit 1; }

# The README's examples, as written: its fenced blocks that open with "// example.cpp:" or
# "/* example.c:".
awk -v out="$work" '
  /^```/ { if (file) { close(file); file = "" } else fence = 1; next }
  fence { fence = 0; if ($0 ~ /^(\/\/|\/\*) example\.(c|cpp):/) { f = $2; sub(/:$/, "", f); file = out "/" f } }
  file { print > file }' "$SRC/README.md"
[ -s "$work/example.c" ] && [ -s "$work/example.cpp" ] || fail "README examples not found"
expected=$'1.5 0.5\n2.5 1\n3.5 1.5\n4.5 2\n5.5 2.5\n6.5 3'
check_example() {  # program
  for engine in OpenVINO WindowsML; do
    got="$("$1" "$engine" "$MODEL")" || fail "$1 $engine exited with $?"
    [ "$got" = "$expected" ] || fail "$1 $engine printed: $got"
  done
}
pc_build() {  # prefix source output: a C host built with pkg-config alone
  local pc="$1/lib/pkgconfig"
  # shellcheck disable=SC2046
  cc "$2" -o "$3" $(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs kel) -lm \
     -Wl,-rpath,"$(PKG_CONFIG_PATH="$pc" pkg-config --variable=libdir kel)"
}

say "cmake --install, then the tree moved elsewhere"
cmake --install "$BUILD" --prefix "$work/staged" >/dev/null
mv "$work/staged" "$work/tree"
T="$work/tree"
lib="$(find "$T/lib" -maxdepth 1 -name 'libkel.so.*.*.*')"
[ -f "$lib" ] && [ "$(readlink "$T/lib/libkel.so")" = libkel.so.1 ] || fail "libkel.so links"
readelf -d "$lib" | grep -q 'SONAME.*\[libkel\.so\.1\]' || fail "no SONAME libkel.so.1"
readelf -d "$lib" | grep -q 'RUNPATH.*\[\$ORIGIN\]' || fail "RUNPATH is not \$ORIGIN"
readelf -d "$T/bin/kel-run" | grep -q 'RUNPATH.*\$ORIGIN/\.\./lib' || fail "kel-run's RUNPATH"
headers="$(cd "$T/include" && find . -type f | sort | tr '\n' ' ')"
[ "$headers" = "./kel/c/kel.h ./kel/c/kel_plugin_model.h ./kel/cxx/KELException.hpp ./kel/cxx/MLEngine.hpp ./kel/cxx/export.hpp ./kel/cxx/types.hpp " ] ||
  fail "installed headers: $headers"
"$T/bin/kel-run" > "$work/kel-run.txt" || fail "kel-run in the moved tree: $(cat "$work/kel-run.txt")"
grep -q '^Result: PASS' "$work/kel-run.txt" || fail "kel-run did not pass"

say "the README's C example, with pkg-config"
pc_build "$T" "$work/example.c" "$work/example_c"
check_example "$work/example_c"

say "a CMake project: find_package(kel), the README's C++ example, kel_add_plugin_model"
cmake -S "$HERE/downstream" -B "$work/downstream" -G Ninja -DCMAKE_PREFIX_PATH="$T" \
      -DEXAMPLE_SOURCE="$work/example.cpp" -DTWO_IO_MODEL="$MODEL" >/dev/null
cmake --build "$work/downstream" >/dev/null
check_example "$work/downstream/example"
plugin="$work/downstream/libtwo_io_windowsml.so"
if cmake -S "$HERE/downstream" -B "$work/too-new" -G Ninja -DCMAKE_PREFIX_PATH="$T" -DKEL_WANTED=99.0 \
         -DEXAMPLE_SOURCE="$work/example.cpp" -DTWO_IO_MODEL="$MODEL" >/dev/null 2>&1; then
  fail "find_package(kel 99.0) accepted kel $(cat "$T"/lib/cmake/kel/kelConfigVersion.cmake | grep -m1 PACKAGE_VERSION)"
fi

say "a C host on the whole road, with pkg-config, registering the downstream plugin model"
pc_build "$T" "$HERE/road.c" "$work/road"
"$work/road" "$DATA" "$plugin" >/dev/null || fail "the C host on the installed tree"

say "packages: .tar.gz and .deb"
cpack --config "$BUILD/CPackConfig.cmake" -B "$work/packages" >/dev/null
deb="$(find "$work/packages" -maxdepth 1 -name 'kel_*.deb')"
tgz="$(find "$work/packages" -maxdepth 1 -name 'kel-*.tar.gz')"
[ -f "$deb" ] && [ -f "$tgz" ] || fail "packages missing: $(ls "$work/packages")"
info="$(dpkg-deb --info "$deb")"
for field in 'Package: kel' 'Version: ' 'Architecture: amd64' 'Depends: .*libstdc++6' 'Description: '; do
  grep -q "^ $field" <<< "$info" || fail "dpkg-deb --info has no '$field'"
done
contents="$(dpkg-deb --contents "$deb")"
for path in ./opt/kel/lib/libkel.so.1 ./opt/kel/lib/libopenvino.so ./opt/kel/lib/libonnxruntime.so.1 \
            ./opt/kel/include/kel/c/kel.h ./opt/kel/lib/cmake/kel/kelConfig.cmake \
            ./opt/kel/lib/pkgconfig/kel.pc ./opt/kel/bin/kel-run; do
  grep -q " $path\( \|$\)" <<< "$contents" || fail "the .deb lacks $path"
done
dpkg -x "$deb" "$work/root"
pc_build "$work/root/opt/kel" "$HERE/road.c" "$work/road_deb"
"$work/road_deb" "$DATA" "$plugin" >/dev/null || fail "the C host on the unpacked .deb"
mkdir "$work/tgz" && tar xzf "$tgz" -C "$work/tgz"
"$work"/tgz/kel-*/bin/kel-run --list >/dev/null || fail "kel-run from the .tar.gz"
say "all passed"
