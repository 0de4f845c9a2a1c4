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
echo "== outbreak: $clients clients, $logs virus logs each"
run_scenario outbreak clients virus_log -- --clients "$clients" --outbreak-logs "$logs" --register-within 5
