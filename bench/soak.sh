#!/usr/bin/env bash
# A soak of the whole system (not run by the test command): vgcr-agentsim's
# fleet for MINUTES (30), VGCR_SOAK_CLIENTS (20,000) agents polling every
# VGCR_SOAK_HEARTBEAT seconds (10) and reporting 30 logs an hour each, with
# their status and logon reports: about 2,600 requests a second, a third of
# the mixed rate of docs/performance.md's soak, so that what grows is the
# servers' state, not a queue. Each minute an
# operator changes one client's settings and so sends it fetching. Reports
# isapi-host's and vgcr-cmdhandler's memory and open descriptors every
# minute, then the simulator's table: errors and latencies by request kind.
#   bash bench/soak.sh [MINUTES]
cd "$(dirname "$0")/.."
minutes=${1:-${VGCR_SOAK_MINUTES:-30}}
[[ $minutes =~ ^[0-9]+$ && $minutes -gt 0 ]] || { echo "usage: bash bench/soak.sh [MINUTES]" >&2; exit 2; }
source bench/lib.sh
clients=${VGCR_SOAK_CLIENTS:-20000}
heartbeat=${VGCR_SOAK_HEARTBEAT:-10}
agentsim=$build/Server/Tools/vgcr-agentsim/vgcr-agentsim
[[ -x $agentsim ]] || cmake --build --preset linux --target vgcr-agentsim

start_service --metrics 127.0.0.1:18097
start_host --metrics 127.0.0.1:18098
cmdhandler=$build/Server/CommandHandler/vgcr-cmdhandler

state() {  # label: each process's resident memory, peak and open descriptors
  local label=$1 name pid
  printf '%-8s' "$label"
  for name in isapi-host vgcr-cmdhandler; do
    [[ $name == isapi-host ]] && pid=$hostpid || pid=$service
    printf '  %s RSS %s kB (peak %s kB), %s descriptors' "$name" \
      "$(awk '/VmRSS/ {print $2}' /proc/$pid/status)" "$(awk '/VmHWM/ {print $2}' /proc/$pid/status)" \
      "$(ls /proc/$pid/fd | wc -l)"
  done
  echo
}

# The operator: one registered client's manual scan settings a minute.
change_settings() {
  local uid
  uid=$(sqlite3 "$work/data/cmdhandler.db" "SELECT uid FROM clients ORDER BY random() LIMIT 1" 2>/dev/null) || return 0
  [[ -n $uid ]] || return 0
  printf '[Manual_Scan]\nScanAllFiles=%d\n' $((RANDOM % 2)) > "$work/ms.ini"
  $cmdhandler --data "$work/data" set-section "$uid" MS_CFG "$work/ms.ini" >/dev/null || true
}

url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
echo "== soak: $minutes min, $clients clients, heartbeat $heartbeat s"
state "start"
$agentsim --url "$url" --clients "$clients" --duration $((minutes * 60)) --heartbeat "$heartbeat" \
  --logs-per-hour 30 --json "$work/soak.json" > "$work/agentsim.out" & agentsim_pid=$!
pids+=($agentsim_pid)
for minute in $(seq "$minutes"); do
  sleep 60
  kill -0 $agentsim_pid 2>/dev/null || break
  change_settings
  state "${minute} min"
done
wait $agentsim_pid || echo "vgcr-agentsim exited $?"
state "end"
sed -n '/^[0-9]* clients, /,$p' "$work/agentsim.out"
# What went wrong, as the servers counted it: requests not answered by
# their handler, pipe failures, late senders, commands not done.
echo "== the servers' counters of what did not go well"
{ curl -s http://127.0.0.1:18098/metrics; curl -s http://127.0.0.1:18097/metrics; } |
  grep -E '^(vgcr_isapi_requests_total|vgcr_isapi_pipe_failures_total|vgcr_isapi_queue_full|isapi_host_connections_(refused|cut)|vgcr_cmdhandler_commands_total|vgcr_cmdhandler_late_senders)' |
  grep -vE 'result="ok"|outcome="done"| 0$' || echo "(nothing)"
[[ -s $work/soak.json ]] && python3 - "$work/soak.json" <<'PY'
import json, sys
total = json.load(open(sys.argv[1]))["total"]
print(f"errors: {total['failed']} failed, {total['transport_errors']} transport, "
      f"{total['signature_failures']} signature failures of {total['requests']} requests")
PY
