#!/usr/bin/env python3
"""The real vrxfwul stopped by a signal inside each step of a virtual-USB update.

Each run is the foreground job of a pseudo-terminal, inside a mount namespace
of its own (unshare), so that nothing it mounts or creates reaches the host:
/media and /mnt are bind mounts of directories of the case, /sbin/fdisk is a
fake, and fake mkdir, mount, umount, rm and df come first on PATH. The fakes
record their argument vectors, keep a mount table of their own that df
reports, and really mount a tmpfs on the scratch directory, so that the
program's mount-point checks see what they would see with a stick. The
stick is a loop device over a small sparse file (its size is read with
BLKGETSIZE). The BMC is the scripted test library (tests/openraw).

A step run by a child is held by its fake until the test releases it, so the
signal arrives while the program waits for that command; steps inside the
program are held by the scripted BMC (an unanswered request, a status that
never changes, a BMC that stays down after its reset) or by a slow reader at
the other end of the image file (the copy). Every case then checks:
  - the exit status is 128 + the signal's number,
  - the terminal and the log say "   Interrupted by SIGxxx: ...",
  - the fake mount table is empty and no scratch directory is left,
  - a second run against the same BMC succeeds,
and records the time from the signal (or, while a command ran, from that
command's end) to the exit. A table of those times ends the output.

Usage: usb_steps_test.py VRXFWUL OPENRAW_DIR [STEP]
(VRX_USB_STEPS_KEEP=1 keeps the cases' directories for a look.)
Exits 77 (skipped) without root, unshare or a loop device.
"""
import concurrent.futures
import os
import pty
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
import zlib

VRXFWUL, OPENRAW_DIR = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
# An optional third argument runs only the steps whose name contains it.
ONLY = sys.argv[3] if len(sys.argv) > 3 else ""
SKIP = 77
WORKERS = 12
STEP_LIMIT = 60  # seconds for a run to reach its step
EXIT_LIMIT = 30  # seconds from the signal to the exit
LOCK = threading.Lock()

# --- the BMC -------------------------------------------------------------
# Update Firmware (source virtual USB, target 0x80) gives task 1; phase 1
# and 2 are accepted; the BMC is ready after the 16 polls the program
# always makes, and the update completes at the first poll after phase 2.
INIT = "08 01 03 80"
READY = "08 02 01 = 00 03 *16"
SCRIPT_DONE = """\
08 01 03 80 = 00 01
08 04 01 00 = 00
08 04 01 01 = 00
08 02 01 = 00 03 *16 | 00 ff 64
08 01 aa 02 = 00 06 31 2e 30 30 2e 30
"""
# Variants that hold the run in one step.
SCRIPT_INIT_SILENT = SCRIPT_DONE.replace("08 01 03 80 = 00 01", "08 01 03 80 = silent")
SCRIPT_NEVER_READY = SCRIPT_DONE.replace("00 03 *16 | 00 ff 64", "00 04")
SCRIPT_PROGRAMMING = SCRIPT_DONE.replace("| 00 ff 64", "| 00 02 32")
SCRIPT_STAYS_DOWN = SCRIPT_DONE + "down-after 06 02 10000\n"

CONFIG = ("PhaseOneWaitingTime = 5\nFwUpdateWaitingTime = 600\n"
          "USBDeviceSearchingRetry = 0\nIPMICommandRetry = %d\n"
          "FwRebootWaitingTime = %d\n")
IMAGE_BODY = 64 * 1024
SLOW_IMAGE_BODY = 1024 * 1024

