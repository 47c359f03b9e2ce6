#!/usr/bin/env bash
# Configures and builds into a build folder: build.sh <build-dir> [cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."
dir="$1"; shift
bash scripts/bootstrap.sh
cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
