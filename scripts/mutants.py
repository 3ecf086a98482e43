#!/usr/bin/env python3
"""Mutation sampler: how many small faults in the product code do the tests catch?

From a seed it picks N mutation sites in the product sources, applies one at a
time, rebuilds incrementally, runs the tests whose executables link the mutated
library, and records whether the tests killed the mutant. The file is restored
after every mutant, also on Ctrl-C. The same seed, sources and N give the same
sample, so a run before and a run after a change of the tests compare.

  scripts/mutants.sh [--seed S] [-n N] [--files GLOB] [--build DIR] [--list]
                     [--save SAMPLE.tsv | --replay SAMPLE.tsv] [--out RESULTS.tsv]

--save keeps the sample; --replay runs a kept sample again after the product
code moved on (each mutant is found again by its file, kind and the text of
its line), so a sample drawn before a change and run after it compares.

Kinds of mutation:
  rel     a relational operator flipped (== != ; < >= ; > <=)
  bound   a bound moved (< <= ; > >=)
  logic   && and || swapped
  neg     an if/while condition negated
  int     an integer literal plus or minus one
  stmt    a one-line statement (call, assignment, increment) removed
"""
import argparse
import collections
import fnmatch
import os
import random
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PRODUCT_DIRS = ["platform", "editor", "graph", "tools", "dialogs", "processing",
                "resources", "app"]


def product_sources(pattern):
    out = subprocess.run(["git", "ls-files", "--"] + PRODUCT_DIRS, cwd=ROOT,
                         capture_output=True, text=True, check=True).stdout.split()
    files = [f for f in out if f.endswith(".cpp")]
    if pattern:
        files = [f for f in files if fnmatch.fnmatch(f, pattern)]
    return sorted(files)


def code_mask(text):
    """Per character: True where it is code, False inside comments, strings and
    preprocessor lines, so mutations never land there."""
    mask = [True] * len(text)
    i, n = 0, len(text)
    line_start = True
    while i < n:
        c = text[i]
        if line_start and c == "#":
            j = text.find("\n", i)
            j = n if j < 0 else j
            for k in range(i, j):
                mask[k] = False
            i = j
            continue
        if c == "\n":
            line_start = True
            i += 1
            continue
        if not c.isspace():
            line_start = False
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            for k in range(i, j):
                mask[k] = False
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            for k in range(i, j):
                mask[k] = False
            i = j
        elif c in "\"'":
            j = i + 1
            while j < n and text[j] != c:
                j += 2 if text[j] == "\\" else 1
            for k in range(i, min(j + 1, n)):
                mask[k] = False
            i = j + 1
        else:
            i += 1
    return mask


Site = collections.namedtuple("Site", "file offset length kind original replacement line")

REL = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}
BOUND = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}


def find_sites(path):
    text = open(os.path.join(ROOT, path), encoding="utf-8", errors="surrogateescape").read()
    mask = code_mask(text)
    sites = []

    def line_of(off):
        return text.count("\n", 0, off) + 1

    def add(off, length, kind, repl):
        if all(mask[off:off + length]):
            sites.append(Site(path, off, length, kind, text[off:off + length], repl, line_of(off)))

    # Relational operators with spaces around them: templates, shifts, arrows
    # and stream operators are written without, or are other tokens.
    for m in re.finditer(r"(?<=[\w)\]]) (==|!=|<=|>=|<|>) (?=[\w(!\-.])", text):
        op = m.group(1)
        off = m.start(1)
        add(off, len(op), "rel", REL[op])
        if op in BOUND:
            add(off, len(op), "bound", BOUND[op])
    for m in re.finditer(r" (&&|\|\|) ", text):
        add(m.start(1), 2, "logic", "||" if m.group(1) == "&&" else "&&")
    for m in re.finditer(r"\b(if|while) \(", text):
        start = m.end()
        depth, j = 1, start
        while j < len(text) and depth:
            depth += {"(": 1, ")": -1}.get(text[j], 0)
            j += 1
        cond = text[start:j - 1]
        if "\n" not in cond and cond.strip() and all(mask[start:j - 1]):
            sites.append(Site(path, start, j - 1 - start, "neg", cond, "!(" + cond + ")",
                              line_of(start)))
    for m in re.finditer(r"(?<![\w.])(\d+)(?![\w.])", text):
        value = int(m.group(1))
        add(m.start(1), len(m.group(1)), "int", str(value + 1 if value < 2 else value - 1))
    # Whole statements on one line inside a function body (indented), not
    # declarations or returns: calls, assignments, increments.
    for m in re.finditer(r"(?m)^( {4,})((?:[\w:.\->\[\]()*&]+ ?(?:[-+*/|&]?=|\+\+|--|\())[^;{}\n]*;)[ \t]*$", text):
        stmt = m.group(2)
        if not stmt.startswith("return"):
            add(m.start(2), len(stmt), "stmt", ";")
    # drop mutations that leave the text unchanged
    return [s for s in sites if s.original != s.replacement]


