#!/usr/bin/env bash
# Does a request cost more as the database grows? Registration, heartbeat
# and log intake (as in system_bench.sh) with the database holding 1,000,
# 100,000 and 1,000,000 clients, then log intake with 10 million virus log
# rows stored beside an empty log table; nginx's fixed reply in the same run.
#   bash bench/growth.sh                   # VGCR_BENCH_SECONDS=8 each
#   VGCR_GROWTH_CLIENTS="1000 100000" VGCR_GROWTH_LOGS=1000000 bash bench/growth.sh
# The rows are made with the sqlite3 shell while the service is stopped:
# each client has its registration row and its polling row, each log row a
# client of its own among a million, spread over the last 90 days.
cd "$(dirname "$0")/.."
source bench/lib.sh
command -v sqlite3 >/dev/null || DEBIAN_FRONTEND=noninteractive apt-get install -y -qq sqlite3 >/dev/null
db=$work/data/cmdhandler.db

stop_system() {  # a clean stop of whichever of the two runs
  local p
  for p in ${service:-} ${hostpid:-}; do kill -TERM "$p" 2>/dev/null || true; done
  for p in ${service:-} ${hostpid:-}; do wait "$p" 2>/dev/null || true; done
  service='' hostpid=''
}

# Clients numbered from $1 to $2 (uids of the form F0000000-0000-4000-8000-<number>).
add_clients() {
  sqlite3 "$db" <<SQL
PRAGMA journal_mode=WAL;
BEGIN;
INSERT INTO clients (uid, first_seen, last_seen, computer, platform, ip, program, engine, domain, release)
  SELECT printf('F0000000-0000-4000-8000-%012X', value), '2026-11-01 08:00:00.000', '2026-11-23 08:00:00.000',
         printf('PC-%07d', value), 'Windows', printf('10.%d.%d.%d', value / 65536 % 256, value / 256 % 256, value % 256),
         '14.0', '22.1', 'CORP', '14.0.1'
  FROM generate_series($1, $2);
INSERT INTO polling_state (uid, last_poll, last_request_type)
  SELECT printf('F0000000-0000-4000-8000-%012X', value), '2026-11-23 08:00:00.000', 1 FROM generate_series($1, $2);
COMMIT;
SQL
}

add_virus_logs() {  # count
  sqlite3 "$db" <<SQL
PRAGMA journal_mode=WAL;
BEGIN;
INSERT INTO virus_log (received, uid, release, record_type, "date", "time", login, virus, file, directory,
                       infectionsource, firstaction, firststatus, secondaction, secondstatus)
  SELECT strftime('%Y-%m-%d %H:%M:%f', 'now', printf('-%d seconds', value % 7776000)),
         printf('F0000000-0000-4000-8000-%012X', value % 1000000 + 1), '14.0.1', 1, '2026-11-23', '09:30:00',
         'CORP\\jdoe', 'Eicar_test_file', 'eicar.com', 'C:\\Users\\jdoe\\Downloads\\', 'PC', 2, 0, 3, 0
  FROM generate_series(1, $1);
COMMIT;
SQL
}

run_kinds() {  # label
  start_service
  start_host
  register_bench_client "$url"
  measure "$1: registration" "$url" -s bench/per_client.lua -- "$registration_query"
  measure "$1: heartbeat" "$url?requestid=207&functiontype=1&uid=$bench_uid"
  measure "$1: log report" "$url" -s bench/per_client.lua -- "$log_query"
  stop_system
}

url=http://127.0.0.1:18090/vigilcrest/cgi/isapiClient.dll
start_nginx 18091
measure "nginx, fixed 2-byte reply" "http://127.0.0.1:18091/"
start_service  # makes the tables
stop_system
have=0
for clients in ${VGCR_GROWTH_CLIENTS:-1000 100000 1000000}; do
  echo "== adding clients $((have + 1)) to $clients"
  add_clients $((have + 1)) "$clients"
  have=$clients
  run_kinds "$clients clients"
done
logs=${VGCR_GROWTH_LOGS:-10000000}
echo "== adding $logs virus log rows"
add_virus_logs "$logs"
echo "virus_log rows: $(sqlite3 "$db" 'SELECT COUNT(*) FROM virus_log'), database $(du -h "$db" | cut -f1)"
start_service --log-max-rows 0  # no retention pass deleting rows during the run
start_host
measure "$(sqlite3 "$db" "SELECT COUNT(*) FROM virus_log") virus logs stored: log report" "$url" -s bench/per_client.lua -- "$log_query"
stop_system
print_table
