#!/usr/bin/env bash
# Builds the Debian package and checks it as a shop would get it: what it holds, what it depends
# on, that apt would install it here, and that the program, its manual page, the library and the
# CMake package files work from the unpacked files alone.
set -euo pipefail
cd "$(dirname "$0")/.."
deb="$(bash scripts/build-package.sh | tail -1)"
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
fail() { echo "check-package: $*" >&2; exit 1; }

contents="$(dpkg-deb -c "$deb")"
for f in usr/bin/billdata 'usr/lib/.*/libbilldata\.so\.0' 'usr/lib/.*/libbilldata\.a' \
         usr/include/billdata/posdata/posdata.h usr/include/billdata/server/billdata_c.h \
         'usr/lib/.*/cmake/billdata/billdataConfig\.cmake' usr/share/billdata/billdata.sql \
         usr/share/man/man1/billdata.1.gz; do
  grep -Eq "\./$f" <<<"$contents" || fail "the package lacks $f"
done
depends="$(dpkg-deb -f "$deb" Depends)"
for d in libc6 libsqlite3-0 libstdc++6; do
  grep -q "$d" <<<"$depends" || fail "Depends ($depends) does not name $d"
done
# apt resolves the package's dependencies against this machine (a simulation changes nothing).
if command -v apt-get >/dev/null; then
  apt-get install -s "$deb" 2>/dev/null | grep -q '^Inst billdata' ||
    fail "apt-get would not install $deb"
fi

dpkg-deb -x "$deb" "$root"
libdir="$(dirname "$(find "$root/usr/lib" -name 'libbilldata.so.0' | head -1)")"
"$root/usr/bin/billdata" --version | grep -q "^billdata $(dpkg-deb -f "$deb" Version)" ||
  fail "billdata --version does not give the package's version"
"$root/usr/bin/billdata" demo >"$root/demo.txt" || fail "billdata demo failed"
grep -q . "$root/demo.txt" || fail "billdata demo printed nothing"
page="$(zcat "$root/usr/share/man/man1/billdata.1.gz")"
for sub in init sql translate call batch demo describe; do
  grep -q "^\.SS billdata $sub" <<<"$page" || fail "the manual page lacks the $sub command"
done
# A program built against the unpacked headers, libraries and CMake files.
for kind in shared static; do
  cmake -S tests/consumer -B "$root/consumer-$kind" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" \
        -DCONSUMER_LINK="$kind" >/dev/null
  cmake --build "$root/consumer-$kind" >/dev/null
  LD_LIBRARY_PATH="$libdir" "$root/consumer-$kind/consumer" "$root/consumer-$kind/test.db" >/dev/null
done
echo "check-package: $(basename "$deb") holds and runs what it should"
