#!/usr/bin/python3
"""Read-only TFTP server (RFC 1350) for the simulated BMC's tests.

Serves the files of one directory on a loopback address. Options that a
client asks for are ignored, which the protocol allows (the client then
falls back to 512-byte blocks).

usage: tftpd.py ADDRESS PORT DIRECTORY
"""
import os
import socket
import struct
import sys
import threading

BLOCK = 512
TIMEOUT_S = 1.0
RETRIES = 5
OP_RRQ, OP_WRQ, OP_DATA, OP_ACK, OP_ERROR = 1, 2, 3, 4, 5


def error_packet(code, text):
    return struct.pack("!HH", OP_ERROR, code) + text.encode() + b"\0"


def resolve(root, name):
    name = name.lstrip("/")
    path = os.path.realpath(os.path.join(root, name))
    if not path.startswith(os.path.realpath(root) + os.sep):
        return None
    return path


def serve(root, address, client, request):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind((address, 0))
    sock.settimeout(TIMEOUT_S)
    try:
        opcode = struct.unpack("!H", request[:2])[0]
        if opcode != OP_RRQ:
            sock.sendto(error_packet(2, "Access violation"), client)
            return
        name = request[2:].split(b"\0")[0].decode(errors="replace")
        path = resolve(root, name)
        if path is None or not os.path.isfile(path):
            sock.sendto(error_packet(1, "File not found"), client)
            return
        with open(path, "rb") as f:
            block = 1
            while True:
                chunk = f.read(BLOCK)
                packet = struct.pack("!HH", OP_DATA, block & 0xFFFF) + chunk
                for _ in range(RETRIES):
                    sock.sendto(packet, client)
                    try:
                        reply, peer = sock.recvfrom(1024)
                    except socket.timeout:
                        continue
                    if peer != client or len(reply) < 4:
                        continue
                    op, number = struct.unpack("!HH", reply[:4])
                    if op == OP_ERROR:
                        return
                    if op == OP_ACK and number == block & 0xFFFF:
                        break
                else:
                    return
                if len(chunk) < BLOCK:
                    return
                block += 1
    finally:
        sock.close()


def main():
    if len(sys.argv) != 4:
        sys.stderr.write(__doc__)
        return 2
    address, port, root = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind((address, port))
    while True:
        request, client = sock.recvfrom(1024)
        threading.Thread(target=serve, args=(root, address, client, request),
                         daemon=True).start()


if __name__ == "__main__":
    sys.exit(main())
