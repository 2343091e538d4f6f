#!/usr/bin/env bash
# Runs one scenario against one back end in one call block layout and compares what it
# printed with what the scenario file says it prints.
#
#   scenario.sh FILE BACKEND LAYOUT      BACKEND: sqlite, pg or mariadb (-i386: the server
#                                         of the i386 build); LAYOUT: 32 or 64
#
# FILE.qzt is a transcript: what `qzcall run` prints, so it reads as the example it is:
# each call with its status, the variables it changed indented below it. The calls
# (indented lines left out, a status's meaning in parentheses dropped) are the script.
# FILE.session is a shell session: "$ COMMAND" lines, each followed by what it prints on
# standard output, then on standard error, then "[exit N]" unless it exits 0; the
# command `qzcall` is qzcall with the server and layout of the run.
# In both, '#' lines are comments (in a transcript blank lines too, and only before its
# first "== " line), and a line may start with back end tags, "[pg] " or
# "[sqlite,mariadb] ", and then belongs to those back ends only. A transcript may end with
# "== standard error" and what qzcall and the server write there, then "== FILE" and the
# content of each file named by a "# show: FILE..." line. "# interpose: RULES" gives the
# libodbc interposer these rules (tests/env/interpose.cpp; it writes the calls it saw to the
# file "calls"), "# tz: ZONE" the server's time zone, and "# rows: decoded" keeps the
# fields qzcall reads out of each packed row (other transcripts leave them out).
#
# "DSN=qz" is a data source of a private odbc.ini made here: a new SQLite file, or a new
# database in the PostgreSQL cluster or MariaDB server of the run. The run's directory is
# the working directory and reads $TMP in the output, its database name $DB, the cluster's
# directory $PGDIR, the MariaDB server's $MARIADBDIR; the MariaDB driver's and server's
# versions go from its messages; addresses read 0xADDR, the log's header time YYYY-MM-DD hh:mm:ss, the
# build date Mmm dd yyyy; the log's line prefix (time, process id) and source positions go.
# Environment (set by CTest): QZ_QZCALL, QZ_SERVER, QZ_LAUNCHER (the emulator of every
# program, in the i386 build), QZ_SERVER_EMULATOR (of the server alone), QZ_INTERPOSER,
# ODBCSYSINI, QZ_PG_ENV; QZ_SCENARIO_KEEP=DIR keeps the output there, for writing or
# mending a scenario.
set -euo pipefail
[ $# = 3 ] || { sed -n '5,6p' "$0" >&2; exit 2; }
file=$1 variant=$2 layout=$3
backend=${variant%-i386}
tmp=$(mktemp -d /tmp/qz-scenario.XXXXXX)
db=qz_$(basename "$tmp" | tr -dc 'a-zA-Z0-9' | tr 'A-Z' 'a-z')
drop_db() { :; }
trap 'drop_db; rm -rf "$tmp"' EXIT
cd "$tmp"

# The lines of this back end, tags removed.
awk -v b="$backend" '
  match($0, /^\[[a-z,]+\] /) {
    n = split(substr($0, 2, RLENGTH - 3), tags, ",")
    for (i = 1; i <= n; i++) if (tags[i] == b) { print substr($0, RLENGTH + 1); next }
    next
  }
  { print }' "$file" >scenario

case $backend in
  sqlite)
    printf '[qz]\nDriver=QZ SQLite\nDatabase=%s\n' "$tmp/test.db" >odbc.ini
    ;;
  pg)
    # shellcheck disable=SC1090
    . "$QZ_PG_ENV"
    psql() { /usr/lib/postgresql/15/bin/psql -X -q -h "$QZ_PG_DIR" -p "$QZ_PG_PORT" -U "$QZ_PG_USER" "$@"; }
    psql -d postgres -c "CREATE DATABASE $db TEMPLATE template0 ENCODING 'LATIN1' LC_COLLATE 'C' LC_CTYPE 'C'"
    drop_db() { psql -d postgres -c "DROP DATABASE $db WITH (FORCE)"; }
    printf '[qz]\nDriver=QZ PostgreSQL\nServername=%s\nPort=%s\nDatabase=%s\nUsername=%s\n%s\n' \
      "$QZ_PG_DIR" "$QZ_PG_PORT" "$db" "$QZ_PG_USER" \
      "ConnSettings=SET client_encoding TO 'LATIN1'" >odbc.ini
    ;;
  mariadb)
    # shellcheck disable=SC1090
    . "$QZ_MARIADB_ENV"
    mariadb() { command mariadb --no-defaults -S "$QZ_MARIADB_SOCKET" -u "$QZ_MARIADB_USER" "$@"; }
    mariadb -e "CREATE DATABASE $db CHARACTER SET latin1"
    drop_db() { mariadb -e "DROP DATABASE $db"; }
    printf '[qz]\nDriver=QZ MariaDB\nSocket=%s\nDatabase=%s\nUser=%s\nCharset=latin1\n' \
      "$QZ_MARIADB_SOCKET" "$db" "$QZ_MARIADB_USER" >odbc.ini
    ;;
  *) echo "scenario: unknown back end $backend" >&2; exit 2 ;;
