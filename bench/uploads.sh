#!/usr/bin/env bash
# File uploads (requestid 501) through isapi-host to vgcr-cmdhandler: FILES
# files of SIZE MiB from PARALLEL curl processes at a time, in IIS and
# adapter mode, beside nginx taking the same bodies for a fixed reply; prints
# the time, the rate and the processes' peak memory. Not run by the test
# command:
#   bash bench/uploads.sh [SIZE_MIB] [FILES] [PARALLEL]
source "$(dirname "$0")/lib.sh"
size=${1:-100}
files=${2:-8}
parallel=${3:-4}
uid=3F2504E0-4F89-11D3-9A0C-0305E82C3301
export VGCR_LOCAL_PATH=$work/server
export VGCR_UPLOAD_LIMIT=$(( (size << 20) + 1 ))
mkdir -p "$VGCR_LOCAL_PATH"
head -c $((size << 20)) /dev/urandom > "$work/file.bin"

upload() {  # label url: the files, so many at a time, and the time they took
  local start end answers
  start=$(date +%s.%N)
  seq "$files" | xargs -P "$parallel" -I{} curl -s -o "$work/answer.{}" \
    -F requestid=501 -F functiontype=1 -F uid=$uid -F "BinaryDataBlock=@$work/file.bin;filename=file{}.bin" "$2"
  end=$(date +%s.%N)
  answers=$(for f in "$work"/answer.*; do cat "$f"; echo; done | sort | uniq -c | tr -s ' \n' ' ')
  rm -f "$work"/answer.*
  echo "== $1: $files x $size MiB, $parallel at a time: answers [$answers]"
  awk -v s="$start" -v e="$end" -v n="$files" -v m="$size" \
    'BEGIN { printf "   %.2f s, %.0f MiB/s\n", e - s, n * m / (e - s) }'
}

# The floor: nginx reading the same bodies and answering a fixed reply.
cat > "$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/nginx.pid;
error_log $work/error.log;
events { worker_connections 1024; }
http {
  access_log off;
  client_max_body_size 0;
  client_body_temp_path $work/nginx-body;
  server { listen 127.0.0.1:18091; location / { default_type application/octet-stream; return 200 "1"; } }
}
CONF
nginx -c "$work/nginx.conf" -p "$work"
upload nginx http://127.0.0.1:18091/

# No quotas: the run stores every file (the defaults would refuse most).
$build/Server/CommandHandler/vgcr-cmdhandler --data "$work/data" --quiet --upload-client-quota 0 \
  --upload-total-quota 0 2>"$work/service.log" & service=$!
pids+=($service)
for _ in $(seq 100); do grep -q listening "$work/service.log" 2>/dev/null && break; sleep 0.1; done
for mode in iis adapter; do
  extra=()
  [[ $mode == adapter ]] && extra=(--adapter)
  $host --extension "$module" --listen 127.0.0.1:18090 --max-body $(( (size << 20) + 65536 )) "${extra[@]}" \
    >/dev/null 2>&1 & hostpid=$!
  pids+=($hostpid)
  sleep 0.5
  curl -s "http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll?requestid=101&uid=$uid&date=20261123&time=120000&computer=PC&platform=Linux&ip=10.0.0.1&program=14.0&engine=22.1&domain=CORP&hotfix=KB1&instdate=20260101&insttime=120000&release=14.0.1" >/dev/null
  upload "$mode" http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
  peak_memory "   isapi-host" $hostpid
  kill $hostpid; wait $hostpid 2>/dev/null || true
done
for _ in $(seq 150); do
  [[ $(sqlite3 "$work/data/cmdhandler.db" 'SELECT COUNT(*) FROM uploads' 2>/dev/null) == $((files * 2)) ]] && break
  sleep 0.2
done
echo "== stored: $(sqlite3 "$work/data/cmdhandler.db" 'SELECT COUNT(*) FROM uploads') uploads," \
     "$(ls "$VGCR_LOCAL_PATH" | wc -l) files left in the server folder"
peak_memory "   vgcr-cmdhandler" $service
