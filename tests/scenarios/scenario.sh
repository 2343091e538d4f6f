#!/usr/bin/env bash
# Runs one scenario transcript through qzcall against one back end in one call block layout
# and compares what qzcall printed with the transcript.
#
#   scenario.sh TRANSCRIPT BACKEND LAYOUT      BACKEND: sqlite, pg or mariadb; LAYOUT: 32, 64
#
# A transcript is what `qzcall run` prints, so it reads as the example it is: each call
# line with its status, the variables it changed indented below it. The calls (indented
# lines left out, a status's meaning in parentheses dropped) are the script; every line
# but the '#' comments is the expected output. A line may start with back end tags,
# "[pg] " or "[sqlite,mariadb] ", and then belongs to those back ends only. After a line
# "== standard error" come the expected lines of qzcall's and the server's standard error.
# Header comments: "# interpose: RULES" gives the libodbc interposer these rules
# (tests/env/README.md) and "# odbc calls" adds the calls it saw, after "== ODBC calls".
#
# Every call connects with "DSN=qz", a data source of a private odbc.ini made here: a new
# SQLite file, or a new database in the PostgreSQL cluster or MariaDB server of the run.
# In the output, the run's directory reads $TMP and its database name $DB.
# Environment (set by CTest): QZ_QZCALL, QZ_SERVER, QZ_EMULATOR (i386 build),
# QZ_INTERPOSER, ODBCSYSINI, QZ_PG_ENV, QZ_MARIADB_ENV; QZ_SCENARIO_KEEP (below).
set -euo pipefail
[ $# = 3 ] || { sed -n '5p' "$0" >&2; exit 2; }
transcript=$1 backend=$2 layout=$3
tmp=$(mktemp -d /tmp/qz-scenario.XXXXXX)
db=qz_$(basename "$tmp" | tr -dc 'a-zA-Z0-9' | tr 'A-Z' 'a-z')
drop_db() { :; }
trap 'drop_db; rm -rf "$tmp"' EXIT

# The lines of this back end, tags removed.
awk -v b="$backend" '
  match($0, /^\[[a-z,]+\] /) {
    n = split(substr($0, 2, RLENGTH - 3), tags, ",")
    for (i = 1; i <= n; i++) if (tags[i] == b) { print substr($0, RLENGTH + 1); next }
    next
  }
  { print }' "$transcript" >"$tmp/transcript"
sed -n '/^== /q; /^#\|^  \|^$/d; s/ -> \(-\{0,1\}[0-9]*\) (.*)$/ -> \1/; p' \
  "$tmp/transcript" >"$tmp/script.qz"
grep -v '^#\|^$' "$tmp/transcript" >"$tmp/expected" || true

case $backend in
  sqlite)
    printf '[qz]\nDriver=QZ SQLite\nDatabase=%s\n' "$tmp/test.db" >"$tmp/odbc.ini"
    ;;
  pg)
    # shellcheck disable=SC1090
    . "$QZ_PG_ENV"
    psql() { /usr/lib/postgresql/15/bin/psql -X -q -h "$QZ_PG_DIR" -p "$QZ_PG_PORT" -U "$QZ_PG_USER" "$@"; }
    psql -d postgres -c "CREATE DATABASE $db TEMPLATE template0 ENCODING 'LATIN1' LC_COLLATE 'C' LC_CTYPE 'C'"
    drop_db() { psql -d postgres -c "DROP DATABASE $db"; }
    printf '[qz]\nDriver=QZ PostgreSQL\nServername=%s\nPort=%s\nDatabase=%s\nUsername=%s\n%s\n' \
      "$QZ_PG_DIR" "$QZ_PG_PORT" "$db" "$QZ_PG_USER" \
      "ConnSettings=SET client_encoding TO 'LATIN1'" >"$tmp/odbc.ini"
    ;;
  *) echo "scenario: unknown back end $backend" >&2; exit 2 ;;
esac

# The server starts through a launcher that preloads the interposer (without rules it
# only passes the calls on), under the emulator in the i386 build (whose -E hands the
# variables to the emulated program only).
rules=$(sed -n 's/^# interpose: //p' "$tmp/transcript")
vars=("LD_PRELOAD=$QZ_INTERPOSER" "QZ_ODBC_INTERPOSE=$rules" "QZ_ODBC_TRACE=$tmp/calls")
{
  echo '#!/bin/sh'
  if [ -n "${QZ_EMULATOR:-}" ]; then
    printf 'exec %q' "$QZ_EMULATOR"
    printf ' -E %q' "${vars[@]}"
  else
    printf 'exec env'
    printf ' %q' "${vars[@]}"
  fi
  echo ' "$@"'
} >"$tmp/launch"
chmod +x "$tmp/launch"

cd "$tmp"
status=0
ODBCINI=$tmp/odbc.ini ${QZ_EMULATOR:-} "$QZ_QZCALL" --layout "$layout" --server "$QZ_SERVER" \
  --launcher "$tmp/launch" run script.qz >actual 2>stderr || status=$?
{
  if [ -s stderr ] || grep -q '^== standard error$' expected; then
    echo "== standard error"
    cat stderr
  fi
  if grep -q '^# odbc calls' transcript; then
    echo "== ODBC calls"
    cat calls
  fi
} >>actual
sed -i "s|$tmp|\$TMP|g; s|$db|\$DB|g" actual
# QZ_SCENARIO_KEEP=DIR keeps the output there, for writing or mending a transcript.
[ -z "${QZ_SCENARIO_KEEP:-}" ] || cp actual "$QZ_SCENARIO_KEEP/$(basename "$transcript" .qzt).$backend.$layout"
if ! diff -u expected actual; then
  echo "scenario: $(basename "$transcript") on $backend, layout $layout: output differs (- expected, + actual); qzcall exited $status" >&2
  exit 1
fi
