#!/usr/bin/env bash
# Installs what is missing, builds, and starts Vantrelo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)"
exec build/default/ctl/vantreloctl list "$@"
