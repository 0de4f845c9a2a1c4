# What the HTTP benchmarks share: tools, a scratch folder cleaned up on exit,
# wrk with its summary lines, nginx with a fixed reply, peak memory.
set -euo pipefail
for tool in wrk nginx; do
  command -v $tool >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $tool >/dev/null
done
build=build/linux
[[ -x $build/Server/CommandHandler/vgcr-cmdhandler ]] || { cmake --preset linux >/dev/null && cmake --build --preset linux; }
host=$build/Server/WebHost/isapi-host/isapi-host
module=$build/Server/CGIClient/isapiClient/isapiClient.so
work=$(mktemp -d)
# The pipe sockets live in a memory file system, as under /run on a
# deployed machine: each round trip makes and removes its reply pipe's
# socket file, and on a disk file system that costs more than the rest of
# the round trip.
pipes=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
export VGCR_PIPE_DIR=$pipes/pipe
pids=()
cleanup() {
  [[ -f $work/nginx.pid ]] && nginx -c "$work/nginx.conf" -p "$work" -s stop 2>/dev/null || true
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work" "$pipes"
}
trap cleanup EXIT
duration=${VGCR_BENCH_SECONDS:-10}

run_wrk() {  # label url [wrk options...] [-- script arguments...]; $connections (default 32)
  local label=$1 url=$2 options=()
  shift 2
  while (($#)) && [[ $1 != -- ]]; do options+=("$1"); shift; done
  echo "== $label"
  wrk -t2 -c"${connections:-32}" -d"${duration}s" --latency "${options[@]}" "$url" "$@" |
    sed -n '/Latency /p;/ 50%/p;/ 90%/p;/ 99%/p;/requests in/p;/Requests\/sec/p;/Non-2xx/p;/Socket errors/p'
}

# measure: run_wrk, and keep the rate and latencies for print_table; the
# first measured is the yardstick (nginx's fixed reply).
results=()
served=0
measure() {
  local out rate p50 p99 count
  out=$(run_wrk "$@")
  echo "$out"
  rate=$(awk '/Requests\/sec/ {print $2}' <<<"$out")
  p50=$(awk '$1 == "50%" {print $2}' <<<"$out")
  p99=$(awk '$1 == "99%" {print $2}' <<<"$out")
  count=$(awk '/requests in/ {print $1}' <<<"$out")
  served=$((served + ${count:-0}))
  results+=("$1|$rate|$p50|$p99")
}

print_table() {
  local base row label rate p50 p99
  base=$(cut -d'|' -f2 <<<"${results[0]}")
  echo
  echo "| Request | Requests/s | Ratio to nginx | p50 | p99 |"
  echo "|---|---|---|---|---|"
  for row in "${results[@]}"; do
    IFS='|' read -r label rate p50 p99 <<<"$row"
    printf '| %s | %s | %s | %s | %s |\n' "$label" "$(printf "%'.0f" "$rate")" \
      "$(awk -v r="$rate" -v b="$base" 'BEGIN {printf "%.3f", r / b}')" "$p50" "$p99"
  done
  echo
}

start_nginx() {  # port: a fixed 2-byte reply, the HTTP floor of this machine
  cat > "$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/error.log;
events { worker_connections 1024; }
http {
  access_log off;
  server { listen 127.0.0.1:$1; location / { default_type application/octet-stream; return 200 "-2"; } }
}
CONF
  nginx -c "$work/nginx.conf" -p "$work"
}

nginx_yardstick() {  # nginx's fixed reply on 127.0.0.1:18099, measured for $duration s: sets $nginx_rate
  start_nginx 18099
  local out
  out=$(run_wrk "nginx, fixed 2-byte reply" http://127.0.0.1:18099/)
  echo "$out"
  nginx_rate=$(awk '/Requests\/sec/ {print $2}' <<<"$out")
}

run_scenario() {  # name tables... -- simulator options...: nginx, then the system under vgcr-agentsim,
  # the scenario's ratios and peak memory, a clean stop, and the rows each table holds
  local name=$1 tables=() agentsim=$build/Server/Tools/vgcr-agentsim/vgcr-agentsim table
  shift
  while (($#)) && [[ $1 != -- ]]; do tables+=("$1"); shift; done
  shift
  [[ -x $agentsim ]] || cmake --build --preset linux --target vgcr-agentsim
  nginx_yardstick
  start_service
  start_host
  $agentsim --url http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll --scenario "$name" \
    --json "$work/$name.json" "$@"
  scenario_ratios "$work/$name.json"
  peak_memory "isapi-host" $hostpid
  peak_memory "vgcr-cmdhandler" $service
  kill -TERM $service && wait $service 2>/dev/null || true  # a clean stop: everything queued is written
  for table in "${tables[@]}"; do
    echo "$table rows stored: $(sqlite3 "$work/data/cmdhandler.db" "SELECT COUNT(*) FROM $table" 2>/dev/null || echo '?')"
  done
}

scenario_ratios() {  # json: each scenario figure's rate as a ratio to $nginx_rate
  python3 - "$1" "$nginx_rate" <<'PY'
import json, sys
summary, base = json.load(open(sys.argv[1])), float(sys.argv[2])
for name, figure in summary.get("scenario_figures", {}).items():
    if "per_s" in figure:
        print(f"{name}: {figure['per_s']:,.0f}/s, ratio to nginx {figure['per_s'] / base:.3f}")
PY
}

start_service() {  # [options...]: vgcr-cmdhandler on a fresh database, listening when this returns
  $build/Server/CommandHandler/vgcr-cmdhandler --data "$work/data" --quiet "$@" 2>"$work/service.log" & service=$!
  pids+=($service)
  wait_listening "$work/service.log"
}

wait_listening() {  # log: until a service's log says it listens (10 s at most)
  for _ in $(seq 100); do grep -q listening "$1" 2>/dev/null && break; sleep 0.1; done
}

start_host() {  # [options...]: isapi-host with the extension on 127.0.0.1:18090 (environment as given)
  $host --extension "$module" --listen 127.0.0.1:18090 "$@" >/dev/null 2>&1 & hostpid=$!
  pids+=($hostpid)
  sleep 0.5
}

peak_memory() {  # label pid: the process's peak resident set
  echo "$1: peak RSS $(awk '/VmHWM/ {print $2, $3}' /proc/"$2"/status)"
}

resident_memory() {  # pid: the process's resident set now, kB
  awk '/VmRSS/ {print $2}' /proc/"$1"/status
}

# The requests the system benchmarks send (per_client.lua puts a uid of its
# own where {uid} stands).
bench_uid=6F9619FF-8B86-D011-B42D-00C04FC964FF
registration_query="requestid=101&uid={uid}&date=20261122&time=093000&computer=BENCH-PC&platform=Linux&ip=10.0.0.7&program=14.0&engine=22.1&domain=WORKGROUP&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1"
log_query="requestid=110&functiontype=1&uid={uid}&release=14.0.1&date=2026-11-23&time=09:30:00&login=CORP%5Cjdoe&virus=Eicar_test_file&file=eicar.com&compressedfile=&directory=C%3A%5CUsers%5Cjdoe%5CDownloads%5C&infectionsource=BENCH-PC&firstaction=2&firststatus=0&secondaction=3&secondstatus=0"

register_bench_client() {  # url: registers $bench_uid, the client that polls
  curl -s "$1?${registration_query//\{uid\}/$bench_uid}" >/dev/null
}

signing_query() {  # SA_ISR, SA_SN and SA_RN naming the service's certificate
  local cert=$work/data/signing-cert.pem issuer serial
  issuer=$(openssl x509 -in "$cert" -noout -issuer -nameopt RFC2253 | sed 's/^issuer=//')
  serial=$(openssl x509 -in "$cert" -noout -serial | sed 's/^serial=//')
  printf 'SA_ISR=%s&SA_SN=%s&SA_RN=12345' \
    "$(python3 -c 'import sys, urllib.parse; print(urllib.parse.quote(sys.argv[1], safe=""))' "$issuer")" "$serial"
}
