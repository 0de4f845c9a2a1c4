#!/usr/bin/env bash
# The pool's queue bound under more connections than workers: heartbeats (a
# round trip through vgcr-cmdhandler's database) with isapi-host restarted
# for each VGCR_QUEUE_LIMIT; how many are answered, how many refused (503),
# and the latency.
#   bash bench/queue_bench.sh            (LIMITS="64 256 1024" CONNS="256 800")
cd "$(dirname "$0")/.."
source bench/lib.sh
start_service
url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
uid=6F9619FF-8B86-D011-B42D-00C04FC964FF
for limit in ${LIMITS:-64 256 1024}; do
  VGCR_QUEUE_LIMIT=$limit start_host
  curl -s "$url?requestid=101&uid=$uid&date=20261122&time=093000&computer=BENCH&platform=Linux&ip=10.0.0.7&program=14.0&engine=22.1&domain=W&hotfix=0&instdate=20261101&insttime=120000&release=14.0.1" >/dev/null
  for c in ${CONNS:-256 800}; do
    echo "== queue limit $limit, $c connections"
    wrk -t2 -c$c -d8s --latency "$url?requestid=207&functiontype=1&uid=$uid" | sed -n '/ 50%/p;/ 99%/p;/requests in/p;/Non-2xx/p;/Socket errors/p;/Requests\/sec/p'
  done
  kill $hostpid; wait $hostpid 2>/dev/null
done
