#!/usr/bin/env python3
"""Mutation sample: applies each single-token change of a mutant list, one at
a time, builds, runs every test, and counts the mutants some test kills (a
failing or timed-out test). A mutant that does not build is not counted.

    scripts/mutation-sample.py [--list FILE] [--first N] [--last N] [--hint LOG]

The list (default scripts/mutants.txt) has one mutant a line, fields split by
" ¦ ":  path ¦ text as it stands ¦ text to put in its place ¦ what it does
The text must occur exactly once in the file. Builds into build-mutants/ (or
$PLOTVIK_BUILD_DIR); each source is restored after its mutant, also when the
run is interrupted. Results go to <build>/mutants.log as well.

--hint takes the log of an earlier run: a test that killed a mutant then is
run alone first, and the whole suite only when it passes. The verdict is the
same (a mutant is killed when any test fails); the run is much shorter.
"""
import argparse
import os
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def parse(list_path):
    mutants = []
    for line in Path(list_path).read_text(encoding="utf-8").splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        fields = [f.strip() for f in line.split(" ¦ ")]
        if len(fields) != 4:
            sys.exit(f"bad mutant line: {line}")
        mutants.append(fields)
    return mutants


def hints(log_path):
    """Mutant number -> name of the test that killed it in an earlier run."""
    named = {}
    if log_path:
        for line in Path(log_path).read_text(encoding="utf-8").splitlines():
            m = re.match(r"mutant (\d+) .* -> killed by (\S+)$", line)
            if m and m.group(2) != "a":
                named[int(m.group(1))] = m.group(2)
    return named


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--list", default=str(ROOT / "scripts" / "mutants.txt"))
    ap.add_argument("--first", type=int, default=1)
    ap.add_argument("--last", type=int, default=10**9)
    ap.add_argument("--hint", help="log of an earlier run: try its killing tests first")
    args = ap.parse_args()

    build = Path(os.environ.get("PLOTVIK_BUILD_DIR", ROOT / "build-mutants"))
    mutants = parse(args.list)
    first_try = hints(args.hint)
    for path, old, _, _ in mutants:
        count = (ROOT / path).read_text(encoding="utf-8").count(old)
        if count != 1:
            sys.exit(f'"{old}" occurs {count} times in {path}')

    env = dict(os.environ, PLOTVIK_BUILD_DIR=str(build))
    subprocess.run([str(ROOT / "scripts" / "build.sh")], env=env, check=True, stdout=subprocess.DEVNULL)
    jobs = str(os.cpu_count() or 2)
    test_env = dict(os.environ, QT_QPA_PLATFORM="offscreen")
    killed = survived = stillborn = 0
    with open(build / "mutants.log", "w", encoding="utf-8") as log:
        def say(text):
            print(text, flush=True)
            log.write(text + "\n")
            log.flush()

        for n, (path, old, new, what) in enumerate(mutants, start=1):
            if n < args.first or n > args.last:
                continue
            source = ROOT / path
            original = source.read_bytes()
            try:
                source.write_bytes(original.decode("utf-8").replace(old, new, 1).encode("utf-8"))
                built = subprocess.run(["cmake", "--build", str(build), "--parallel", jobs],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                if built.returncode != 0:
                    stillborn += 1
                    result = "did not build"
                else:
                    tests = None
                    if n in first_try:
                        hinted = subprocess.run(["ctest", "--timeout", "300", "-R", "^" + re.escape(first_try[n]) + "$"],
                                                cwd=build, env=test_env, capture_output=True, text=True)
                        if hinted.returncode != 0 and "No tests were found" not in hinted.stdout + hinted.stderr:
                            tests = hinted
                    if tests is None:
                        tests = subprocess.run(["ctest", "--timeout", "300", "-j", jobs, "--stop-on-failure"],
                                               cwd=build, env=test_env, capture_output=True, text=True)
                    if tests.returncode == 0:
                        survived += 1
                        result = "SURVIVED"
                    else:
                        killed += 1
                        failed = re.findall(r"Test +#\d+: (\S+) \.+\**(?:Failed|Timeout|Exception|Subprocess|Child)",
                                            tests.stdout)
                        result = "killed by " + (failed[0] if failed else "a failing test")
            finally:
                source.write_bytes(original)
            say(f"mutant {n} {path}: {what} -> {result}")
    # Bring the build back in line with the sources.
    subprocess.run(["cmake", "--build", str(build), "--parallel", jobs], stdout=subprocess.DEVNULL)
    total = killed + survived
    summary = f"killed {killed} of {total} mutants that built ({stillborn} did not build)"
    if total:
        summary += f": kill rate {100.0 * killed / total:.1f} %"
    print(summary)
    with open(build / "mutants.log", "a", encoding="utf-8") as log:
        log.write(summary + "\n")


if __name__ == "__main__":
    main()