# --- the host's fake tools ----------------------------------------------
PRELUDE = """#!/bin/sh
# Fake %(tool)s: records its arguments; held at the call VRX_FAKE_BLOCK
# names ("tool:n") until the test creates the release file.
tool=%(tool)s
state=$VRX_FAKE_STATE
echo "$tool $*" >>"$state/$VRX_FAKE_CALLS"
n=$(grep -c "^$tool " "$state/$VRX_FAKE_CALLS")
if [ "${VRX_FAKE_BLOCK:-}" = "$tool:$n" ]; then
  : >"$state/reached"
  i=0
  while [ ! -e "$state/release" ] && [ $i -lt 3000 ]; do sleep 0.01; i=$((i + 1)); done
fi
"""
FAKES = {
    "fdisk": """
cat <<EOF
Disk /dev/vda: 252 GiB, 270582939648 bytes, 528482304 sectors
Units: sectors of 1 * 512 = 512 bytes
Sector size (logical/physical): 512 bytes / 512 bytes
I/O size (minimum/optimal): 512 bytes / 512 bytes

EOF
# The BMC's device appears after phase 1, i.e. from the second listing on.
if [ "$n" -ge 2 ]; then
cat <<EOF
Disk $VRX_FAKE_STICK: 64 MiB, 67108864 bytes, 131072 sectors
Units: sectors of 1 * 512 = 512 bytes
Sector size (logical/physical): 512 bytes / 512 bytes
I/O size (minimum/optimal): 512 bytes / 512 bytes
Disklabel type: dos
Disk identifier: 0x00000000
EOF
fi
""",
    "mkdir": 'exec %(mkdir)s "$@"\n',
    "rm": 'exec %(rm)s "$@"\n',
    "mount": """
dev=$1
dir=$2
if [ -e "$state/mount-fails" ]; then
  echo "mount: $dir: wrong fs type, bad option, bad superblock on $dev." >&2
  exit 32
fi
[ -b "$dev" ] || { echo "mount: $dev: not a block device" >&2; exit 32; }
%(mount)s -t tmpfs -o size=8m vrx-stick "$dir" || exit 32
if [ -n "${VRX_FAKE_SLOW_COPY:-}" ]; then
  # The image file is the test's pipe: ClearDisk cannot remove a mount
  # point, and the copy goes at the pace of the test's reader.
  : >"$dir/firmimg.k9"
  %(mount)s --bind "$state/copy.fifo" "$dir/firmimg.k9" || exit 32
fi
echo "$dev $dir" >"$state/mtab/$(echo "$dir" | tr / _)"
""",
    "umount": """
dir=$1
entry="$state/mtab/$(echo "$dir" | tr / _)"
[ -e "$entry" ] || { echo "umount: $dir: not mounted." >&2; exit 32; }
%(umount)s -R "$dir" || exit 32
%(rm)s -f "$entry"
""",
    "df": """
echo "Filesystem              Type      Size  Used Avail Use%% Mounted on"
echo "/dev/vda                ext4      252G   16G   80G  17%% /"
echo "tmpfs                   tmpfs     1.0M     0  1.0M   0%% /media"
for f in "$state"/mtab/*; do
  [ -e "$f" ] || continue
  read -r dev dir <"$f"
  printf '%%-23s vfat       59M   14K   56M   1%%%% %%s\\n' "$dev" "$dir"
done
""",
}
ENTER = """#!/bin/sh
# Runs inside the new mount namespace: the case's own /media and /mnt, the
# fake fdisk, then the program.
set -e
%(mount)s --bind "$VRX_FAKE_ROOT/media" /media
%(mount)s --bind "$VRX_FAKE_ROOT/mnt" /mnt
%(mount)s --bind "$VRX_FAKE_BIN/fdisk" /sbin/fdisk
exec "$@"
"""

FAILURES = []
TIMINGS = {}  # (step, signal name) -> (signal to exit, command end to exit)


def check(what, ok, detail=""):
    with LOCK:
        if ok:
            print("ok:", what)
        else:
            print("FAIL:", what, detail)
            FAILURES.append(what)
        sys.stdout.flush()


def make_image(path, body_size):
    # A valid 512-byte header (CRC-32 over bytes 4..511, two partitions,
    # version 1.00, board "WEVB") and a body of zeros.
    h = bytearray(512)
    h[4], h[5], h[6], h[8] = 1, 0xAE, 2, 1
    struct.pack_into("<I", h, 12, 512 + body_size)
    h[24:28] = b"WEVB"
    offset = 512
    for i in range(2):
        size = body_size // 2 if i == 0 else body_size - body_size // 2
        struct.pack_into("<II", h, 32 + 12 * i, offset, size)
        offset += size
    struct.pack_into("<I", h, 0, zlib.crc32(bytes(h[4:])))
    with open(path, "wb") as f:
        f.write(bytes(h))
        f.truncate(512 + body_size)


