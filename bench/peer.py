#!/usr/bin/env python3
"""The benchmark's comparison peer: the same query or the same load through pyodbc, in a
process of its own, timing itself.

  peer.py fetch ROUNDS QUERY          execute + fetchall, ROUNDS times
  peer.py load ROUNDS FILE TABLE      DELETE, then executemany + commit, ROUNDS times
  peer.py fastload ROUNDS FILE TABLE  the same with fast_executemany = True

The connection string comes from QZ_PEER_CONN (it holds braces, quotes and semicolons
that a command line would have to escape). FILE has one row a line, fields separated by
tabs, the first two integers, the rest text. Each round prints one line
"MODE ROWS NANOSECONDS"; a load round counts the table's rows after its commit.
"""
import os
import sys
import time

import pyodbc


def fetch(conn, rounds, query):
    cur = conn.cursor()
    for _ in range(rounds):
        t0 = time.perf_counter_ns()
        cur.execute(query)
        rows = cur.fetchall()
        ns = time.perf_counter_ns() - t0
        print("fetch", len(rows), ns, flush=True)
        del rows


def read_rows(path):
    rows = []
    with open(path, encoding="latin-1") as f:
        for line in f:
            fields = line.rstrip("\n").split("\t")
            rows.append((int(fields[0]), int(fields[1]), *fields[2:]))
    return rows


def load(conn, rounds, path, table, fast):
    rows = read_rows(path)
    marks = ",".join("?" * len(rows[0]))
    sql = f"INSERT INTO {table} VALUES ({marks})"
    cur = conn.cursor()
    cur.fast_executemany = fast
    for _ in range(rounds):
        cur.execute(f"DELETE FROM {table}")
        conn.commit()
        t0 = time.perf_counter_ns()
        cur.executemany(sql, rows)
        conn.commit()
        ns = time.perf_counter_ns() - t0
        stored = cur.execute(f"SELECT COUNT(*) FROM {table}").fetchone()[0]
        print("fastload" if fast else "load", stored, ns, flush=True)


def main():
    mode, rounds = sys.argv[1], int(sys.argv[2])
    conn = pyodbc.connect(os.environ["QZ_PEER_CONN"], autocommit=False)
    if mode == "fetch":
        fetch(conn, rounds, sys.argv[3])
    else:
        load(conn, rounds, sys.argv[3], sys.argv[4], mode == "fastload")
    conn.close()


if __name__ == "__main__":
    main()
