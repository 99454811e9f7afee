#!/usr/bin/env python3
"""Checks the man page's EXIT STATUS list against the return-code table.

Usage: check_man_exit_status.py MANPAGE TABLE
TABLE holds "code<TAB>message" lines (print_return_codes). Every code that
can be an exit status (0-255) with a message must be listed with exactly
that message; codes 7 and 8 (empty messages) must be listed; nothing else
may be listed except the signal statuses 128 + N.
"""
import re
import sys

SIGNAL_STATUSES = {129: "SIGHUP", 130: "SIGINT", 131: "SIGQUIT", 143: "SIGTERM"}


def man_entries(path):
    text = open(path, encoding="utf-8").read()
    m = re.search(r"^\.Sh EXIT STATUS\n(.*?)^\.Sh ", text, re.M | re.S)
    if not m:
        sys.exit("no EXIT STATUS section")
    block = re.search(r"^\.Bl .*?\n(.*?)^\.El", m.group(1), re.M | re.S).group(1)
    entries = {}
    for item in re.split(r"^\.It ", block, flags=re.M)[1:]:
        head, _, body = item.partition("\n")
        # Text lines joined as the formatter joins them.
        words = " ".join(l for l in body.splitlines() if not l.startswith("."))
        entries[int(head)] = " ".join(words.split())
    return entries


def main():
    man, table = sys.argv[1], sys.argv[2]
    entries = man_entries(man)
    problems = []
    codes = {}
    for line in open(table, encoding="utf-8"):
        code, _, message = line.rstrip("\n").partition("\t")
        codes[int(code)] = message
    for code, message in codes.items():
        if code > 255:
            continue  # qualifiers never reach the exit status
        if message:
            if entries.get(code) != message:
                problems.append(f"{code}: table says {message!r}, man page {entries.get(code)!r}")
        elif code in (7, 8) and code not in entries:
            problems.append(f"{code}: missing from the man page")
    for code, text in entries.items():
        if code in SIGNAL_STATUSES:
            if SIGNAL_STATUSES[code] not in text:
                problems.append(f"{code}: should name {SIGNAL_STATUSES[code]}")
        elif code not in codes or (not codes[code] and code not in (7, 8)):
            problems.append(f"{code}: listed in the man page but not a return code")
    for p in problems:
        print(p)
    print(f"{len(entries)} exit statuses checked, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
