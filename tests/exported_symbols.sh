#!/usr/bin/env bash
# libkel.so exports only the flat kel* functions and the classes a host names.
set -euo pipefail
lib="$1"
unexpected=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt | grep -vE \
  '^kel[A-Z]|^kel::MLEngine::(MLEngine|~MLEngine|operator=|[a-zA-Z]+)\(|^kel::KELException::|^(typeinfo|typeinfo name|vtable) for kel::KELException$' || true)
if [ -n "$unexpected" ]; then
  echo "unexpected exports:"; echo "$unexpected"; exit 1
fi
grep -q . <(nm -D --defined-only "$lib" | grep ' kelCreate$') || { echo "kelCreate missing"; exit 1; }
echo "exports ok"
