#!/usr/bin/env bash
# The whole system under wrk on loopback: isapi-host (IIS mode) with the
# extension, talking to vgcr-cmdhandler and its database, beside nginx's
# fixed reply in the same run. Prints each run's wrk summary, then one table
# of rates as ratios to nginx's, then the memory and the rows stored.
#   VGCR_BENCH_SECONDS=8 bash bench/system_bench.sh
# VGCR_SIGNING_KEY=rsa makes the service's key an RSA one (default: ECDSA).
cd "$(dirname "$0")/.."
source bench/lib.sh

start_nginx 18091
start_service --signing-key "${VGCR_SIGNING_KEY:-ecdsa}"
start_host
url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
register_bench_client "$url"
heartbeat="$url?requestid=207&functiontype=1&uid=$bench_uid"

measure "nginx, fixed 2-byte reply" "http://127.0.0.1:18091/"
measure "no pipe (requestid=206, answered -2)" "$url?requestid=206"
measure "registration (101, one way, a new client each)" "$url" -s bench/per_client.lua -- "$registration_query"
measure "log report (110/1, one way, a new virus log each)" "$url" -s bench/per_client.lua -- "$log_query"
measure "heartbeat (207, round trip through the database)" "$heartbeat"
measure "signed heartbeat (207 with SA_ISR, SA_SN, SA_RN)" "$heartbeat&$(signing_query)"
measure "settings fetch (202/1, round trip, one-way reset)" "$url?requestid=202&functiontype=1&uid=$bench_uid&release=14.0"
measure "settings-file fetch (201/1, two round trips, reset)" "$url?requestid=201&functiontype=1&uid=$bench_uid&release=14.0"
after_runs=$(resident_memory $hostpid)
connections=256 measure "no pipe at 256 connections" "$url?requestid=206"
print_table

peak_memory "isapi-host" $hostpid
echo "isapi-host: resident $after_runs kB after the 32-connection runs, $(resident_memory $hostpid) kB at the end;" \
  "$served requests served in all"
peak_memory "vgcr-cmdhandler" $service
kill -TERM $service && wait $service 2>/dev/null || true  # a clean stop: every queued log is written
tail -n 3 "$work/service.log" | grep -i 'commit' || true
for table in clients virus_log; do
  echo "$table rows stored: $(sqlite3 "$work/data/cmdhandler.db" "SELECT COUNT(*) FROM $table" 2>/dev/null || echo '?')"
done
