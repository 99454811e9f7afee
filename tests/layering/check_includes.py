#!/usr/bin/env python3
"""Fails when a product source includes a header from a higher layer.

The layers, top to bottom; a file may include its own directory and any
directory below it, never one above. Files directly in src/ (the shared
types) form the bottom layer with src/common.
"""
import pathlib
import re
import sys

LAYERS = [
    ["driver"],                 # main, options, dispatch
    ["update"],                 # the update procedures
    ["usb"],                    # the virtual USB device
    ["bmc", "image"],           # BMC records and search; image files
    ["ipmi"],                   # requests, transports, commands
    ["output"],                 # messages, log, XML reports
    ["common"],                 # settings record, return codes
    ["platform"],               # the one seam to the OS
    [""],                       # src/types.h
]
RANK = {name: i for i, group in enumerate(LAYERS) for name in group}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def layer_of(path, src):
    rel = path.relative_to(src)
    return rel.parts[0] if len(rel.parts) > 1 else ""


def module_cycles(src):
    """Modules (x.h with its x.cc) that depend on each other in a circle."""
    deps = {}
    for path in src.rglob("*"):
        if path.suffix not in (".h", ".cc") or not path.is_file():
            continue
        module = str(path.relative_to(src).with_suffix(""))
        for target in INCLUDE.findall(path.read_text(errors="replace")):
            other = str(pathlib.PurePosixPath(target).with_suffix(""))
            if other != module and (src / target).exists():
                deps.setdefault(module, set()).add(other)
    problems, state = [], {}

    def visit(node, stack):
        state[node] = 1
        for nxt in sorted(deps.get(node, ())):
            if state.get(nxt) == 1:
                circle = stack[stack.index(nxt):] + [nxt]
                problems.append("modules depend on each other: " + " -> ".join(circle))
            elif nxt not in state:
                visit(nxt, stack + [nxt])
        state[node] = 2

    for node in sorted(deps):
        if node not in state:
            visit(node, [node])
    return problems


def main():
    src = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "src").resolve()
    problems = []
    for path in sorted(src.rglob("*")):
        if path.suffix not in (".h", ".cc") or not path.is_file():
            continue
        own = layer_of(path, src)
        if own not in RANK:
            continue  # components outside the program's layers
        for target in INCLUDE.findall(path.read_text(errors="replace")):
            parts = pathlib.PurePosixPath(target).parts
            other = parts[0] if len(parts) > 1 else ""
            if other not in RANK or (src / target).exists() is False:
                continue
            if RANK[other] < RANK[own]:
                problems.append(f"{path.relative_to(src.parent)}: includes "
                                f"\"{target}\" from the higher layer '{other}'")
    problems += module_cycles(src)
    for line in problems:
        print(line)
    if problems:
        print(f"{len(problems)} include(s) run up the layers", file=sys.stderr)
        return 1
    print("includes run down the layers")
    return 0


if __name__ == "__main__":
    sys.exit(main())
