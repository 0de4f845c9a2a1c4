#!/usr/bin/env bash
# The test command: on a Debian 12 machine, installs what is missing, builds
# the three presets (linux, linux-asan, windows) and runs every test, the
# Windows ones under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev googletest libbenchmark-dev
  libssl-dev libmicrohttpd-dev
  gcc-mingw-w64-x86-64-posix g++-mingw-w64-x86-64-posix
  wine wine64
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
if ((${#missing[@]})); then
  echo "== installing: ${missing[*]}"
  if [[ $(id -u) -ne 0 ]]; then
    echo "error: these packages are missing and installing them needs root: ${missing[*]}" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

presets=(${VGCR_PRESETS:-linux linux-asan windows})
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
exit $status
