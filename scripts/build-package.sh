#!/usr/bin/env bash
# Builds the Debian package (Release, installed under /usr) into build-package/ and prints the
# path of the .deb. Install it with `apt install ./build-package/billdata_*.deb`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build-package -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DBILLDATA_BUILD_TESTS=OFF -DBILLDATA_BUILD_BENCH=OFF >&2
rm -f build-package/billdata_*.deb
(cd build-package && cpack -G DEB >/dev/null)
ls "$PWD"/build-package/billdata_*.deb
