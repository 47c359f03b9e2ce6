#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds a program outside the tree against it
# with find_package(billdata), once with the shared and once with the static library.
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT
cmake --install build --prefix "$prefix/install" >/dev/null
for kind in shared static; do
  cmake -S tests/consumer -B "$prefix/consumer-$kind" -G Ninja \
        -DCMAKE_PREFIX_PATH="$prefix/install" -DCONSUMER_LINK="$kind" >/dev/null
  cmake --build "$prefix/consumer-$kind" >/dev/null
  LD_LIBRARY_PATH="$prefix/install/lib:${LD_LIBRARY_PATH:-}" "$prefix/consumer-$kind/consumer" "$prefix/consumer-$kind/test.db"
done
