#!/usr/bin/env bash
# Builds everything and runs every test. Extra arguments go to CMake.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${PLOTVIK_BUILD_DIR:-$root/build}"
"$root/scripts/build.sh" "$@"
cd "$build"
QT_QPA_PLATFORM=offscreen ctest --output-on-failure --timeout 600 -j "$(nproc)"
