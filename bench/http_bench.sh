#!/usr/bin/env bash
# HTTP load on loopback with wrk: isapi-host answering a request that needs
# no pipe (requestid=206, answered "-2"), and nginx serving a fixed 2-byte
# reply in the same run (the HTTP floor of this machine). With
# "workers" as the first argument it measures instead how the pool's size
# changes throughput when every reply is signed by a service that takes
# 5 ms (bench/sign_peer).
#   bash bench/http_bench.sh [workers]
cd "$(dirname "$0")/.."
source bench/lib.sh

if [[ ${1:-} == workers ]]; then
  $build/bench/sign_peer 5 >/dev/null & pids+=($!)
  sleep 0.5
  for workers in 2 4 8 16 32; do
    VGCR_WORKERS=$workers $host --extension "$module" --listen 127.0.0.1:18090 >/dev/null & hp=$!
    sleep 0.5
    run_wrk "workers=$workers (signed, 5 ms service)" \
      "http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll?requestid=206&SA_ISR=CN%3Dx&SA_SN=01&SA_RN=1"
    kill $hp; wait $hp 2>/dev/null || true
  done
  exit 0
fi

start_nginx 18091
$host --extension "$module" --listen 127.0.0.1:18090 >/dev/null & pids+=($!)
sleep 0.5
run_wrk "isapi-host, IIS mode, requestid=206" "http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll?requestid=206"
run_wrk "nginx, fixed 2-byte reply" "http://127.0.0.1:18091/"
