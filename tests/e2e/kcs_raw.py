#!/usr/bin/python3
"""kcs_raw.py NETFN CMD [DATA...]: one request through the test build of
libopenraw.so (the simulator's system interface), printed like ipmitool:
" xx xx ..." on success; "status=N" or "cc=0xNN" and exit 1 otherwise."""
import ctypes
import os
import sys


def main():
    if len(sys.argv) < 3:
        sys.stderr.write(__doc__)
        return 2
    values = [int(a, 0) for a in sys.argv[1:]]
    netfn, cmd, data = values[0], values[1], bytes(values[2:])
    lib = ctypes.CDLL(os.path.join(os.environ["VRX_SIM_LIBDIR"], "libopenraw.so"))
    lib.RawOpen.restype = ctypes.c_uint32
    lib.RawOpen.argtypes = []
    handle = lib.RawOpen()
    if handle == 0:
        print("status=open")
        return 1
    cc = ctypes.c_ubyte(0xFF)
    response = (ctypes.c_ubyte * 128)()
    length = ctypes.c_ushort(128)
    request = (ctypes.c_ubyte * max(1, len(data)))(*data)
    status = lib.RawRequest(ctypes.c_uint32(handle), ctypes.c_ubyte(netfn << 2),
                            ctypes.c_ubyte(cmd), request, ctypes.c_ubyte(len(data)),
                            ctypes.byref(cc), response, ctypes.byref(length))
    lib.RawClose(ctypes.c_uint32(handle))
    if status != 0:
        print("status=%d" % status)
        return 1
    if cc.value != 0:
        print("cc=0x%02x" % cc.value)
        return 1
    print("".join(" %02x" % b for b in response[:length.value]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
