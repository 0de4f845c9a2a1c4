#!/usr/bin/env bash
# The whole system under wrk on loopback: isapi-host (IIS mode) with the
# extension, talking to vgcr-cmdhandler and its database. A registration
# (one way: a new client row per request), a log report (one way: a virus
# log row per request, each from a client of its own), a heartbeat (a round trip
# through the database) and two settings fetches, beside nginx's fixed
# reply and the bare socket floors of bench_channel, in the same run; then
# the peak memory of the host and the service.
#   bash bench/system_bench.sh
cd "$(dirname "$0")/.."
source bench/lib.sh

start_nginx 18091
start_service
start_host

url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
uid=6F9619FF-8B86-D011-B42D-00C04FC964FF
curl -s "$url?requestid=101&uid=$uid&date=20261122&time=093000&computer=BENCH&platform=Linux&ip=10.0.0.7&program=14.0&engine=22.1&domain=W&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1" >/dev/null
run_wrk "registration (one way), a new client per request" "$url" -s bench/per_client.lua -- \
  "requestid=101&uid={uid}&date=20261122&time=093000&computer=BENCH-PC&platform=Linux&ip=10.0.0.7&program=14.0&engine=22.1&domain=WORKGROUP&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1"
run_wrk "log report 110/1 (one way), a virus log per request" "$url" -s bench/per_client.lua -- \
  "requestid=110&functiontype=1&uid={uid}&release=14.0.1&date=2026-11-23&time=09:30:00&login=CORP%5Cjdoe&virus=Eicar_test_file&file=eicar.com&compressedfile=&directory=C%3A%5CUsers%5Cjdoe%5CDownloads%5C&infectionsource=BENCH-PC&firstaction=2&firststatus=0&secondaction=3&secondstatus=0"
run_wrk "heartbeat (round trip through the database)" "$url?requestid=207&functiontype=1&uid=$uid"
run_wrk "settings fetch 202/1 (text round trip, one-way reset)" "$url?requestid=202&functiontype=1&uid=$uid&release=14.0"
run_wrk "settings-file fetch 201/1 (existence check, text round trip, reset)" "$url?requestid=201&functiontype=1&uid=$uid&release=14.0"
run_wrk "nginx, fixed 2-byte reply" "http://127.0.0.1:18091/"
echo "== bare socket round trips (bench_channel floors)"
$build/bench/bench_channel --benchmark_filter=Floor --benchmark_min_time=1 2>/dev/null | grep BM_
peak_memory "isapi-host" $hostpid
peak_memory "vgcr-cmdhandler" $service
kill -TERM $service && wait $service 2>/dev/null || true  # a clean stop: every queued log is written
for table in clients virus_log; do
  echo "$table rows stored: $(sqlite3 "$work/data/cmdhandler.db" "SELECT COUNT(*) FROM $table" 2>/dev/null || echo '?')"
done
