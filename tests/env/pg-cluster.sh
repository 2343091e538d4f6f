#!/usr/bin/env bash
# A throwaway PostgreSQL 15 cluster for the tests: a fresh temporary directory, a Unix
# socket only, trust authentication, run by the postgres user (never by root), stopped
# when the program that started it ends, however it ends.
#
#   pg-cluster.sh start STATE_DIR        create and start a cluster; record it in STATE_DIR
#   pg-cluster.sh stop STATE_DIR         stop the recorded cluster and remove its directory
#   pg-cluster.sh restart STATE_DIR      restart the recorded cluster (its sessions end)
#
# STATE_DIR/pg-cluster.env holds QZ_PG_DIR (the temporary directory, also the socket
# directory), QZ_PG_PORT, QZ_PG_USER and QZ_PG_DATABASE (a LATIN1 database with C
# collation).
set -Eeuo pipefail
# shellcheck source=server-common.sh
. "$(dirname "$0")/server-common.sh"
server_user=postgres

pg_bin=${QZ_PG_BIN:-/usr/lib/postgresql/15/bin}
port=5432
superuser=postgres
database=qz

[ $# = 2 ] || { sed -n '5,7p' "$0" >&2; exit 2; }
state_dir=$2
env_file=$state_dir/pg-cluster.env

stop_cluster() {
  [ -f "$env_file" ] || return 0
  local QZ_PG_DIR=""
  # shellcheck disable=SC1090
  . "$env_file"
  rm -f "$env_file"
  [ -n "$QZ_PG_DIR" ] && [ -d "$QZ_PG_DIR" ] || return 0
  # The directory must be one of ours before anything in it is removed.
  case "$QZ_PG_DIR" in /tmp/qz-pg.*) ;; *) echo "pg-cluster: refusing to remove $QZ_PG_DIR" >&2; return 1 ;; esac
  if [ -f "$QZ_PG_DIR/data/postmaster.pid" ]; then
    as_owner "$pg_bin/pg_ctl" -D "$QZ_PG_DIR/data" -m immediate -w stop >/dev/null 2>&1 || true
  fi
  rm -rf "$QZ_PG_DIR"
}

start_cluster() {
  mkdir -p "$state_dir"
  stop_cluster  # a cluster left behind by an interrupted run
  local dir
  dir=$(new_server_dir pg)
  # From here on, a failure removes what was made.
  trap 'echo "pg-cluster: start failed; log follows" >&2; cat "$dir/log" >&2 2>/dev/null || true;
        QZ_PG_DIR=$dir; as_owner "$pg_bin/pg_ctl" -D "$dir/data" -m immediate stop >/dev/null 2>&1 || true;
        rm -rf "$dir"' ERR
  as_owner "$pg_bin/initdb" -D "$dir/data" -U "$superuser" -A trust -E UTF8 --locale=C \
    --no-sync --no-instructions >"$dir/initdb.log" 2>&1 || { cat "$dir/initdb.log" >&2; false; }
  # Unix socket only, in the private directory; durability is of no use to a test run.
  as_owner "$pg_bin/pg_ctl" -D "$dir/data" -l "$dir/log" -w -t 60 start -o \
    "-c listen_addresses='' -c unix_socket_directories='$dir' -p $port -c fsync=off \
     -c synchronous_commit=off -c full_page_writes=off -c shared_buffers=16MB \
     -c max_connections=50" >/dev/null
  "$pg_bin/psql" -X -q -v ON_ERROR_STOP=1 -h "$dir" -p "$port" -U "$superuser" -d postgres \
    -c "CREATE DATABASE $database TEMPLATE template0 ENCODING 'LATIN1' LC_COLLATE 'C' LC_CTYPE 'C'"
  cat >"$env_file" <<EOF
QZ_PG_DIR=$dir
QZ_PG_PORT=$port
QZ_PG_USER=$superuser
QZ_PG_DATABASE=$database
EOF
  trap - ERR
  watch_owner "QZ_PG_DIR=$dir" "$env_file" "'$0' stop '$state_dir'"
  echo "pg-cluster: PostgreSQL 15 running in $dir (socket only), database $database"
}

case $1 in
  start) start_cluster ;;
  stop) stop_cluster ;;
  restart)
    # shellcheck disable=SC1090
    . "$env_file"
    as_owner "$pg_bin/pg_ctl" -D "$QZ_PG_DIR/data" -m fast -w restart >/dev/null
    ;;
  *) sed -n '5,7p' "$0" >&2; exit 2 ;;
esac
