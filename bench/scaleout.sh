#!/usr/bin/env bash
# Registration, heartbeat and log intake with the state on SQLite (one front
# door) beside PostgreSQL (one door, then two doors on one database), nginx's
# fixed reply first in the same run. A door is an isapi-host with the
# extension and a service of its own; with two doors wrk drives both at
# once, half the connections each, and the rates are added. The heartbeats
# come from clients the registration run made, a thousand per wrk thread.
#   VGCR_BENCH_SECONDS=8 bash bench/scaleout.sh
# VGCR_DB_CONNECTIONS: the services' --database-connections (default theirs).
cd "$(dirname "$0")/.."
source bench/lib.sh
command -v psql >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq postgresql >/dev/null

pgfile=$work/postgres.location
bash scripts/lib/pgcluster.sh start "$pgfile"
trap 'bash scripts/lib/pgcluster.sh stop "$pgfile"; cleanup' EXIT
server=$(tail -n 1 "$pgfile")
url_of() { echo "http://127.0.0.1:$((18090 + $1))/vigilcrest/cgi/isapiClient.dll"; }

doors=()
start_door() {  # n location: door n's service (data and pipes of its own) and host on 18090+n
  local n=$1 location=$2 extra=()
  mkdir -p "$work/door$n" "$pipes/door$n"
  [[ $n -gt 1 ]] && cp "$work/door1/signing-key.pem" "$work/door1/signing-cert.pem" "$work/door$n/"
  [[ -n $location ]] && extra=(--database "$location")
  [[ -n ${VGCR_DB_CONNECTIONS:-} && -n $location ]] && extra+=(--database-connections "$VGCR_DB_CONNECTIONS")
  VGCR_PIPE_DIR=$pipes/door$n $build/Server/CommandHandler/vgcr-cmdhandler --data "$work/door$n" --quiet \
    "${extra[@]}" 2>"$work/door$n.log" &
  pids+=($!) doors+=($!)
  wait_listening "$work/door$n.log"
  VGCR_PIPE_DIR=$pipes/door$n $host --extension "$module" --listen 127.0.0.1:$((18090 + n)) >/dev/null 2>&1 &
  pids+=($!) doors+=($!)
  sleep 0.5
}
stop_doors() {
  local p
  for p in "${doors[@]}"; do kill -TERM "$p" 2>/dev/null || true; done
  for p in "${doors[@]}"; do wait "$p" 2>/dev/null || true; done
  doors=()
}

rows=()
measure_doors() {  # label count kind: wrk on each of `count` doors at once
  local label=$1 count=$2 kind=$3 n total=0 p99=0 out runs=()
  for n in $(seq "$count"); do
    case $kind in
      heartbeat) args=("$(url_of "$n")" -s bench/per_client.lua -- "requestid=207&functiontype=1&uid={uid}" "$n" 1000) ;;
      registration) args=("$(url_of "$n")" -s bench/per_client.lua -- "$registration_query" "$n") ;;
      log) args=("$(url_of "$n")" -s bench/per_client.lua -- "$log_query" "$n") ;;
    esac
    connections=$((32 / count)) run_wrk "$label, door $n" "${args[@]}" >"$work/wrk$n.out" &
    runs+=($!)
  done
  wait "${runs[@]}"
  for n in $(seq "$count"); do
    out=$(cat "$work/wrk$n.out")
    echo "$out"
    total=$(awk -v t="$total" '/Requests\/sec/ {print t + $2}' <<<"$out")
    p99=$(awk -v m="$p99" '$1 == "99%" {v = $2; s = v + 0; if (v ~ /us$/) s /= 1000; else if (v ~ /ms$/) s *= 1; else if (v ~ /s$/) s *= 1000; print (s > m ? s : m)}' <<<"$out")
  done
  rows+=("$label|$total|${p99}ms")
}

start_nginx 18099
results=()
measure "nginx, fixed 2-byte reply" "http://127.0.0.1:18099/"
nginx_rate=$(cut -d'|' -f2 <<<"${results[0]}")

run_configuration() {  # name count location
  local name=$1 count=$2 location=$3 n
  for n in $(seq "$count"); do start_door "$n" "$location"; done
  for kind in registration heartbeat log; do measure_doors "$name: $kind" "$count" "$kind"; done
  stop_doors
}

run_configuration "SQLite, one door" 1 ""
for db in one two; do psql -q "$server dbname=postgres" -c "CREATE DATABASE bench_$db"; done
run_configuration "PostgreSQL, one door" 1 "$server dbname=bench_one"
rm -rf "$work"/door*
run_configuration "PostgreSQL, two doors" 2 "$server dbname=bench_two"

echo
echo "nginx: $(printf "%'.0f" "$nginx_rate")/s"
echo
echo "| Configuration: request | Requests/s | Ratio to nginx | p99 (worst door) |"
echo "|---|---|---|---|"
for row in "${rows[@]}"; do
  IFS='|' read -r label rate p99 <<<"$row"
  printf '| %s | %s | %s | %s |\n' "$label" "$(printf "%'.0f" "$rate")" \
    "$(awk -v r="$rate" -v b="$nginx_rate" 'BEGIN {printf "%.3f", r / b}')" "$p99"
done
for db in one two; do
  echo "bench_$db: $(psql -tA "$server dbname=bench_$db" -c "SELECT (SELECT COUNT(*) FROM clients) || ' clients, ' || (SELECT COUNT(*) FROM virus_log) || ' virus logs'")"
done
