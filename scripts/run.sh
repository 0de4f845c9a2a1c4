#!/usr/bin/env bash
# The whole server on this machine: builds the programs, starts the
# command-handler service (data in ./var) and isapi-host in IIS mode on
# 127.0.0.1:8080 with the extension, prints requests to try, and stops both
# cleanly on Ctrl-C. On a Debian 12 machine, as root, it installs what is
# missing first.
set -euo pipefail
cd "$(dirname "$0")/.."

source scripts/lib/packages.sh
ensure_packages cmake ninja-build g++ pkg-config libssl-dev libmicrohttpd-dev libsqlite3-dev libjsoncpp-dev sqlite3 curl

listen=127.0.0.1:8080
if (exec 3<>/dev/tcp/127.0.0.1/8080) 2>/dev/null; then
  echo "error: something already listens on $listen; stop it first" >&2
  exit 1
fi

build=build/run
echo "== building (${build})"
mkdir -p "$build"
if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF &&
       cmake --build "$build" --target vgcr-cmdhandler isapi-host isapiClient; } >"$build/build.log" 2>&1; then
  cat "$build/build.log" >&2
  echo "error: the build failed (log above, also in $build/build.log)" >&2
  exit 1
fi

mkdir -p var
service_log=var/cmdhandler.log
: >"$service_log"
"$build/Server/CommandHandler/vgcr-cmdhandler" --data var >>"$service_log" 2>&1 &
service=$!
host=""
tail_pid=""
stop() {
  trap - INT TERM EXIT
  echo
  echo "== stopping"
  [[ -n $host ]] && kill -TERM "$host" 2>/dev/null && wait "$host" 2>/dev/null || true
  kill -TERM "$service" 2>/dev/null && wait "$service" 2>/dev/null || true
  sleep 0.2
  [[ -n $tail_pid ]] && kill "$tail_pid" 2>/dev/null || true
  echo "== stopped; the database stays in var/cmdhandler.db"
  exit 0
}
trap stop INT TERM EXIT

for _ in $(seq 100); do
  grep -q listening "$service_log" && break
  kill -0 "$service" 2>/dev/null || { cat "$service_log" >&2; exit 1; }
  sleep 0.1
done
tail -n +1 -f "$service_log" &
tail_pid=$!

"$build/Server/WebHost/isapi-host/isapi-host" --extension "$build/Server/CGIClient/isapiClient/isapiClient.so" \
  --listen "$listen" &
host=$!
for _ in $(seq 100); do
  (exec 3<>/dev/tcp/127.0.0.1/8080) 2>/dev/null && break
  kill -0 "$host" 2>/dev/null || exit 1
  sleep 0.1
done

url="http://$listen/vigilcrest/cgi/isapiClient.dll"
uid=6F9619FF-8B86-D011-B42D-00C04FC964FF
cat <<TRY

== ready. In another terminal, register a client, poll, and read its row back:

curl '$url?requestid=101&uid=$uid&date=20261122&time=093000&computer=MY-PC&platform=Linux&ip=10.0.0.7&program=14.0&engine=22.1&domain=WORKGROUP&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1'
curl '$url?requestid=207&functiontype=1&uid=$uid'
sqlite3 -line $(pwd)/var/cmdhandler.db "SELECT uid, computer, ip, release, first_seen, last_seen FROM clients"

Report a virus log and read it back:

curl '$url?requestid=110&functiontype=1&uid=$uid&release=14.0.1&date=2026-11-23&time=09:30:00&virus=Eicar_test_file&file=eicar.com&firstaction=2'
$build/Server/CommandHandler/vgcr-cmdhandler --data var export-logs virus_log

A signed reply: add the certificate's name (vgcr-cmdhandler --print-identity --data var)
as SA_ISR, SA_SN and a number as SA_RN; README.md shows how.
Ctrl-C stops both.

TRY
wait "$host"
