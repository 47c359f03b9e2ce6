#!/usr/bin/env bash
# Fails when a C++ file is not formatted as .clang-format says.
set -euo pipefail
cd "$(dirname "$0")/.."
files=$(git ls-files '*.cpp' '*.h')
[ -z "$files" ] && exit 0
clang-format --dry-run --Werror $files
