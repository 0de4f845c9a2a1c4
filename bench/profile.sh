#!/usr/bin/env bash
# Where a request's time goes. One request kind under wrk (as in
# system_bench.sh), twice: first alone, for each process's CPU time per
# request (from /proc/<pid>/stat); then while perf samples isapi-host and
# vgcr-cmdhandler with call graphs, for the functions that time is spent in
# (inclusive: a function with what it calls). The kind "nginx" measures
# nginx's fixed reply the same way, the floor.
#   bash bench/profile.sh heartbeat|signed|registration|log|settings|no-pipe|nginx [seconds]
# Needs perf (Debian's linux-perf) and a kernel that lets root sample.
# VGCR_PERF_KEEP=FILE keeps the samples for perf report; VGCR_SIGNING_KEY=rsa gives
# the service an RSA key (default: ECDSA).
cd "$(dirname "$0")/.."
source bench/lib.sh
command -v perf >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq linux-perf >/dev/null

kind=${1:-heartbeat}
duration=${2:-5}
url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
if [[ $kind == nginx ]]; then
  start_nginx 18091
  processes=("nginx:$(pgrep -f "nginx: worker process" | head -1)")
  args=("http://127.0.0.1:18091/")
else
  start_service --signing-key "${VGCR_SIGNING_KEY:-ecdsa}"
  start_host
  processes=("isapi-host:$hostpid" "vgcr-cmdhandler:$service")
  register_bench_client "$url"
fi
case $kind in
  nginx) ;;
  heartbeat) args=("$url?requestid=207&functiontype=1&uid=$bench_uid") ;;
  signed) args=("$url?requestid=207&functiontype=1&uid=$bench_uid&$(signing_query)") ;;
  settings) args=("$url?requestid=202&functiontype=1&uid=$bench_uid&release=14.0") ;;
  no-pipe) args=("$url?requestid=206") ;;
  registration) args=("$url" -s bench/per_client.lua -- "$registration_query") ;;
  log) args=("$url" -s bench/per_client.lua -- "$log_query") ;;
  *) echo "unknown request kind: $kind" >&2; exit 2 ;;
esac

ticks() { awk '{print $14 + $15}' /proc/"$1"/stat; }
before=()
for p in "${processes[@]}"; do before+=("$(ticks "${p#*:}")"); done
out=$(run_wrk "$kind" "${args[@]}")
echo "$out"
requests=$(awk '/requests in/ {print $1}' <<<"$out")
hz=$(getconf CLK_TCK)
i=0
for p in "${processes[@]}"; do
  spent=$(( ($(ticks "${p#*:}") - before[i]) * 1000000 / hz ))
  echo "${p%%:*}: $((spent / 1000)) ms of CPU, $((spent / requests)) µs per request"
  i=$((i + 1))
done
[[ $kind == nginx ]] && exit 0

perf record -q -F 499 --call-graph dwarf,16384 -o "$work/perf.data" -p "$hostpid,$service" -- sleep "$duration" \
  2>/dev/null &
perfpid=$!
run_wrk "$kind, sampled" "${args[@]}" >/dev/null
wait $perfpid || true
cp "$work/perf.data" "${VGCR_PERF_KEEP:-/dev/null}" 2>/dev/null || true
report() {  # label pid
  echo "== $1: where the time goes (inclusive, share of the process's samples)"
  perf report -q -i "$work/perf.data" --pid "$2" --children --percentage relative --sort symbol --percent-limit 4 --stdio -g none \
    2>/dev/null | grep -v 'inlined\|\[k\]\|0x0000\|clone3\|start_thread' | sed 's/  *$//' | cut -c1-110 | head -25
}
report isapi-host $hostpid
report vgcr-cmdhandler $service
