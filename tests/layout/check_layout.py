#!/usr/bin/env python3
# The product's include graph: no file includes one that includes it back, directly or
# through others, and libqzclient includes nothing of the host but its public folder.
#   check_layout.py SOURCE_DIR
import os
import re
import sys

top = sys.argv[1]
dirs = ["dll", "client", "tools", "math", "support"]
files = {}  # path relative to top -> the project headers it includes (relative paths)
for d in dirs:
    for base, _, names in os.walk(os.path.join(top, d)):
        for n in names:
            if n.endswith((".cpp", ".hpp", ".h", ".c")) and "/fuzz" not in base:
                files[os.path.relpath(os.path.join(base, n), top)] = []
by_name = {}
for f in files:
    by_name.setdefault(os.path.basename(f), []).append(f)
for f in files:
    with open(os.path.join(top, f), errors="replace") as fh:
        for name in re.findall(r'^\s*#\s*include\s+"([^"]+)"', fh.read(), re.M):
            near = os.path.normpath(os.path.join(os.path.dirname(f), name))
            found = [near] if near in files else by_name.get(os.path.basename(name), [])
            if len(found) != 1:
                sys.exit(f"{f}: include \"{name}\" names {len(found)} files of the product")
            files[f].append(found[0])

problems = []
for f, inc in files.items():
    if f.startswith("client/"):
        problems += [f"{f} includes {i}: the client sees only dll/include of the host"
                     for i in inc if i.startswith("dll/") and not i.startswith("dll/include/")]
state = {}


def visit(f, path):
    state[f] = 1
    for i in files[f]:
        if state.get(i) == 1:
            problems.append("include cycle: " + " -> ".join(path[path.index(i):] + [i]))
        elif i not in state:
            visit(i, path + [i])
    state[f] = 2


for f in sorted(files):
    if f not in state:
        visit(f, [f])
print("\n".join(problems) or f"include graph of {len(files)} files: no cycle; client includes only dll/include")
sys.exit(1 if problems else 0)
