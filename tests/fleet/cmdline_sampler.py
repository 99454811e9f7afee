#!/usr/bin/python3
"""Samples the command line of every process until STOPFILE appears.

    cmdline_sampler.py OUT STOPFILE SECONDS

Writes each distinct command line seen (arguments joined by blanks) to OUT,
one a line. Stops at STOPFILE or after SECONDS, whichever comes first.
"""
import os
import sys
import time


def sample(seen):
    for pid in os.listdir('/proc'):
        if not pid.isdigit():
            continue
        try:
            with open('/proc/%s/cmdline' % pid, 'rb') as handle:
                raw = handle.read()
        except OSError:
            continue
        if raw:
            seen.add(raw.rstrip(b'\0').replace(b'\0', b' ').decode('utf-8', 'replace'))


def main():
    out, stopfile, seconds = sys.argv[1], sys.argv[2], float(sys.argv[3])
    seen = set()
    deadline = time.monotonic() + seconds
    rounds = 0
    while time.monotonic() < deadline and not os.path.exists(stopfile):
        sample(seen)
        rounds += 1
        time.sleep(0.01)
    with open(out, 'w') as handle:
        for line in sorted(seen):
            handle.write(line + '\n')
    print('sampler: %d rounds, %d distinct command lines' % (rounds, len(seen)))


if __name__ == '__main__':
    main()
