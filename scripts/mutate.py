#!/usr/bin/env python3
"""A small mutation run over the update and USB procedures.

Each mutant changes one operator or constant on one line of a source file,
rebuilds the unit suites that cover it (update_tests, usb_tests,
golden_tests) and runs them; a mutant that no test kills is a survivor.
Run from the repo root after a Debug build in ./build:

    python3 scripts/mutate.py [--max N] [FILES...]

The sources are restored after every mutant, also on Ctrl-C.
"""
import argparse
import pathlib
import re
import subprocess
import sys

# (name, pattern, replacement): applied to the first match on a line.
OPERATORS = [
    ("== to !=", r"(?<![=!<>])==(?!=)", "!="),
    ("!= to ==", r"!=", "=="),
    ("<= to <", r"<=", "<"),
    (">= to >", r">=", ">"),
    ("< to <=", r"(?<![<-])<(?![<=])", "<="),
    ("> to >=", r"(?<![>-])>(?![>=])", ">="),
    ("&& to ||", r"&&", "||"),
    ("|| to &&", r"\|\|", "&&"),
    ("wait +1", r"DelayMS\((\d+)\)", lambda m: f"DelayMS({int(m.group(1)) + 1})"),
    ("return 0 to 1", r"return 0;", "return 1;"),
    ("true to false", r"\btrue\b", "false"),
    ("constant +1", r"(?<![\w.])([1-9]\d{0,4})(?![\w.])", lambda m: str(int(m.group(1)) + 1)),
]
SKIP_LINE = re.compile(r'^\s*(//|#|\*)|"')  # comments, preprocessor, texts
TESTS = ["update_tests", "usb_tests", "golden_tests"]


def mutants(path):
    lines = path.read_text().split("\n")
    for i, line in enumerate(lines):
        if SKIP_LINE.search(line):
            continue
        for name, pattern, repl in OPERATORS:
            new, n = re.subn(pattern, repl, line, count=1)
            if n and new != line:
                yield i, name, new


def run(cmd, **kw):
    return subprocess.run(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **kw).returncode


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--max", type=int, default=0, help="stop after N mutants")
    ap.add_argument("--build", default="build")
    ap.add_argument("files", nargs="*")
    args = ap.parse_args()
    files = [pathlib.Path(f) for f in args.files] or sorted(
        list(pathlib.Path("src/update").glob("*.cc")) + list(pathlib.Path("src/usb").glob("*.cc")))
    build = ["cmake", "--build", args.build, "-j2", "--target", "vrxfwul"] + TESTS
    if run(build) != 0:
        sys.exit("the unmutated tree does not build")
    total, survivors, unbuildable = 0, [], 0
    for path in files:
        original = path.read_text()
        lines = original.split("\n")
        try:
            for i, name, new in mutants(path):
                if args.max and total >= args.max:
                    break
                total += 1
                mutated = lines[:]
                mutated[i] = new
                path.write_text("\n".join(mutated))
                if run(build) != 0:
                    unbuildable += 1
                    continue
                killed = False
                for t in TESTS:
                    exe = next(pathlib.Path(args.build).rglob(t), None)
                    if exe is None:
                        continue
                    try:
                        failed = run([str(exe)], timeout=300) != 0
                    except subprocess.TimeoutExpired:
                        failed = True  # a mutant that hangs a suite is caught too
                    if failed:
                        killed = True
                        break
                if not killed:
                    survivors.append(f"{path}:{i + 1}: {name}: {new.strip()}")
                    print("SURVIVED", survivors[-1], flush=True)
        finally:
            path.write_text(original)
            # The build tree never keeps a mutant's binaries.
            run(build)
    tested = total - unbuildable
    print(f"mutants: {total}, built: {tested}, killed: {tested - len(survivors)}, "
          f"survived: {len(survivors)}")
    for s in survivors:
        print("  " + s)


if __name__ == "__main__":
    main()
