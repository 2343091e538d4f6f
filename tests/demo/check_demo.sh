#!/usr/bin/env bash
# Runs tools/demo against a build tree and checks that it exits 0 and that its output
# holds the lines that show each step at work.
#   check_demo.sh BUILD_DIR SOURCE_DIR
set -uo pipefail
build=$1
src=$2
out=$("$src/tools/demo" "$build" 2>&1)
status=$?
printf '%s\n' "$out"
fail() { echo "FAIL: $*" >&2; exit 1; }
[ "$status" = 0 ] || fail "tools/demo exited with status $status"
expect() {
  grep -Fxq -- "$1" <<<"$out" || fail "no line: $1"
}
# The table made, the rows inserted through parameters, and read back.
expect "OK"
expect 'Execute $ins 1 "Ren\xC5e Dupr\xC5" "1970-01-02" "2019-02-13 08:15:00" 12.5 -> 0'
expect 'Execute $ins 3 "Fran\xB5ois" "2000-02-29" "2019-02-15 07:05:30" -> 0'
expect '  $rows = 1'
expect "  1 | Renée Dupré | 19700102 | 20190213 081500 |   12.5"
expect "  2 | Jürgen Weiß | 19840721 | 20190214 194000 | 230.75"
expect "  3 | François    | 20000229 | 20190215 070530 |   NULL"
expect "(3 rows)"
# Packed rows, the catalog and the diagnostics of the failing statement.
expect 'NId~0~1~1XName~0~11~Renée DupréNBorn~0~8~19700102NPaid~0~4~12.5$'
expect 'NId~0~1~3XName~0~8~FrançoisNBorn~0~8~20000229NPaid~0~1~0$'
expect " guest | TABLE"
expect " arrived | TIMESTAMP   |    3 | yes"
expect "qzcall: ExecDirect failed with status 1118 (the statement failed)"
expect "  S1000 (native 19): [SQLite]UNIQUE constraint failed: guest.id (19)"
expect "(exit status 1)"
echo "demo checks passed"
