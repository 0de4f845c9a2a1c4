#!/usr/bin/env bash
# jsoncpp for the Windows cross-build: Debian's own source package libjsoncpp,
# built with our mingw-w64 toolchain as a static library into
# build/third_party/jsoncpp-mingw (include/, lib/libjsoncpp.a), the prefix the
# windows preset reads through VGCR_JSONCPP_MINGW_PREFIX. Once that prefix is
# there, a run does nothing.
#
# The source comes through a private apt configuration (a deb-src list made
# from the machine's Debian mirror, and private state and cache folders), so
# /etc/apt and the system's package lists are left as they are.
set -euo pipefail
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
third_party=$repo/build/third_party
prefix=$third_party/jsoncpp-mingw
work=$third_party/jsoncpp-mingw.work

have_prefix() { [[ -f $prefix/lib/libjsoncpp.a && -f $prefix/include/json/json.h ]]; }
have_prefix && exit 0

mkdir -p "$third_party"
exec 9>"$third_party/.jsoncpp-mingw.lock"
flock 9
have_prefix && exit 0 # another run built it while this one waited

source "$repo/scripts/lib/packages.sh"
ensure_packages dpkg-dev cmake ninja-build g++-mingw-w64-x86-64-posix

# deb-src lines for the Debian mirror the machine already uses: entries whose
# address ends in /debian, from sources.list (one-line form) and from
# sources.list.d/*.sources (deb822, Debian 12's form), with their suites,
# components and keyring.
debian_mirror_sources() {
  local list
  for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [[ -f $list ]] || continue
    sed -nE 's,^[[:space:]]*deb[[:space:]]+((\[[^]]*\][[:space:]]+)?[a-z]+://[^[:space:]]*/debian/?[[:space:]].*),deb-src \1,p' "$list"
  done
  for list in /etc/apt/sources.list.d/*.sources; do
    [[ -f $list ]] || continue
    awk '
      function flush(   n, m, u, s, i, j, opt) {
        if (types ~ /(^| )deb( |$)/ && enabled != "no") {
          opt = keyring ~ /^\// ? "[signed-by=" keyring "] " : ""
          n = split(uris, u, " "); m = split(suites, s, " ")
          for (i = 1; i <= n; i++)
            if (u[i] ~ /\/debian\/?$/)
              for (j = 1; j <= m; j++) print "deb-src " opt u[i] " " s[j] " " components
        }
        types = uris = suites = components = keyring = enabled = ""
      }
      /^[[:space:]]*#/ { next }
      /^[[:space:]]*$/ { flush(); next }
      /^[^[:space:]]/ {
        key = tolower(substr($0, 1, index($0, ":") - 1))
        value = substr($0, index($0, ":") + 1); gsub(/^[[:space:]]+|[[:space:]]+$/, "", value)
        if (key == "types") types = value
        else if (key == "uris") uris = value
        else if (key == "suites") suites = value
        else if (key == "components") components = value
        else if (key == "signed-by") keyring = value
        else if (key == "enabled") enabled = tolower(value)
      }
      END { flush() }' "$list"
  done
}

# logged COMMAND...: its output goes to $work/log, shown only if it fails.
logged() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; return 1; }; }

rm -rf "$work"
mkdir -p "$work/apt/state/lists/partial" "$work/apt/cache/archives/partial" "$work/apt/sources.list.d" "$work/src"
debian_mirror_sources >"$work/apt/sources.list"
if [[ ! -s $work/apt/sources.list ]]; then
  echo "error: no Debian mirror (an address ending in /debian) in /etc/apt/sources.list or /etc/apt/sources.list.d/*.sources" >&2
  exit 1
fi
apt_options=(
  -o Dir::State="$work/apt/state"
  -o Dir::Cache="$work/apt/cache"
  -o Dir::Etc::sourcelist="$work/apt/sources.list"
  -o Dir::Etc::sourceparts="$work/apt/sources.list.d"
  # The download folders are ours; apt's unprivileged download user need
  # not be able to reach them.
  -o APT::Sandbox::User="$(id -un)"
)
echo "== jsoncpp for mingw: fetching Debian's source package libjsoncpp"
apt-get "${apt_options[@]}" -qq update
(cd "$work/src" && apt-get "${apt_options[@]}" -qq source --download-only libjsoncpp >/dev/null)
dsc=$(ls "$work"/src/libjsoncpp_*.dsc)
logged dpkg-source --no-check -x "$dsc" "$work/src/libjsoncpp"

echo "== jsoncpp for mingw: building $(basename "$dsc" .dsc) (static)"
logged cmake -S "$work/src/libjsoncpp" -B "$work/build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/mingw-w64-x86_64.cmake" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$work/prefix" \
  -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_OBJECT_LIBS=OFF \
  -DJSONCPP_WITH_TESTS=OFF -DJSONCPP_WITH_POST_BUILD_UNITTEST=OFF -DJSONCPP_WITH_EXAMPLE=OFF \
  -DJSONCPP_WITH_PKGCONFIG_SUPPORT=OFF -DJSONCPP_WITH_CMAKE_PACKAGE=OFF
logged cmake --build "$work/build" -j1
logged cmake --install "$work/build"
basename "$dsc" .dsc >"$work/prefix/SOURCE"

# Only a complete prefix appears under its name.
rm -rf "$prefix"
mv "$work/prefix" "$prefix"
rm -rf "$work"
echo "== jsoncpp for mingw: $prefix"
