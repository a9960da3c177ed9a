#!/usr/bin/env bash
# Sets up the machine (scripts/setup.sh) and builds everything into build/.
set -euo pipefail
cd "$(dirname "$0")/.."
env_file=$(scripts/setup.sh | tail -n 1)
# shellcheck disable=SC1090
. "$env_file"
cmake -S . -B build -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
  -DACE_PREFIX="$ACE_PREFIX" -DTRE_PREFIX="$TRE_PREFIX" -DGTEST_PREFIX="$GTEST_PREFIX" \
  -DTOOL_HEADERS_PREFIX="$TOOL_HEADERS_PREFIX" >/dev/null
cmake --build build -j"$(nproc)"
