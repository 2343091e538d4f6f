#!/usr/bin/env bash
# Checks the README's example: README.md holds doc/example/query.cpp verbatim, and the
# program built from it prints a query's rows and, for a failing one, the diagnostics.
#   check_example.sh QUERY_PROGRAM QZODBC SOURCE_DIR     (ODBCSYSINI: the test registration)
set -uo pipefail
query=$1
server=$2
src=$3
tmp=$(mktemp -d /tmp/qz-example.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

python3 - "$src/README.md" "$src/doc/example/query.cpp" <<'PY' || fail "README.md does not hold doc/example/query.cpp verbatim"
import sys
readme, example = (open(p, encoding="utf-8").read() for p in sys.argv[1:3])
sys.exit(0 if "```cpp\n" + example + "```\n" in readme else 1)
PY

conn="Driver={QZ SQLite};Database=$tmp/t.db"
out=$("$query" "$server" "$conn" "SELECT 1 AS one, 'x' AS two UNION ALL SELECT 2, 'y y'" 2>&1)
status=$?
[ $status = 0 ] || fail "query exited with $status: $out"
[ "$out" = "One=1 Two=x
One=2 Two=y y" ] || fail "query printed: $out"

out=$("$query" "$server" "$conn" "SELECT * FROM missing" 2>&1)
status=$?
[ $status = 1 ] || fail "a failing query exited with $status: $out"
[ "$out" = "ExecDirect: status 1118
  S1000 [SQLite]no such table: missing (1)" ] || fail "a failing query printed: $out"

out=$("$query" 2>&1)
[ $? = 2 ] || fail "without arguments: $out"
echo "README example checks passed"
