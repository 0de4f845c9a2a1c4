#!/usr/bin/env bash
# An outbreak through the whole system (isapi-host in IIS mode, the
# extension, vgcr-cmdhandler): vgcr-agentsim's clients register, then every
# one reports its virus logs at once, as fast as 64 connections take them.
# Prints the simulator's table (the burst's length and rate, the latencies),
# then the rows the service stored.
#   bash bench/outbreak.sh [CLIENTS [LOGS]]     1,000 clients, 5 logs each
cd "$(dirname "$0")/.."
source bench/lib.sh
clients=${1:-1000}
logs=${2:-5}
agentsim=$build/Server/Tools/vgcr-agentsim/vgcr-agentsim
[[ -x $agentsim ]] || cmake --build --preset linux --target vgcr-agentsim

nginx_yardstick
start_service
start_host
echo "== outbreak: $clients clients, $logs virus logs each"
$agentsim --url http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll --clients "$clients" \
  --scenario outbreak --outbreak-logs "$logs" --register-within 5 --json "$work/outbreak.json"
scenario_ratios "$work/outbreak.json"
peak_memory "isapi-host" $hostpid
peak_memory "vgcr-cmdhandler" $service
kill -TERM $service && wait $service 2>/dev/null || true  # a clean stop: every queued log is written
for table in clients virus_log; do
  echo "$table rows stored: $(sqlite3 "$work/data/cmdhandler.db" "SELECT COUNT(*) FROM $table" 2>/dev/null || echo '?')"
done
