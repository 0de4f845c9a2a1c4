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
echo "== storm: $clients clients registering within $within s"
run_scenario storm clients -- --clients "$clients" --register-within "$within"
