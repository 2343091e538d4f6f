#!/usr/bin/env bash
# A throwaway MariaDB server for the tests: a fresh temporary directory, a Unix socket
# only, run by the mysql user (never by root), stopped when the program that started it
# ends, however it ends.
#
#   mariadb-server.sh start STATE_DIR        create and start a server; record it in STATE_DIR
#   mariadb-server.sh stop STATE_DIR         stop the recorded server and remove its directory
#   mariadb-server.sh restart STATE_DIR      restart the recorded server (its sessions end)
#
# STATE_DIR/mariadb.env holds QZ_MARIADB_DIR (the temporary directory), QZ_MARIADB_SOCKET,
# QZ_MARIADB_USER (a user with every right, no password: the socket is the door) and
# QZ_MARIADB_DATABASE (a latin1 database).
set -Eeuo pipefail
# shellcheck source=server-common.sh
. "$(dirname "$0")/server-common.sh"
server_user=mysql
user=qz
database=qz

[ $# = 2 ] || { sed -n '6,8p' "$0" >&2; exit 2; }
state_dir=$2
env_file=$state_dir/mariadb.env

# The server of directory $1 ends (its pid file names it).
end_server() {
  [ -f "$1/pid" ] || return 0
  local pid
  pid=$(cat "$1/pid")
  kill "$pid" 2>/dev/null || true
  for _ in $(seq 1 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
  kill -9 "$pid" 2>/dev/null || true
}

stop_server() {
  [ -f "$env_file" ] || return 0
  local QZ_MARIADB_DIR=""
  # shellcheck disable=SC1090
  . "$env_file"
  rm -f "$env_file"
  # The directory must be one of ours before anything in it is removed.
  case "$QZ_MARIADB_DIR" in /tmp/qz-mariadb.*) ;; *) return 0 ;; esac
  end_server "$QZ_MARIADB_DIR"
  rm -rf "$QZ_MARIADB_DIR"
}

# The server of directory $1 starts, and its socket is there.
run_server() {
  rm -f "$1/socket"  # a killed server's
  # Durability is of no use to a test run; text is ISO 8859-1 unless a database says
  # otherwise; "quotes" name identifiers, as in standard SQL.
  as_owner /usr/sbin/mariadbd --no-defaults --datadir="$1/data" --socket="$1/socket" \
    --pid-file="$1/pid" --skip-networking --log-error="$1/log" --innodb-buffer-pool-size=16M \
    --innodb-flush-log-at-trx-commit=0 --skip-log-bin --character-set-server=latin1 \
    --collation-server=latin1_swedish_ci \
    --sql-mode=ANSI_QUOTES,STRICT_TRANS_TABLES,ERROR_FOR_DIVISION_BY_ZERO,NO_ENGINE_SUBSTITUTION \
    </dev/null >/dev/null 2>&1 &
  for _ in $(seq 1 300); do [ -S "$1/socket" ] && break; sleep 0.1; done
}

start_server() {
  mkdir -p "$state_dir"
  stop_server  # a server left behind by an interrupted run
  local dir
  dir=$(new_server_dir mariadb)
  # From here on, a failure removes what was made.
  trap 'echo "mariadb-server: start failed; log follows" >&2; cat "$dir/log" >&2 2>/dev/null || true;
        [ -f "$dir/pid" ] && kill -9 "$(cat "$dir/pid")" 2>/dev/null; rm -rf "$dir"' ERR
  as_owner mariadb-install-db --no-defaults --datadir="$dir/data" --skip-test-db \
    --auth-root-authentication-method=normal >"$dir/install.log" 2>&1 ||
    { cat "$dir/install.log" >&2; false; }
  run_server "$dir"
  mariadb --no-defaults -S "$dir/socket" -u root -e \
    "CREATE USER '$user'@'localhost'; GRANT ALL ON *.* TO '$user'@'localhost';
     CREATE DATABASE $database CHARACTER SET latin1"
  printf 'QZ_MARIADB_DIR=%s\nQZ_MARIADB_SOCKET=%s\nQZ_MARIADB_USER=%s\nQZ_MARIADB_DATABASE=%s\n' \
    "$dir" "$dir/socket" "$user" "$database" >"$env_file"
  trap - ERR
  watch_owner "QZ_MARIADB_DIR=$dir" "$env_file" "'$0' stop '$state_dir'"
  echo "mariadb-server: MariaDB running in $dir (socket only)"
}

case $1 in
  start) start_server ;;
  stop) stop_server ;;
  restart)
    # shellcheck disable=SC1090
    . "$env_file"
    end_server "$QZ_MARIADB_DIR"
    run_server "$QZ_MARIADB_DIR"
    ;;
  *) sed -n '6,8p' "$0" >&2; exit 2 ;;
esac
