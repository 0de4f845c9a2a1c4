#!/usr/bin/env bash
# The Debian package, as a machine would get it: builds the `package`
# target in a build folder (default build/linux), opens the .deb in a
# scratch root and checks what it holds, its control files, its systemd
# units and its programs' libraries; then runs the installed
# vgcr-cmdhandler and isapi-host from the scratch root together (scratch
# data, pipe and server folders, a free port), sends requests through them
# and stops them. Exits non-zero with the reason on the first failure.
#
#   bash scripts/package_test.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/linux}
scratch=$(mktemp -d /tmp/vigilcrest-package.XXXXXX)
root=$scratch/root
service_pid="" host_pid=""

fail() {
  echo "package_test: FAIL: $*" >&2
  exit 1
}
stop() {  # stop PID: SIGTERM, SIGKILL if it is still there after 90 s; then its exit status
  kill -TERM "$1" 2>/dev/null || true
  local status=0
  for _ in $(seq 900); do
    [[ -r /proc/$1/stat && $(awk '{print $3}' "/proc/$1/stat" 2>/dev/null) != Z ]] || break
    sleep 0.1
  done
  kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || status=$?
  return "$status"
}
cleanup() {
  if [[ -n $host_pid ]]; then stop "$host_pid" || true; fi
  if [[ -n $service_pid ]]; then stop "$service_pid" || true; fi
  rm -rf "$scratch"
}
trap cleanup EXIT

# --- The package.
[[ -f $build/CMakeCache.txt ]] || fail "$build is not configured (cmake --preset linux)"
echo "== package_test: building the package in $build"
cmake --build "$build" --target package >"$scratch/build.log" 2>&1 ||
  { tail -n 40 "$scratch/build.log" >&2; fail "the package target failed to build"; }
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
debs=("$build"/vigilcrest-server_"$version"_*.deb)
[[ -f ${debs[0]} ]] || fail "no $build/vigilcrest-server_${version}_*.deb after the build"
deb=${debs[0]}
dpkg-deb -x "$deb" "$root"
dpkg-deb -e "$deb" "$scratch/control"

# --- What it holds: exactly these files, the docs and the default sections
# of this tree (no tests, benches or fuzz targets).
{
  printf '%s\n' etc/default/isapi-host etc/default/vgcr-cmdhandler \
    usr/bin/isapi-host usr/bin/vgcr-cmdhandler usr/bin/vgcr-guard usr/lib/vigilcrest/isapiClient.so \
    usr/lib/systemd/system/isapi-host.service usr/lib/systemd/system/vgcr-cmdhandler.service \
    usr/lib/sysusers.d/vigilcrest.conf usr/share/doc/vigilcrest/README.md
  for f in docs/*.md; do echo "usr/share/doc/vigilcrest/${f#docs/}"; done
  for f in Server/CommandHandler/defaults/*; do echo "usr/share/vigilcrest/defaults/${f##*/}"; done
} | sort >"$scratch/expected"
(cd "$root" && find . ! -type d | sed 's|^\./||' | sort) >"$scratch/held"
diff -u "$scratch/expected" "$scratch/held" >&2 || fail "the package's files differ from the expected ones (- missing, + extra)"
# The module is a library for dlopen: readable is enough (0644, as Debian
# wants libraries).
for f in usr/bin/isapi-host usr/bin/vgcr-cmdhandler usr/bin/vgcr-guard; do
  [[ -x $root/$f ]] || fail "$f is not executable"
done
[[ -r $root/usr/lib/vigilcrest/isapiClient.so ]] || fail "usr/lib/vigilcrest/isapiClient.so is not readable"

# --- Control files.
[[ $(dpkg-deb -f "$deb" Package) == vigilcrest-server ]] || fail "the package is not named vigilcrest-server"
[[ $(dpkg-deb -f "$deb" Version) == "$version" ]] || fail "the package's version is not $version"
depends=$(dpkg-deb -f "$deb" Depends)
for library in libmicrohttpd libsqlite3 libssl libjsoncpp; do
  [[ $depends == *"$library"* ]] || fail "Depends names no $library package: $depends"
done
for script in postinst prerm postrm; do
  [[ -x $scratch/control/$script ]] || fail "the maintainer script $script is missing or not executable"
  sh -n "$scratch/control/$script" || fail "the maintainer script $script does not parse"
done
[[ $(sort "$scratch/control/conffiles") == $'/etc/default/isapi-host\n/etc/default/vgcr-cmdhandler' ]] ||
  fail "conffiles does not list exactly the two /etc/default files"

# --- The units. Every /usr path they name must be in the package.
units=$root/usr/lib/systemd/system
while read -r path; do
  [[ -e $root$path ]] || fail "a unit names $path, which the package does not hold"