class Host:
    """The fake tools, the stick and the real tools they call."""

    def __init__(self, root):
        self.root = root
        self.bin = os.path.join(root, "bin")
        os.mkdir(self.bin)
        real = {}
        for name in ("mount", "umount", "mkdir", "rm"):
            real[name] = shutil.which(name, path="/usr/bin:/bin:/usr/sbin:/sbin")
            if real[name] is None:
                raise SystemExit("cannot find %s" % name)
        for tool, body in FAKES.items():
            path = os.path.join(self.bin, tool)
            with open(path, "w") as f:
                f.write(PRELUDE % {"tool": tool} + body % real)
            os.chmod(path, 0o755)
        self.enter = os.path.join(root, "enter.sh")
        with open(self.enter, "w") as f:
            f.write(ENTER % real)
        os.chmod(self.enter, 0o755)
        self.image = os.path.join(root, "fw.bin")
        make_image(self.image, IMAGE_BODY)
        self.slow_image = os.path.join(root, "fw-slow.bin")
        make_image(self.slow_image, SLOW_IMAGE_BODY)
        self.backing = os.path.join(root, "stick.img")
        with open(self.backing, "wb") as f:
            f.truncate(64 << 20)
        self.stick = None

    def attach(self):
        r = subprocess.run(["losetup", "--find", "--show", self.backing],
                           capture_output=True, text=True)
        if r.returncode == 0 and r.stdout.strip().startswith("/dev/"):
            self.stick = r.stdout.strip()
        return self.stick

    def detach(self):
        if self.stick:
            subprocess.run(["losetup", "-d", self.stick])
            self.stick = None


