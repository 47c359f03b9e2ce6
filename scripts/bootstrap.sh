#!/usr/bin/env bash
# Installs the Debian packages the build needs, when they are missing. Safe to run again.
#   bootstrap.sh --fuzz   also the compiler and runtime of the fuzz targets (scripts/run-fuzz.sh)
set -euo pipefail

packages=(g++ cmake ninja-build pkg-config libsqlite3-dev libgtest-dev libgmock-dev
          libbenchmark-dev nlohmann-json3-dev libcli11-dev libfmt-dev clang-format
          dpkg-dev file libpq-dev postgresql unixodbc-dev odbc-postgresql tdsodbc)
if [ "${1:-}" = "--fuzz" ]; then packages+=(clang libclang-rt-14-dev); fi
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if ((${#missing[@]})); then
  echo "bootstrap: installing ${missing[*]}" >&2
  SUDO=""
  if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
