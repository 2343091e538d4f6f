#!/usr/bin/env bash
# Builds the Debian package of a build tree, unpacks it with dpkg -x into a temporary
# directory and checks what a user gets: the dependencies, no build path anywhere, the
# unpacked qzcall running a query through the unpacked qzodbc on SQLite, and
# the CMake package configuration and pkg-config files of the unpacked libraries in use
# (the README's example program among them, and README.md holding it verbatim).
#   check_package.sh BUILD_DIR SOURCE_DIR      (ODBCSYSINI: the test registration)
set -euo pipefail
build=$1
src=$2
here=$(cd "$(dirname "$0")" && pwd)
tmp=$(mktemp -d /tmp/qz-package.XXXXXX)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
# same WHAT GOT EXPECTED: fails unless the two texts are equal.
same() { [ "$2" = "$3" ] || fail "$1 printed:
$2
expected:
$3"; }

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$tmp/pkg" >"$tmp/cpack.log" 2>&1 ||
  { cat "$tmp/cpack.log"; fail "cpack"; }
deb=$(ls "$tmp"/pkg/qzodbc_*.deb)
echo "package: $(basename "$deb")"

depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
for d in libc6 libodbc2 libstdc++6; do
  [[ ",$depends" == *", $d "* || ",$depends" == *",$d "* ]] || fail "no dependency on $d"
done

root=$tmp/root
dpkg -x "$deb" "$root"
for f in usr/bin/qzodbc usr/bin/qzcall usr/include/qzclient.hpp usr/include/qzmath.h \
         usr/share/man/man1/qzodbc.1 usr/share/man/man1/qzcall.1; do
  [ -e "$root/$f" ] || fail "missing $f"
done
if grep -rl -e "$build" -e "$src" "$root"; then fail "build paths in the files above"; fi

# The unpacked qzcall finds the unpacked qzodbc next to itself; no build path in PATH.
out=$(cd "$tmp" && PATH=/usr/bin:/bin "$root/usr/bin/qzcall" sql \
  -e "CREATE TABLE t (k INTEGER, s VARCHAR(9)); INSERT INTO t VALUES (1, 'café')" \
  -e "SELECT k, s FROM t" "Driver={QZ SQLite};Database=$tmp/smoke.db") || fail "qzcall sql: $out"
expected="OK
1 row affected
 k | s
---+------
 1 | café
(1 row)"
same "qzcall sql" "$out" "$expected"
echo "unpacked qzcall ran a query through the unpacked qzodbc"

# A program built against the unpacked tree with find_package(qzodbc), and a C program
# through pkg-config.
cmake -S "$here/consumer" -B "$tmp/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" \
  >"$tmp/consumer.log" 2>&1 || { cat "$tmp/consumer.log"; fail "configure the consumer"; }
cmake --build "$tmp/consumer" >>"$tmp/consumer.log" 2>&1 ||
  { cat "$tmp/consumer.log"; fail "build the consumer"; }
got=$("$tmp/consumer/consumer" "$root/usr/bin/qzodbc") || fail "consumer: $got"
same consumer "$got" "Revision 1.8; 0.1 + 0.2 = 0.3"
echo "find_package(qzodbc): $got"

cat >"$tmp/sum.c" <<'C'
#include <qzmath.h>
#include <stdio.h>
int main(void) {
  t_DECIMAL a, b, s;
  char buf[40];
  m_cv_asc("1.25", 4, &a);
  m_cv_asc("2.5", 3, &b);
  m_add(&a, &b, &s);
  puts(m_to_asc(&s, buf, 10, 2));
  return 0;
}
C
export PKG_CONFIG_PATH=$root/usr/lib/pkgconfig
cc "$tmp/sum.c" -o "$tmp/sum" $(pkg-config --cflags --libs qzmath) -Wl,-rpath,"$root/usr/lib" ||
  fail "compile through pkg-config qzmath"
got=$("$tmp/sum")
same "the pkg-config program" "$got" "3.75"
pkg-config --cflags qzclient | grep -q -- "-I$root/usr/lib/pkgconfig/../../include" ||
  fail "qzclient.pc: $(pkg-config --cflags qzclient)"
echo "pkg-config qzmath: $got"

# The README's example program (which README.md holds verbatim), built as the README says:
# the rows of a query; for a failing one the diagnostics and a failing exit status.
python3 -c 'import sys; r, e = (open(p).read() for p in sys.argv[1:]); sys.exit("```cpp\n" + e + "```\n" not in r)' \
  "$src/README.md" "$src/doc/example/query.cpp" || fail "README.md does not hold doc/example/query.cpp"
c++ -std=c++20 "$src/doc/example/query.cpp" -o "$tmp/query" $(pkg-config --cflags --libs qzclient) \
  -Wl,-rpath,"$root/usr/lib" || fail "compile the README example through pkg-config qzclient"
got=$("$tmp/query" "$root/usr/bin/qzodbc" "Driver={QZ SQLite};Database=$tmp/smoke.db" \
  "SELECT k, s FROM t") || fail "README example: $got"
same "the README example" "$got" "K=1 S=caf$(printf '\xc5')"
echo "README example: $got"
got=$("$tmp/query" "$root/usr/bin/qzodbc" "Driver={QZ SQLite};Database=$tmp/smoke.db" \
  "SELECT * FROM missing" 2>&1) && fail "a failing query exited with 0"
same "the README example on a failing query" "$got" "ExecDirect: status 1118
  S1000 [SQLite]no such table: missing (1)"
echo "package checks passed"
