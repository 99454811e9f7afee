#!/usr/bin/env python3
"""Plugs the simulated BMC's USB stick into the guest and pulls it out,
through QEMU's QMP socket. The BMC runs it as its attach/detach hook:

    stick.py --qmp SOCKET [--write-bps N] attach IMAGE
    stick.py --qmp SOCKET detach IMAGE     (also: yank, for a pull mid-copy)

attach: a raw block node on IMAGE (behind a throttle filter when
--write-bps is given, for a slow stick), then a removable usb-storage
device on the guest's xHCI bus. detach: device_del, wait for the guest to
let go (DEVICE_DELETED), then remove the block nodes, which flushes what
the guest wrote into IMAGE. Every step is bounded by a time limit.
"""
import argparse
import json
import socket
import sys
import time

DEVICE_ID = "vrxstick"
RAW_NODE = "vrxstick-raw"
TOP_NODE = "vrxstick-top"
GROUP = "vrxstick-group"


class Qmp:
    def __init__(self, path, timeout):
        self.deadline = time.monotonic() + timeout
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(timeout)
        self.sock.connect(path)
        self.buf = b""
        self.events = []
        self.read()  # greeting
        self.call("qmp_capabilities")

    def read(self):
        while b"\n" not in self.buf:
            self.sock.settimeout(max(0.1, self.deadline - time.monotonic()))
            chunk = self.sock.recv(65536)
            if not chunk:
                raise RuntimeError("QMP connection closed")
            self.buf += chunk
        line, self.buf = self.buf.split(b"\n", 1)
        return json.loads(line)

    def call(self, command, **arguments):
        msg = {"execute": command}
        if arguments:
            msg["arguments"] = arguments
        self.sock.sendall(json.dumps(msg).encode() + b"\n")
        while True:
            answer = self.read()
            if "event" in answer:
                self.events.append(answer)
                continue
            if "error" in answer:
                raise RuntimeError("%s: %s" % (command, answer["error"].get("desc")))
            return answer.get("return")

    def wait_event(self, name, device):
        while True:
            for e in self.events:
                if e["event"] == name and e.get("data", {}).get("device") == device:
                    return
            self.events = []
            answer = self.read()
            if "event" in answer:
                self.events.append(answer)


def attach(q, image, write_bps):
    q.call("blockdev-add", **{"node-name": RAW_NODE, "driver": "raw",
                              "file": {"driver": "file", "filename": image}})
    top = RAW_NODE
    if write_bps:
        q.call("object-add", **{"qom-type": "throttle-group", "id": GROUP,
                                "limits": {"bps-write": write_bps}})
        q.call("blockdev-add", **{"node-name": TOP_NODE, "driver": "throttle",
                                  "throttle-group": GROUP, "file": RAW_NODE})
        top = TOP_NODE
    q.call("device_add", driver="usb-storage", id=DEVICE_ID, drive=top,
           bus="usbc.0", removable=True)


def detach(q):
    # A stick already gone (pulled earlier) is not an error.
    try:
        q.call("device_del", id=DEVICE_ID)
        q.wait_event("DEVICE_DELETED", DEVICE_ID)
    except RuntimeError as e:
        if "not found" not in str(e):
            raise
    nodes = [n.get("node-name") for n in q.call("query-named-block-nodes")]
    if TOP_NODE in nodes:
        q.call("blockdev-del", **{"node-name": TOP_NODE})
    if RAW_NODE in nodes:
        q.call("blockdev-del", **{"node-name": RAW_NODE})
    try:
        q.call("object-del", id=GROUP)
    except RuntimeError:
        pass


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--qmp", required=True)
    p.add_argument("--write-bps", type=int, default=0)
    p.add_argument("--timeout", type=float, default=20.0)
    p.add_argument("--log")
    p.add_argument("action", choices=["attach", "detach", "yank"])
    p.add_argument("image")
    a = p.parse_args()
    start = time.monotonic()
    try:
        q = Qmp(a.qmp, a.timeout)
        if a.action == "attach":
            attach(q, a.image, a.write_bps)
        else:
            detach(q)
        result = "ok"
    except (OSError, RuntimeError, ValueError) as e:
        result = "failed: %s" % e
    if a.log:
        with open(a.log, "a") as f:
            f.write("%.3f %s %s %s (%.0f ms)\n" % (time.time(), a.action, a.image,
                                                   result, (time.monotonic() - start) * 1000))
    if result != "ok":
        print("stick: %s %s" % (a.action, result), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