def line_text(site):
    text = open(os.path.join(ROOT, site.file), encoding="utf-8", errors="surrogateescape").read()
    return text.splitlines()[site.line - 1]


def replay(path):
    """Finds each kept mutant again: the site of the same kind and text whose
    line reads the same, nearest to the line number it had."""
    import ast
    sample = []
    for row in open(path):
        f, line, kind, orig, repl, text = row.rstrip("\n").split("\t")
        orig, repl, text, line = ast.literal_eval(orig), ast.literal_eval(repl), ast.literal_eval(text), int(line)
        if not os.path.exists(os.path.join(ROOT, f)):
            print(f"gone: {f}:{line}", file=sys.stderr)
            continue
        same = [s for s in find_sites(f) if s.kind == kind and s.original == orig
                and s.replacement == repl and line_text(s) == text]
        if not same:
            print(f"gone: {f}:{line} {kind} {orig!r}", file=sys.stderr)
            continue
        sample.append(min(same, key=lambda s: abs(s.line - line)))
    return sample


def library_of(path):
    """The CMake target built from this file: the add_library or
    add_executable of the nearest CMakeLists.txt above it that names it."""
    d = os.path.dirname(path)
    while d:
        cml = os.path.join(ROOT, d, "CMakeLists.txt")
        if os.path.exists(cml):
            text = open(cml).read()
            rel = os.path.relpath(path, d)
            for m in re.finditer(r"add_(?:library|executable)\((\S+)([^)]*)\)", text, re.S):
                if rel in m.group(2).split() or os.path.basename(path) in m.group(2).split():
                    return m.group(1)
            targets = re.findall(r"add_(?:library|executable)\((\S+)", text)
            if len(targets) == 1:
                return targets[0]
        d = os.path.dirname(d)
    return None


def tests_linking(build, target):
    """Test executables (tst_*) that depend on target, directly or not,
    read from CMake's dependency graph."""
    dot = os.path.join(build, "mutants-deps", "deps.dot")
    if not os.path.exists(dot):
        os.makedirs(os.path.dirname(dot), exist_ok=True)
        subprocess.run(["cmake", "--graphviz=" + dot, "."], cwd=build,
                       capture_output=True, check=True)
    text = open(dot).read()
    names = dict(re.findall(r'"(node\d+)" \[ label = "([^"]+)"', text))
    edges = collections.defaultdict(set)   # dependency -> dependents
    for a, b in re.findall(r'"(node\d+)" -> "(node\d+)"', text):
        edges[names.get(b)].add(names.get(a))
    seen, todo = set(), [target]
    while todo:
        t = todo.pop()
        for dep in edges.get(t, ()):
            if dep not in seen:
                seen.add(dep)
                todo.append(dep)
    if target.startswith("tst_"):
        seen.add(target)
    # Programs reach their tests through add_dependencies and $<TARGET_FILE>,
    # which the graph leaves out: take the tests of the files that name them.
    for d, _, files in os.walk(os.path.join(ROOT, "tests")):
        for f in files:
            if f == "CMakeLists.txt" or f.endswith(".cmake"):
                text = open(os.path.join(d, f)).read()
                if f"TARGET_FILE:{target}>" in text:
                    seen.update(re.findall(r"\b(tst_\w+)", text))
    return sorted(n for n in seen if n and n.startswith("tst_"))


def run(cmd, cwd, timeout):
    try:
        p = subprocess.run(cmd, cwd=cwd, capture_output=True, text=True, timeout=timeout)
        return p.returncode, p.stdout + p.stderr
    except subprocess.TimeoutExpired:
        return None, ""


