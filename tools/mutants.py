#!/usr/bin/env python3
"""Plants faults in the library one at a time and runs the 64-bit suite on
each: a fault the suite does not notice is a gap in the tests.

    tools/mutants.py [--list FILE] [--only ID[,ID...]] [--exclude REGEX] [--work DIR]

Each fault of the list (tools/mutants.txt) is a text replacement in one file:

    == ID | FILE | what the fault is
    - text that occurs exactly once in FILE (several - lines: several lines)
    + what it becomes (no + line: the text is deleted)

The checkout's tracked files are copied to a scratch tree under DIR
(build-mutants/ by default) and built there once with the sanitizers, as
`make check` builds; then every fault is applied alone, the tree rebuilt
incrementally and the suite run until its first failure. A fault is caught
when the build of the tests or any test fails; the tests that failed are
named. The file is restored before the next fault. --exclude leaves the
tests whose names match REGEX out of the runs, to see which faults only
they catch.
"""

import argparse
import os
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def read_faults(path):
    faults, current = [], None
    with open(path) as f:
        for number, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if line.startswith("=="):
                parts = [p.strip() for p in line[2:].split("|")]
                if len(parts) != 3:
                    sys.exit(f"{path}:{number}: expected '== ID | FILE | description'")
                current = {"id": parts[0], "file": parts[1], "what": parts[2], "old": [], "new": [], "line": number}
                faults.append(current)
            elif line.startswith("- ") or line == "-":
                current["old"].append(line[2:])
            elif line.startswith("+ ") or line == "+":
                current["new"].append(line[2:])
            elif line.strip() and not line.startswith("#"):
                sys.exit(f"{path}:{number}: not a fault line: {line}")
    ids = [f["id"] for f in faults]
    if len(ids) != len(set(ids)):
        sys.exit(f"{path}: fault names repeat")
    return faults


def run(command, cwd, log, timeout=None, env=None):
    with open(log, "w") as out:
        try:
            return subprocess.run(command, cwd=cwd, stdout=out, stderr=subprocess.STDOUT, timeout=timeout,
                                  env=env).returncode
        except subprocess.TimeoutExpired:
            return 124


def copy_tree(tree):
    """Copies the tracked files, keeping the times of those that did not
    change so that the incremental build stays incremental."""
    files = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, capture_output=True, check=True).stdout
    for name in filter(None, files.decode().split("\0")):
        source, target = os.path.join(ROOT, name), os.path.join(tree, name)
        if not os.path.isfile(source):
            continue
        if os.path.exists(target) and open(source, "rb").read() == open(target, "rb").read():
            continue
        os.makedirs(os.path.dirname(target), exist_ok=True)
        shutil.copy2(source, target)


def failed_tests(log):
    names = []
    with open(log, errors="replace") as f:
        for line in f:
            # "  3/122 Test  #12: Turns.QuarterTurnsMatchTheModel ...***Failed  0.5 sec"
            if "***" in line or "(Failed)" in line or "(Timeout)" in line or "(SEGFAULT)" in line:
                for word in line.split():
                    if "." in word and word[0].isalpha() and not word.startswith("sec"):
                        names.append(word)
                        break
    return sorted(set(names))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--list", default=os.path.join(ROOT, "tools", "mutants.txt"))
    parser.add_argument("--only", default="")
    parser.add_argument("--work", default=os.path.join(ROOT, "build-mutants"))
    parser.add_argument("--exclude", default="")
    parser.add_argument("--jobs", default=os.environ.get("JOBS", "2"))
    args = parser.parse_args()

    faults = read_faults(args.list)
    if args.only:
        wanted = set(args.only.split(","))
        faults = [f for f in faults if f["id"] in wanted]
    tree, build = os.path.join(args.work, "tree"), os.path.join(args.work, "build")
    logs = os.path.join(args.work, "logs")
    os.makedirs(logs, exist_ok=True)
    copy_tree(tree)

    # Every fault must apply to the code as it is before any time is spent.
    for f in faults:
        path = os.path.join(tree, f["file"])
        old = "\n".join(f["old"])
        found = open(path).read().count(old) if os.path.isfile(path) and old else 0
        if found != 1:
            sys.exit(f"{args.list}:{f['line']}: {f['id']}: the text occurs {found} times in {f['file']}")

    env = dict(os.environ)
    env["ASAN_OPTIONS"] = "detect_leaks=1"
    env["LSAN_OPTIONS"] = "suppressions=" + os.path.join(tree, "tools", "lsan.supp")
    suite = [os.path.join(tree, "tools", "with-xvfb.sh"), "ctest", "--test-dir", build, "--stop-on-failure",
             "--output-on-failure", "--timeout", "300", "-j", args.jobs] + (["-E", args.exclude] if args.exclude else [])
    if run(["cmake", "-S", tree, "-B", build, "-DCMAKE_BUILD_TYPE=Debug", "-DPICTURE_SANITIZE=ON"], tree,
           os.path.join(logs, "configure.log")) != 0:
        sys.exit(f"mutants: configuring failed, see {logs}/configure.log")
    build_command = ["cmake", "--build", build, "-j", args.jobs]
    if run(build_command, tree, os.path.join(logs, "build.log")) != 0:
        sys.exit(f"mutants: the unchanged tree does not build, see {logs}/build.log")
    if run(suite, tree, os.path.join(logs, "suite.log"), env=env) != 0:
        sys.exit(f"mutants: the suite fails on the unchanged tree, see {logs}/suite.log")

    caught, missed = 0, []
    for f in faults:
        path = os.path.join(tree, f["file"])
        original = open(path).read()
        start = time.time()
        try:
            with open(path, "w") as out:
                out.write(original.replace("\n".join(f["old"]), "\n".join(f["new"]), 1))
            log = os.path.join(logs, f["id"] + ".log")
            if run(build_command, tree, log) != 0:
                verdict, by = "caught", ["(the build)"]
            elif run(suite, tree, log, env=env) != 0:
                verdict, by = "caught", failed_tests(log) or ["(see " + log + ")"]
            else:
                verdict, by = "MISSED", []
        finally:
            with open(path, "w") as out:
                out.write(original)
        if verdict == "caught":
            caught += 1
        else:
            missed.append(f)
        print(f"{verdict:6}  {f['id']:24} {f['file']}: {f['what']}  [{time.time() - start:.0f} s]"
              + (f"\n        by {', '.join(by[:4])}{' …' if len(by) > 4 else ''}" if by else ""), flush=True)

    # Leave the scratch build as the unchanged tree again.
    run(build_command, tree, os.path.join(logs, "build.log"))
    total = len(faults)
    print(f"\nscore: {caught} of {total} faults caught ({100.0 * caught / max(total, 1):.1f} %)")
    for f in missed:
        print(f"missed: {f['id']} ({f['file']}: {f['what']})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
