#!/usr/bin/env bash
# The benchmarks: set-up, build, then every benchmark program under Wine in
# the build tree's prefix. Each prints its figures and the target it is held
# to; the command fails when a target is missed.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh >/dev/null
run=build/wine-run
trap '"$run" --server -k >/dev/null 2>&1 || true' EXIT
"$run" --server -p >/dev/null 2>&1 || true
"$run" wineboot -i >/dev/null 2>&1
status=0
for bench in build/bin/*_bench.exe; do
  echo "== $(basename "$bench" .exe)"
  "$run" "$bench" || status=1
done
exit "$status"
