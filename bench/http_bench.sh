#!/usr/bin/env bash
# HTTP load on loopback with wrk: isapi-host answering a request that needs
# no pipe (requestid=206, answered "-2"), and nginx serving a fixed 2-byte
# reply in the same run (the HTTP floor of this machine). With
# "workers" as the first argument it measures instead how the pool's size
# changes throughput when every reply is signed by a service that takes
# 5 ms (bench/sign_peer).
#   bash bench/http_bench.sh [workers]
set -euo pipefail
cd "$(dirname "$0")/.."
for package in wrk nginx; do
  command -v $package >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $package >/dev/null
done
build=build/linux
[[ -x $build/Server/WebHost/isapi-host/isapi-host ]] || { cmake --preset linux >/dev/null && cmake --build --preset linux; }
host=$build/Server/WebHost/isapi-host/isapi-host
module=$build/Server/CGIClient/isapiClient/isapiClient.so
work=$(mktemp -d)
export VGCR_PIPE_DIR=$work/pipe
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true; rm -rf "$work"; }
trap cleanup EXIT
duration=${VGCR_BENCH_SECONDS:-10}

run_wrk() {  # label url
  echo "== $1"
  wrk -t2 -c32 -d"${duration}s" --latency "$2" | sed -n '/Latency/p;/50%/p;/99%/p;/Requests\/sec/p'
}

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

cat > "$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/error.log;
events { worker_connections 1024; }
http {
  access_log off;
  server { listen 127.0.0.1:18091; location / { default_type application/octet-stream; return 200 "-2"; } }
}
CONF
nginx -c "$work/nginx.conf" -p "$work" & pids+=($!)
$host --extension "$module" --listen 127.0.0.1:18090 >/dev/null & pids+=($!)
sleep 0.5
run_wrk "isapi-host, IIS mode, requestid=206" "http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll?requestid=206"
run_wrk "nginx, fixed 2-byte reply" "http://127.0.0.1:18091/"
nginx -c "$work/nginx.conf" -p "$work" -s stop 2>/dev/null || true
