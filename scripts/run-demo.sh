#!/usr/bin/env bash
# Builds billdata and runs `billdata demo`: a day at a shop, narrated, on a fresh embedded
# database (a temporary file; pass --db <new file> or --keep to look at it afterwards).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build-demo -DBILLDATA_BUILD_TESTS=OFF -DBILLDATA_BUILD_BENCH=OFF
./build-demo/tools/billdata/billdata demo "$@"