class Case:
    """One run held at one step, its signal, its checks and a second run."""

    def __init__(self, host, name, step, sig, how="group"):
        self.host, self.name, self.step, self.sig, self.how = host, name, step, sig, how
        self.dir = tempfile.mkdtemp(prefix="case-", dir=host.root)
        self.state = os.path.join(self.dir, "state")
        for d in ("state", "state/mtab", "media", "mnt"):
            os.mkdir(os.path.join(self.dir, d))
        self.seen = []

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, text):
        with open(self.path(name), "w") as f:
            f.write(text)

    def environment(self, calls, block="", slow_copy=False):
        env = dict(os.environ)
        env.update({
            "PATH": self.host.bin + ":" + os.environ.get("PATH", "/usr/bin:/bin"),
            "LD_LIBRARY_PATH": OPENRAW_DIR,
            "VRX_SCRIPTED_BMC": self.path("bmc.script"),
            "VRX_SCRIPTED_BMC_LOG": self.path(calls + ".requests"),
            "VRXFWUL_LOCK_DIR": self.dir,
            "VRXFWUL_HISTORY_FILE": os.path.join(self.dir, "history"),
            "VRX_FAKE_ROOT": self.dir,
            "VRX_FAKE_BIN": self.host.bin,
            "VRX_FAKE_STATE": self.state,
            "VRX_FAKE_CALLS": calls,
            "VRX_FAKE_STICK": self.host.stick,
            "VRX_FAKE_BLOCK": block,
            "LC_ALL": "C",
        })
        if slow_copy:
            env["VRX_FAKE_SLOW_COPY"] = "1"
        return env

    def argv(self, image, log):
        return ["unshare", "--mount", "--propagation", "private", "/bin/sh",
                self.host.enter, VRXFWUL, "-f", "-e=0", "-i=" + image, "-l=" + log]

    def requests(self, calls="first"):
        try:
            with open(self.path(calls + ".requests")) as f:
                return [line.strip() for line in f]
        except OSError:
            return []

    def log(self, name="first.log"):
        try:
            with open(self.path(name), errors="replace") as f:
                return f.read()
        except OSError:
            return ""

    def drain(self, master, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            if master is None:
                time.sleep(0.01)
                continue
            try:
                r, _, _ = select.select([master], [], [], 0.01)
            except (OSError, ValueError):
                return
            if r:
                try:
                    chunk = os.read(master, 4096)
                except OSError:
                    return
                if not chunk:
                    return
                self.seen.append(chunk)

    def start(self, env, image):
        pid, master = pty.fork()
        if pid == 0:
            try:
                os.chdir(self.dir)
                os.execvpe("unshare", self.argv(image, "first.log"), env)
            finally:
                os._exit(127)
        return pid, master

    def wait_exit(self, pid, master, limit):
        end = time.monotonic() + limit
        while time.monotonic() < end:
            done, status = os.waitpid(pid, os.WNOHANG)
            if done == pid:
                return status, time.monotonic()
            self.drain(master, 0.005)
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
        return None, time.monotonic()

    def deliver(self, pid, master):
        if self.how == "typed":
            os.write(master, b"\x03")
        elif self.how == "closed":
            os.close(master)
        else:
            os.killpg(os.getpgid(pid), self.sig)


def exit_code(status):
    if status is None:
        return None
    if os.WIFEXITED(status):
        return os.WEXITSTATUS(status)
    return 128 + os.WTERMSIG(status)


class SlowReader(threading.Thread):
    """The other end of the image file: 4 KiB every 16 ms (256 KiB/s)."""

    def __init__(self, fifo):
        super().__init__(daemon=True)
        self.fifo = fifo
        self.started_copy = threading.Event()
        self.got = 0

    def run(self):
        with open(self.fifo, "rb", buffering=0) as f:
            while True:
                chunk = f.read(4096)
                if not chunk:
                    return
                self.got += len(chunk)
                self.started_copy.set()
                time.sleep(0.016)

    def unblock(self):
        # A reader still waiting for a writer that never came.
        try:
            fd = os.open(self.fifo, os.O_WRONLY | os.O_NONBLOCK)
            os.close(fd)
        except OSError:
            pass


# How each step is held and how the test sees that the run is inside it.
# kind "child": the fake tool named by block holds; "bmc": the script holds.
STEPS = [
    # name, kind, block, script, retries
    ("before the update task starts", "bmc", "", SCRIPT_INIT_SILENT, 2),
    ("readiness polls", "bmc", "", SCRIPT_NEVER_READY, 0),
    ("fdisk", "child", "fdisk:2", SCRIPT_DONE, 0),
    ("mkdir", "child", "mkdir:1", SCRIPT_DONE, 0),
    ("mount", "child", "mount:1", SCRIPT_DONE, 0),
    ("df", "child", "df:2", SCRIPT_DONE, 0),
    ("copy", "copy", "", SCRIPT_DONE, 0),
    ("umount", "child", "umount:1", SCRIPT_DONE, 0),
    ("rm", "child", "rm:1", SCRIPT_DONE, 0),
    ("status polls", "bmc", "", SCRIPT_PROGRAMMING, 0),
    ("reset wait", "bmc", "", SCRIPT_STAYS_DOWN, 0),
]


def reached_bmc_step(case, step):
    req = case.requests()
    if step == "before the update task starts":
        return any(line.startswith(INIT) for line in req)
    if step == "readiness polls":
        return sum(1 for line in req if line.startswith("08 02 01")) >= 2
    if step == "status polls":
        return ("08 04 01 01" in req and
                sum(1 for line in req if line.startswith("08 02 01")) >= 18)
    if step == "reset wait":
        return "06 02" in req
    raise AssertionError(step)


def run_case(host, step, kind, block, script, retries, sig, how):
    signame = signal.Signals(sig).name
    label = "%s, %s%s" % (step, signame, {"typed": " (^C typed)",
                                          "closed": " (terminal closed)"}.get(how, ""))
    case = Case(host, label, step, sig, how)
    case.write("bmc.script", script)
    case.write("bmcfwu.cfg", CONFIG % (retries, 600))
    slow = kind == "copy"
    reader = None
    if slow:
        os.mkfifo(os.path.join(case.state, "copy.fifo"))
        reader = SlowReader(os.path.join(case.state, "copy.fifo"))
        reader.start()
    env = case.environment("first", block if kind == "child" else "", slow)
    pid, master = case.start(env, host.slow_image if slow else host.image)
    end = time.monotonic() + STEP_LIMIT
    reached = False
    while time.monotonic() < end and not reached:
        case.drain(master, 0.05)
        if kind == "child":
            reached = os.path.exists(os.path.join(case.state, "reached"))
        elif kind == "copy":
            reached = reader.started_copy.is_set()
        else:
            reached = reached_bmc_step(case, step)
        if os.waitpid(pid, os.WNOHANG)[0] == pid:
            break
    if not reached:
        check(label + ": the run reached the step", False,
              b"".join(case.seen).decode(errors="replace")[-600:] + case.log()[-600:])
        try:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        except OSError:
            pass
        if reader:
            reader.unblock()
        return
    # Inside the step for a moment, then the signal.
    case.drain(master, 0.3)
    sent = time.monotonic()
    case.deliver(pid, master)
    if how == "closed":
        master = None
    command_end = sent
    if kind == "child":
        # The command goes on for a while after the signal, as a slow one
        # would; the program waits for it.
        case.drain(master, 0.4)
        still = os.waitpid(pid, os.WNOHANG)[0] == 0
        check(label + ": the run waits for the running command", still)
        command_end = time.monotonic()
        open(os.path.join(case.state, "release"), "w").close()
    status, ended = case.wait_exit(pid, master, EXIT_LIMIT)
    case.drain(master, 0.1)
    if master is not None:
        os.close(master)
    if reader:
        reader.unblock()
        reader.join(5)
    text = b"".join(case.seen).decode(errors="replace")
    code = exit_code(status)
    check(label + ": exit status 128 + %d" % sig, code == 128 + sig, "got %s" % code)
    line = "   Interrupted by %s: " % signame
    if how != "closed":
        check(label + ": the terminal names the signal", line in text, text[-400:])
    check(label + ": the log names the signal", line in case.log(), case.log()[-400:])
    said = case.log()[case.log().find(line):].split("\n")[0]
    check(label + ": nothing is reported still mounted", "still mounted" not in said, said)
    if step == "before the update task starts":
        check(label + ": no update was started", "no update was started on the BMC" in said,
              said)
    if reader:
        check(label + ": the copy stopped at the signal (%d of %d bytes)"
              % (reader.got, 512 + SLOW_IMAGE_BODY), 0 < reader.got < 512 + SLOW_IMAGE_BODY)
    check_nothing_left(case, label)
    with LOCK:
        TIMINGS[(step, signame + ("/closed" if how == "closed" else ""))] = (
            ended - sent, ended - command_end)
    second_run(case, label)


def check_nothing_left(case, label):
    mtab = os.listdir(os.path.join(case.state, "mtab"))
    check(label + ": the mount table is empty", not mtab, str(mtab))
    left = os.listdir(case.path("media")) + os.listdir(case.path("mnt"))
    check(label + ": no scratch directory is left", not left, str(left))


def second_run(case, label):
    case.write("bmc.script", SCRIPT_DONE)
    case.write("bmcfwu.cfg", CONFIG % (0, 3))
    for name in ("reached", "release"):
        try:
            os.unlink(os.path.join(case.state, name))
        except OSError:
            pass
    env = case.environment("second")
    try:
        r = subprocess.run(case.argv(case.host.image, "second.log"), cwd=case.dir, env=env,
                           stdin=subprocess.DEVNULL, capture_output=True, timeout=120)
        code, out = r.returncode, r.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired:
        code, out = None, "(timed out)"
    check(label + ": a second run then succeeds", code == 0,
          "got %s: %s %s" % (code, out[-300:], case.log("second.log")[-600:]))
    check(label + ": the second run leaves nothing behind",
          not os.listdir(os.path.join(case.state, "mtab")) and
          not os.listdir(case.path("media")))


def case_mount_fails(host):
    # A stick that cannot be mounted (not FAT): the run fails, and the
    # scratch directory it made is gone again.
    label = "mount fails"
    case = Case(host, label, "mount", 0)
    case.write("bmc.script", SCRIPT_DONE)
    case.write("bmcfwu.cfg", CONFIG % (0, 3))
    open(os.path.join(case.state, "mount-fails"), "w").close()
    env = case.environment("first")
    try:
        r = subprocess.run(case.argv(host.image, "first.log"), cwd=case.dir, env=env,
                           stdin=subprocess.DEVNULL, capture_output=True, timeout=120)
        code = r.returncode
    except subprocess.TimeoutExpired:
        code = None
    with open(os.path.join(case.state, "first")) as f:
        calls = f.read()
    check(label + ": the mount was tried", "mount " in calls, calls)
    check(label + ": the run fails", code not in (None, 0), "got %s" % code)
    check(label + ": no scratch dir left", not os.listdir(case.path("media")),
          str(os.listdir(case.path("media"))) + calls)
    os.unlink(os.path.join(case.state, "mount-fails"))
    second_run(case, label)


def print_table():
    signals = ["SIGINT", "SIGTERM", "SIGHUP"]
    print()
    print("Seconds from the signal to the exit; for steps run by a command, "
          "from that command's end (the signal came 0.4 s before it) to the exit:")
    print("  %-32s %10s %10s %10s" % ("step", *signals))
    for step, *_ in STEPS:
        row = []
        for s in signals:
            t = TIMINGS.get((step, s))
            row.append("%10s" % ("-" if t is None else "%.3f" % t[1]))
        print("  %-32s %s" % (step, " ".join(row)))
    for (step, s), t in sorted(TIMINGS.items()):
        if s.endswith("/closed"):
            print("  %-32s %10s %10s %10.3f  (terminal closed)" % (step, "", "", t[1]))
    worst = max((t[1] for t in TIMINGS.values()), default=0.0)
    print("  worst: %.3f s" % worst)


def main():
    if os.geteuid() != 0:
        print("skipped: needs root (mount namespaces, loop device)")
        return SKIP
    if shutil.which("unshare") is None or shutil.which("losetup") is None:
        print("skipped: unshare or losetup missing")
        return SKIP
    probe = subprocess.run(["unshare", "--mount", "--propagation", "private", "/bin/sh",
                            "-c", "mount -t tmpfs vrx-probe /mnt"], capture_output=True)
    if probe.returncode != 0:
        print("skipped: cannot mount in a new mount namespace:",
              probe.stderr.decode(errors="replace").strip())
        return SKIP
    root = tempfile.mkdtemp(prefix="vrx-usb-steps-")
    host = None
    try:
        host = Host(root)
        if host.attach() is None:
            print("skipped: no loop device")
            return SKIP
        print("stick:", host.stick)
        jobs = []
        for step, kind, block, script, retries in STEPS:
            if ONLY not in step:
                continue
            for sig, how in ((signal.SIGINT, "typed"), (signal.SIGTERM, "group"),
                             (signal.SIGHUP, "group")):
                jobs.append((step, kind, block, script, retries, sig, how))
        if ONLY in "mount":
            jobs.append(("mount", "child", "mount:1", SCRIPT_DONE, 0, signal.SIGHUP, "closed"))
        # The longest runs first, so the pool ends together.
        jobs.sort(key=lambda j: -[s[0] for s in STEPS].index(j[0]))
        started = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
            futures = [pool.submit(run_case, host, *job) for job in jobs]
            if ONLY in "mount fails":
                futures.append(pool.submit(case_mount_fails, host))
            for f in futures:
                try:
                    f.result()
                except Exception as e:  # a broken case is a failure, not a crash
                    check("case ran to its end", False, repr(e))
        print_table()
        print("total %.1f s" % (time.monotonic() - started))
    finally:
        if host is not None:
            host.detach()
        if os.environ.get("VRX_USB_STEPS_KEEP"):
            print("kept:", root)
        else:
            shutil.rmtree(root, ignore_errors=True)
    if FAILURES:
        print("%d check(s) failed" % len(FAILURES))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
