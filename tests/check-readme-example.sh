#!/bin/sh
# The README's C++ example is examples/resolve.cpp, which the build compiles:
# the two must not drift apart.
set -eu
readme=$1
example=$2
awk '/^```cpp$/{f=1;next} /^```$/{if(f){exit}} f' "$readme" >"${TMPDIR:-/tmp}/readme-example.$$"
if cmp -s "${TMPDIR:-/tmp}/readme-example.$$" "$example"; then
  rm -f "${TMPDIR:-/tmp}/readme-example.$$"
  echo "README example matches $example"
else
  diff "${TMPDIR:-/tmp}/readme-example.$$" "$example" || true
  rm -f "${TMPDIR:-/tmp}/readme-example.$$"
  exit 1
fi
