#!/usr/bin/env bash
# The test command: set-up, build, then every test under Wine through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/build.sh
cd build
ctest --output-on-failure "$@"
