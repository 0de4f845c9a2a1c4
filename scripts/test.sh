#!/usr/bin/env bash
# The test command: on a Debian 12 machine, installs what is missing, builds
# the three presets (linux, linux-asan, windows) and runs every test, the
# Windows ones under Wine, then the linux build's Debian package
# (dpkg-dev and file: dpkg-shlibdeps works out the package's dependencies).
# PostgreSQL: the service's tests run on SQLite and on a scratch PostgreSQL
# server of their own (scripts/lib/pgcluster.sh).
# The metrics tests run promtool, taken from Debian's prometheus package, on
# what the programs serve (scripts/lib/promtool.sh).
set -euo pipefail
cd "$(dirname "$0")/.."

source scripts/lib/packages.sh
ensure_packages \
  cmake ninja-build g++ pkg-config \
  libgtest-dev googletest libbenchmark-dev \
  libssl-dev libmicrohttpd-dev libsqlite3-dev libjsoncpp-dev \
  postgresql libpq-dev \
  dpkg-dev file \
  gcc-mingw-w64-x86-64-posix g++-mingw-w64-x86-64-posix \
  wine wine64

source scripts/lib/promtool.sh

presets=(${VGCR_PRESETS:-linux linux-asan linux-tsan windows})
# The windows preset links jsoncpp cross-built from Debian's sources (once;
# kept in build/third_party/jsoncpp-mingw).
if [[ " ${presets[*]} " == *" windows "* ]]; then
  bash scripts/lib/jsoncpp_mingw.sh
fi
for preset in "${presets[@]}"; do
  echo "== $preset: configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
done

status=0
for preset in "${presets[@]}"; do
  echo "== $preset: tests"
  ctest --preset "$preset" || status=1
done
# The Debian package of the linux build, opened and its programs run.
if [[ " ${presets[*]} " == *" linux "* ]]; then
  echo "== linux: package"
  bash scripts/package_test.sh build/linux || status=1
fi
exit $status
