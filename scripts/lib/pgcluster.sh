#!/usr/bin/env bash
# A throw-away PostgreSQL server for the tests and the benchmarks.
#
#   pgcluster.sh start FILE [SETTING=VALUE ...]   make and start one; FILE gets its
#                                                  location (a libpq connection string
#                                                  without dbname)
#   pgcluster.sh stop FILE                         stop it and remove its folder
#   pgcluster.sh pause FILE / resume FILE          stop it for a while, keeping its data
#
# The cluster lives in a folder of its own under /tmp, listens on 127.0.0.1 on
# a free port and on a socket in that folder, and trusts local connections
# (user vgcr). initdb refuses to run as root: as root, the server runs as
# nobody. Needs Debian's postgresql (its programs are not on PATH).
set -euo pipefail

command=${1:?usage: pgcluster.sh start|stop|pause|resume FILE}
file=${2:?usage: pgcluster.sh start|stop|pause|resume FILE}
shift 2

bindir=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)
if [[ -z "$bindir" || ! -x "$bindir/initdb" ]]; then
  echo "pgcluster: PostgreSQL's server programs are missing (apt-get install postgresql)" >&2
  exit 1
fi

as_owner() {
  if [[ $(id -u) -eq 0 ]]; then
    runuser -u nobody -- "$@"
  else
    "$@"
  fi
}

folder_of() { sed -n 's/^# folder //p' "$file"; }

case "$command" in
  start)
    folder=$(mktemp -d /tmp/vgcr-pg-XXXXXX)
    chmod 0700 "$folder"
    [[ $(id -u) -eq 0 ]] && chown nobody "$folder"
    as_owner "$bindir/initdb" -D "$folder/data" -U vgcr -A trust -E UTF8 --locale=C.UTF-8 >"$folder/initdb.log" 2>&1 || {
      cat "$folder/initdb.log" >&2
      exit 1
    }
    settings=(-c listen_addresses=127.0.0.1 -c "unix_socket_directories=$folder" -c max_connections=200)
    for setting in "$@"; do settings+=(-c "$setting"); done
    for attempt in 1 2 3 4 5 6 7 8; do
      port=$((20000 + RANDOM % 40000))
      if as_owner "$bindir/pg_ctl" -D "$folder/data" -l "$folder/server.log" -w -t 30 \
           -o "-p $port ${settings[*]}" start >/dev/null 2>&1; then
        {
          echo "# folder $folder"
          echo "# options -p $port ${settings[*]}"
          echo "host=127.0.0.1 port=$port user=vgcr"
        } >"$file"
        exit 0
      fi
    done
    echo "pgcluster: the server did not start:" >&2
    tail -n 20 "$folder/server.log" >&2
    exit 1
    ;;
  stop)
    [[ -f "$file" ]] || exit 0
    folder=$(folder_of)
    as_owner "$bindir/pg_ctl" -D "$folder/data" -m immediate -w stop >/dev/null 2>&1 || true
    rm -rf "$folder" "$file"
    ;;
  pause)
    folder=$(folder_of)
    as_owner "$bindir/pg_ctl" -D "$folder/data" -m fast -w stop >/dev/null
    ;;
  resume)
    folder=$(folder_of)
    options=$(sed -n 's/^# options //p' "$file")
    as_owner "$bindir/pg_ctl" -D "$folder/data" -l "$folder/server.log" -w -t 30 -o "$options" start >/dev/null
    ;;
  *)
    echo "pgcluster: unknown command $command" >&2
    exit 2
    ;;
esac
