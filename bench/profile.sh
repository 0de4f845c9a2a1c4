#!/usr/bin/env bash
# Where a request's time goes: one request kind under wrk (as in
# system_bench.sh) while perf samples isapi-host and vgcr-cmdhandler; then
# each process's CPU time and its hottest functions (self time).
#   bash bench/profile.sh heartbeat|signed|registration|log|settings|no-pipe [seconds]
# Needs perf (Debian's linux-perf) and a kernel that lets root sample.
cd "$(dirname "$0")/.."
source bench/lib.sh
command -v perf >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq linux-perf >/dev/null

kind=${1:-heartbeat}
seconds=${2:-5}
start_service
start_host
url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
register_bench_client "$url"
args=()
case $kind in
  heartbeat) args=("$url?requestid=207&functiontype=1&uid=$bench_uid") ;;
  signed) args=("$url?requestid=207&functiontype=1&uid=$bench_uid&$(signing_query)") ;;
  settings) args=("$url?requestid=202&functiontype=1&uid=$bench_uid&release=14.0") ;;
  no-pipe) args=("$url?requestid=206") ;;
  registration) args=("$url" -s bench/per_client.lua -- "$registration_query") ;;
  log) args=("$url" -s bench/per_client.lua -- "$log_query") ;;
  *) echo "unknown request kind: $kind" >&2; exit 2 ;;
esac

ticks() { awk '{print $14 + $15}' /proc/"$1"/stat; }
host0=$(ticks $hostpid) service0=$(ticks $service)
perf record -q -F 1999 -g -o "$work/perf.data" -p "$hostpid,$service" -- sleep "$seconds" 2>/dev/null &
perfpid=$!
duration=$seconds run_wrk "$kind" "${args[@]}"
wait $perfpid || true
hz=$(getconf CLK_TCK)
echo "CPU over the run: isapi-host $(( ($(ticks $hostpid) - host0) * 1000 / hz )) ms," \
  "vgcr-cmdhandler $(( ($(ticks $service) - service0) * 1000 / hz )) ms (of $((seconds * 2000)) ms on 2 cores)"
report() {  # label pid
  echo "== $1: hottest functions (self time, share of all samples)"
  perf report -q -i "$work/perf.data" --pid "$2" --no-children --sort symbol --percent-limit 0.7 \
    --stdio -g none 2>/dev/null | sed "/^$/d; s/  *$//" | cut -c1-110 | head -30
}
cp "$work/perf.data" "${VGCR_PERF_KEEP:-/dev/null}" 2>/dev/null || true
report isapi-host $hostpid
report vgcr-cmdhandler $service
