#!/usr/bin/env bash
# Installs what is missing, then builds and runs the whole suite in the default and the
# sanitizer presets. Integration tests run for real as root and skip with a reason otherwise.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)
for preset in default asan; do
  echo "== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
