#!/usr/bin/env bash
# libkel.so exports only the flat kel* functions and the classes a host names.
set -euo pipefail
lib="$1"
[ $# -eq 2 ] || { echo "usage: $0 libkel.so expected-exports.txt"; exit 2; }
unexpected=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt | grep -vE \
  '^kel[A-Z]|^kel::MLEngine::(MLEngine|~MLEngine|operator=|[a-zA-Z]+)(\[abi:cxx11\])?\(|^kel::KELException::|^(typeinfo|typeinfo name|vtable) for kel::KELException$' || true)
if [ -n "$unexpected" ]; then
  echo "unexpected exports:"; echo "$unexpected"; exit 1
fi
# Exactly the documented flat functions, no more and no fewer.
expected="$2"
if ! diff <(nm -D --defined-only "$lib" | awk '$3 ~ /^kel/ {print $3}' | sort) <(sort "$expected"); then
  echo "the kel* exports differ from $expected"; exit 1
fi
echo "exports ok"
