#!/usr/bin/env python3
"""Writes a directory tree as an uncompressed newc cpio archive (the format
the kernel unpacks as an initramfs), every entry owned by root.

    mkcpio.py OUT ROOT
"""
import os
import stat
import sys


def entry(out, name, st, data, ino):
    mode = st.st_mode
    header = "070701" + "".join("%08X" % v for v in (
        ino, mode, 0, 0, 1, int(st.st_mtime), len(data), 0, 0, 0, 0,
        len(name) + 1, 0))
    out.write(header.encode() + name.encode() + b"\0")
    out.write(b"\0" * (-(110 + len(name) + 1) % 4))
    out.write(data)
    out.write(b"\0" * (-len(data) % 4))


def main():
    out_path, root = sys.argv[1], sys.argv[2]
    ino = 1
    with open(out_path, "wb") as out:
        for top, dirs, files in os.walk(root):
            dirs.sort()
            rel_top = os.path.relpath(top, root)
            names = [] if rel_top == "." else [rel_top]
            names += [os.path.normpath(os.path.join(rel_top, f)) for f in sorted(files)]
            # Symbolic links to directories are listed in dirs but not walked.
            names += [os.path.normpath(os.path.join(rel_top, d)) for d in dirs
                      if os.path.islink(os.path.join(top, d))]
            for name in names:
                path = os.path.join(root, name)
                st = os.lstat(path)
                if stat.S_ISLNK(st.st_mode):
                    data = os.readlink(path).encode()
                elif stat.S_ISREG(st.st_mode):
                    with open(path, "rb") as f:
                        data = f.read()
                else:
                    data = b""
                entry(out, name, st, data, ino)
                ino += 1
        empty = os.stat_result((0o100644, 0, 0, 1, 0, 0, 0, 0, 0, 0))
        entry(out, "TRAILER!!!", empty, b"", 0)


if __name__ == "__main__":
    main()