def ctest_cmd(tests, timeout):
    regex = "^(" + "|".join(tests) + ")$"
    return ["xvfb-run", "-a", "-s", "-screen 0 1600x1000x24",
            "env", "QT_QPA_PLATFORM=xcb",
            "ctest", "-R", regex, "--timeout", str(timeout), "--stop-on-failure", "-j2"]


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("-n", type=int, default=80)
    ap.add_argument("--files", default="", help="glob of product sources, e.g. 'platform/ptcloud/algo/*'")
    ap.add_argument("--build", default=os.path.join(ROOT, "build"))
    ap.add_argument("--list", action="store_true", help="print the sample and stop")
    ap.add_argument("--out", default="", help="also write one row per mutant (tab separated)")
    ap.add_argument("--save", default="", help="write the sample to this file")
    ap.add_argument("--replay", default="", help="run the sample kept in this file")
    args = ap.parse_args()

    if args.replay:
        sample = replay(args.replay)
        print(f"sample of {len(sample)} from {args.replay}")
    else:
        sites = [s for f in product_sources(args.files) for s in find_sites(f)]
        sites.sort(key=lambda s: (s.file, s.offset, s.kind))
        sample = random.Random(args.seed).sample(sites, min(args.n, len(sites)))
        sample.sort(key=lambda s: (s.file, s.offset, s.kind))
        print(f"{len(sites)} sites in {len(set(s.file for s in sites))} files; "
              f"sample of {len(sample)} (seed {args.seed})")
    if args.save:
        with open(args.save, "w") as h:
            for s in sample:
                h.write("\t".join([s.file, str(s.line), s.kind, repr(s.original),
                                    repr(s.replacement), repr(line_text(s))]) + "\n")
    if args.list:
        for s in sample:
            print(f"{s.file}:{s.line}\t{s.kind}\t{s.original!r} -> {s.replacement!r}")
        return 0

    current = {}          # file -> original text while mutated

    def restore(*_):
        for f, text in current.items():
            with open(os.path.join(ROOT, f), "w", encoding="utf-8", errors="surrogateescape") as h:
                h.write(text)
        current.clear()

    def interrupted(signum, frame):
        restore()
        print("\ninterrupted: sources restored", file=sys.stderr)
        sys.exit(130)

    signal.signal(signal.SIGINT, interrupted)
    signal.signal(signal.SIGTERM, interrupted)

    baseline = {}         # target -> (tests, seconds)
    rows = []
    try:
        for i, s in enumerate(sample, 1):
            target = library_of(s.file)
            if target not in baseline:
                tests = tests_linking(args.build, target) if target else []
                t0 = time.time()
                if tests:
                    code, _ = run(["cmake", "--build", ".", "-j2", "--target"] + tests, args.build, 3600)
                    if code != 0:
                        print(f"baseline build of {target}'s tests fails; fix the tree first", file=sys.stderr)
                        return 2
                    t0 = time.time()
                    code, out = run(ctest_cmd(tests, 600), args.build, 3600)
                    if code != 0:
                        print(f"baseline tests of {target} fail:\n{out[-2000:]}", file=sys.stderr)
                        return 2
                baseline[target] = (tests, time.time() - t0)
            tests, seconds = baseline[target]
            path = os.path.join(ROOT, s.file)
            text = open(path, encoding="utf-8", errors="surrogateescape").read()
            current[s.file] = text
            mutated = text[:s.offset] + s.replacement + text[s.offset + s.length:]
            with open(path, "w", encoding="utf-8", errors="surrogateescape") as h:
                h.write(mutated)
            if not tests:
                result = "no-tests"
            else:
                code, _ = run(["cmake", "--build", ".", "-j2", "--target"] + tests, args.build, 1800)
                if code != 0:
                    result = "build-failed"
                else:
                    limit = int(max(60, 3 * seconds))
                    code, out = run(ctest_cmd(tests, limit), args.build, limit * len(tests) + 60)
                    if code is None or "Timeout" in out:
                        result = "timed-out"
                    elif code == 0:
                        result = "survived"
                    else:
                        result = "killed"
            restore()
            rows.append((s, result))
            print(f"[{i}/{len(sample)}] {result:12} {s.file}:{s.line} {s.kind} "
                  f"{s.original!r} -> {s.replacement!r}", flush=True)
    finally:
        restore()

    per_file = collections.defaultdict(collections.Counter)
    for s, r in rows:
        per_file[s.file][r] += 1
    kinds = ["killed", "survived", "timed-out", "build-failed", "no-tests"]
    print("\n| file | " + " | ".join(kinds) + " |")
    print("|---|" + "--:|" * len(kinds))
    total = collections.Counter()
    for f in sorted(per_file):
        total.update(per_file[f])
        print(f"| {f} | " + " | ".join(str(per_file[f][k]) for k in kinds) + " |")
    print("| all | " + " | ".join(str(total[k]) for k in kinds) + " |")
    # Build failures are not mutants at all; a time-out counts as caught.
    judged = total["killed"] + total["survived"] + total["timed-out"]
    if judged:
        print(f"\nkill rate: {100.0 * (total['killed'] + total['timed-out']) / judged:.1f} % "
              f"of {judged} mutants that built (seed {args.seed})")
    print("survivors:")
    for s, r in rows:
        if r == "survived":
            print(f"  {s.file}:{s.line} {s.kind} {s.original!r} -> {s.replacement!r}")
    if args.out:
        with open(args.out, "w") as h:
            for s, r in rows:
                h.write(f"{s.file}\t{s.line}\t{s.kind}\t{s.original}\t{s.replacement}\t{r}\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
