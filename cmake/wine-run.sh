#!/usr/bin/env bash
# Runs a Windows program under Wine in the build folder's private prefix.
# ctest calls it from the build folder (or a sub-folder of it); the prefix is
# created on first use and reused after that.
set -euo pipefail
build_root=${VGCR_WINE_BUILD_ROOT:-$PWD}
while [[ ! -f "$build_root/CMakeCache.txt" && "$build_root" != / ]]; do
  build_root=$(dirname "$build_root")
done
export WINEPREFIX=${WINEPREFIX:-$build_root/wineprefix}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
if [[ ! -f "$WINEPREFIX/system.reg" ]]; then
  mkdir -p "$WINEPREFIX"
  (flock 9; [[ -f "$WINEPREFIX/system.reg" ]] || wineboot --init >/dev/null 2>&1 || true) 9>"$build_root/.wineprefix.lock"
fi
exec wine "$@"
