#!/usr/bin/env bash
# A soak of the whole system (not run by the test command): wrk sends the mix
# of bench/mix.lua (registrations, heartbeats, settings fetches, logs) for
# VGCR_SOAK_MINUTES (30) with VGCR_SOAK_CONNECTIONS (16, about 80% of the
# rate that 32 connections reach on this machine; docs/performance.md), and
# reports the errors, the latency percentiles, and isapi-host's memory and
# open descriptors at the start and at the end.
#   bash bench/soak.sh
cd "$(dirname "$0")/.."
source bench/lib.sh
minutes=${VGCR_SOAK_MINUTES:-30}
connections=${VGCR_SOAK_CONNECTIONS:-16}

start_service
start_host

state() {  # label: isapi-host's resident memory and open descriptors
  echo "$1: isapi-host RSS $(awk '/VmRSS/ {print $2, $3}' /proc/$hostpid/status)," \
       "peak $(awk '/VmHWM/ {print $2, $3}' /proc/$hostpid/status)," \
       "descriptors $(ls /proc/$hostpid/fd | wc -l)"
}

url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
# A minute of warming up, so that the start is the steady state.
wrk -t2 -c"$connections" -d60s -s bench/mix.lua "$url" >/dev/null
state "start"
echo "== soak: $minutes min, $connections connections"
wrk -t2 -c"$connections" -d"${minutes}m" --latency -s bench/mix.lua "$url" |
  sed -n '/ 50%/p;/ 90%/p;/ 99%/p;/requests in/p;/Socket errors/p;/Non-2xx/p;/Requests\/sec/p;/^errors/p'
state "end"
