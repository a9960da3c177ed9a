#!/bin/sh
# The README's C++ example is examples/resolve.cpp, which the build compiles:
# the two must not drift apart.
set -eu
readme=$1
example=$2
block=$(mktemp)
trap 'rm -f "$block"' EXIT
awk '/^```cpp$/{f=1;next} /^```$/{if(f){exit}} f' "$readme" >"$block"
diff "$block" "$example"
echo "README example matches $example"
