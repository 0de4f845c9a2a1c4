#!/usr/bin/env bash
# The restart storm through the whole system (isapi-host in IIS mode, the
# extension, vgcr-cmdhandler): after an outage every agent comes back at
# once; vgcr-agentsim's clients all register within a few seconds and poll
# once. Prints the simulator's table (registrations per second, the
# latencies of both), then the rows the service stored.
#   bash bench/storm.sh [CLIENTS [SECONDS]]     10,000 clients within 10 s
cd "$(dirname "$0")/.."
source bench/lib.sh
clients=${1:-10000}
within=${2:-10}
agentsim=$build/Server/Tools/vgcr-agentsim/vgcr-agentsim
[[ -x $agentsim ]] || cmake --build --preset linux --target vgcr-agentsim

nginx_yardstick
start_service
start_host
echo "== storm: $clients clients registering within $within s"
$agentsim --url http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll --clients "$clients" \
  --scenario storm --register-within "$within" --json "$work/storm.json"
scenario_ratios "$work/storm.json"
peak_memory "isapi-host" $hostpid
peak_memory "vgcr-cmdhandler" $service
kill -TERM $service && wait $service 2>/dev/null || true  # a clean stop: every registration is written
echo "clients rows stored: $(sqlite3 "$work/data/cmdhandler.db" "SELECT COUNT(*) FROM clients" 2>/dev/null || echo '?')"