esac
export ODBCINI=$tmp/odbc.ini

# The server starts through a launcher that preloads the interposer (without rules it
# only passes the calls on), under the emulator in the i386 build (whose -E hands the
# variables to the emulated program only).
vars=("LD_PRELOAD=$QZ_INTERPOSER" "QZ_ODBC_INTERPOSE=$(sed -n 's/^# interpose: //p' scenario)"
  "QZ_ODBC_TRACE=$tmp/calls")
zone=$(sed -n 's/^# tz: //p' scenario)
[ -z "$zone" ] || vars+=("TZ=$zone")
{
  echo '#!/bin/sh'
  emulator=${QZ_SERVER_EMULATOR:-${QZ_LAUNCHER:-}}
  if [ -n "$emulator" ]; then
    printf 'exec %q' "$emulator"
    printf ' -E %q' "${vars[@]}"
  else
    printf 'exec env'
    printf ' %q' "${vars[@]}"
  fi
  echo ' "$@"'
} >launch
chmod +x launch
qzcall() {
  ${QZ_LAUNCHER:-} "$QZ_QZCALL" --server "$QZ_SERVER" --launcher "$tmp/launch" --layout "$layout" "$@"
}

if [[ $file == *.qzt ]]; then
  sed -n '/^== /q; /^#\|^  \|^$/d; s/ -> \(-\{0,1\}[0-9]*\) (.*)$/ -> \1/; p' scenario >script.qz
  # Comments and blank lines go until the first "== " section; the sections are verbatim.
  awk '/^== / { verbatim = 1 } verbatim || !/^#|^$/' scenario >expected
  qzcall run script.qz >actual 2>stderr || true
  # The fields qzcall reads out of a packed row show only where a scenario asks for them.
  grep -q '^# rows: decoded$' scenario || sed -i '/^    /d' actual
  if [ -s stderr ] || grep -q '^== standard error$' expected; then
    echo "== standard error" >>actual
    cat stderr >>actual
  fi
  for shown in $(sed -n 's/^# show: //p' scenario); do
    echo "== $shown" >>actual
    cat "$shown" >>actual 2>/dev/null || echo "(no such file)" >>actual
  done
else
  # Comments and commands as they stand, each command followed by what it printed.
  cp scenario expected
  while IFS= read -r line; do
    case $line in
      '$ '*)
        echo "$line"
        status=0
        (eval "${line#\$ }") >out 2>err </dev/null || status=$?
        cat out err
        [ $status = 0 ] || echo "[exit $status]"
        ;;
      '#'*) echo "$line" ;;
    esac
  done <expected >actual
fi

sed -i -e "s|$tmp|\$TMP|g; s|$db|\$DB|g; s|${QZ_PG_DIR:-/nonexistent}|\$PGDIR|g; s|${QZ_MARIADB_DIR:-/nonexistent}|\$MARIADBDIR|g" \
  -e 's/0x[0-9a-f]\{6,\}\|(nil)/0xADDR/g; s/[a-z_]*\.cpp([0-9]*): //' \
  -e 's/\[ma-[0-9.]*\]/[ma]/g; s/\[[0-9.]*-MariaDB[^]]*\]/[MariaDB]/g' \
  -e 's/^[0-9]\{4\}-[0-9-]* [0-9:]* ( *[0-9]*) //; s/^\*\* [0-9-]* [0-9:]*/** YYYY-MM-DD hh:mm:ss/' \
  -e 's/\(Jan\|Feb\|Mar\|Apr\|May\|Jun\|Jul\|Aug\|Sep\|Oct\|Nov\|Dec\) [ 123][0-9] 20[0-9][0-9]/Mmm dd yyyy/' actual
[ -z "${QZ_SCENARIO_KEEP:-}" ] || cp actual "$QZ_SCENARIO_KEEP/$(basename "$file").$variant.$layout"
if ! diff -u expected actual; then
  echo "scenario: $(basename "$file") on $variant, layout $layout: output differs (- expected, + actual)" >&2
  exit 1
fi