done < <(grep -ho '/usr/[^ ]*' "$units"/*.service | sort -u)
# systemd-analyze verify checks that ExecStart's program exists, so it
# reads a copy whose /usr paths point into the scratch root.
if command -v systemd-analyze >/dev/null; then
  mkdir "$scratch/units"
  for unit in "$units"/*.service; do sed "s|/usr/|$root/usr/|g" "$unit" >"$scratch/units/${unit##*/}"; done
  # It reports a bad setting and goes on with status 0: any word about our
  # units is a failure (what it says about the machine's own is not ours).
  report=$(systemd-analyze verify "$scratch"/units/*.service 2>&1) || fail "systemd-analyze verify: $report"
  ours=$(grep -E 'vgcr-cmdhandler|isapi-host|vigilcrest' <<<"$report" || true)
  [[ -z $ours ]] || fail "systemd-analyze verify: $ours"
else
  echo "== package_test: systemd-analyze not installed: the units are not verified"
fi

# --- The programs: their libraries, their usage.
for f in "$root"/usr/bin/* "$root"/usr/lib/vigilcrest/isapiClient.so; do
  missing=$(ldd "$f" | grep 'not found' || true)
  [[ -z $missing ]] || fail "${f#"$root"/} misses libraries: $missing"
done
for program in vgcr-cmdhandler isapi-host vgcr-guard; do
  usage=$("$root/usr/bin/$program" --help 2>&1 || true)
  [[ $usage == *"usage: $program"* ]] || fail "$program --help printed no usage: $usage"
done

# --- Both services from the scratch root, talking through a scratch pipe
# folder, with the command lines of the units and the options of the
# installed /etc/default files (the host's address last, as the last
# --listen counts).
ISAPI_HOST_OPTS="" VGCR_CMDHANDLER_OPTS=""
# shellcheck source=/dev/null
. "$root/etc/default/isapi-host"
# shellcheck source=/dev/null
. "$root/etc/default/vgcr-cmdhandler"
read -ra host_options <<<"$ISAPI_HOST_OPTS"
read -ra service_options <<<"$VGCR_CMDHANDLER_OPTS"
mkdir -m 700 "$scratch/pipe" "$scratch/server"
export VGCR_PIPE_DIR=$scratch/pipe VGCR_LOCAL_PATH=$scratch/server
defaults=$root/usr/share/vigilcrest/defaults
"$root/usr/bin/vgcr-cmdhandler" --data "$scratch/data" --defaults "$defaults" "${service_options[@]}" \
  >"$scratch/cmdhandler.log" 2>&1 &
service_pid=$!
wait_for() {  # wait_for TEXT LOG PID
  for _ in $(seq 100); do
    grep -q "$1" "$2" && return 0
    kill -0 "$3" 2>/dev/null || { cat "$2" >&2; fail "${2##*/}: the program ended before \"$1\""; }
    sleep 0.1
  done
  cat "$2" >&2
  fail "${2##*/}: no \"$1\" within 10 s"
}
wait_for listening "$scratch/cmdhandler.log" "$service_pid"
sections=$(find "$defaults" -name '*.ini' | wc -l)
grep -q " $sections default sections" "$scratch/cmdhandler.log" ||
  fail "the service did not read the $sections installed default sections: $(head -n 1 "$scratch/cmdhandler.log")"

port=""
for _ in $(seq 20); do
  candidate=$((20000 + RANDOM % 30000))
  if ! (exec 3<>"/dev/tcp/127.0.0.1/$candidate") 2>/dev/null; then port=$candidate; break; fi
done
[[ -n $port ]] || fail "no free port found"
"$root/usr/bin/isapi-host" --extension "$root/usr/lib/vigilcrest/isapiClient.so" "${host_options[@]}" \
  --listen "127.0.0.1:$port" >"$scratch/host.log" 2>&1 &
host_pid=$!
wait_for serving "$scratch/host.log" "$host_pid"

get() {  # get QUERY: the reply's body
  local url="/vigilcrest/cgi/isapiClient.dll?$1"
  if command -v curl >/dev/null; then
    curl -sS -m 10 "http://127.0.0.1:$port$url"
  else
    local reply
    exec 3<>"/dev/tcp/127.0.0.1/$port"
    printf 'GET %s HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n' "$url" >&3
    reply=$(timeout 10 cat <&3)
    exec 3<&-
    printf '%s' "${reply#*$'\r\n\r\n'}"
  fi
}
# A request the extension answers alone ...
reply=$(get 'requestid=206') || fail "no reply to requestid=206"
[[ $reply == -2 ]] || fail "requestid=206 answered \"$reply\", not -2"
# ... and a heartbeat, a round trip through the service's pipes.
reply=$(get 'requestid=207&functiontype=1&uid=6F9619FF-8B86-D011-B42D-00C04FC964FF') ||
  fail "no reply to the heartbeat"
[[ $reply == "[Polling_Response]"* ]] || fail "the heartbeat answered \"$reply\""
grep -q CMDHLV2_HEARTBEAT_NOTIFY "$scratch/cmdhandler.log" || fail "the service logged no heartbeat"

pid=$host_pid host_pid=""
stop "$pid" || { cat "$scratch/host.log" >&2; fail "isapi-host did not stop cleanly on SIGTERM"; }
pid=$service_pid service_pid=""
stop "$pid" || { cat "$scratch/cmdhandler.log" >&2; fail "vgcr-cmdhandler did not stop cleanly on SIGTERM"; }
echo "== package_test: ${deb##*/} passed"
