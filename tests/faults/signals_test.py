#!/usr/bin/env python3
"""The real vrxfwul under real signals, as an administrator meets them.

The program runs as the foreground job of a pseudo-terminal, so a typed ^C
reaches its whole process group through the terminal's line discipline, and
closing the terminal sends SIGHUP. The BMC is the scripted test double of the
raw-access library; its update task never finishes, so the run sits in the
status poll until a signal arrives. Each case checks the exit status, the
line naming the signal on the terminal and in the log, and the time from the
signal to the exit.

Usage: signals_test.py VRXFWUL OPENRAW_DIR
"""
import os
import pty
import select
import signal
import subprocess
import sys
import tempfile
import time

VRXFWUL, OPENRAW_DIR = sys.argv[1], sys.argv[2]
FAILURES = []
TIMINGS = []

# A KCS URI update whose task runs for ever (status "Programming").
SCRIPT_ENDLESS = """\
08 01 01 = 00 05
08 02 05 = 00 02 32
06 01 = 00 20 01 01 05 02 9f 5e 2b 00 01 0f 00 00 00 00
"""
# The same update finishing at its first poll.
SCRIPT_DONE = """\
08 01 01 = 00 05
08 02 05 = 00 ff
08 01 aa 02 = 00 06 32 2e 31 30 2e 33
06 01 = 00 20 01 01 05 02 9f 5e 2b 00 01 0f 00 00 00 00
"""
CONFIG = "PhaseOneWaitingTime = 5\nFwUpdateWaitingTime = 600\nFwRebootWaitingTime = 2\n"
ARGS = ["-f", "-e=0", "-uri=http://127.0.0.1/bmc.bin", "-l=run.log"]


def check(what, ok, detail=""):
    if ok:
        print("ok:", what)
    else:
        print("FAIL:", what, detail)
        FAILURES.append(what)


def workdir(script):
    d = tempfile.mkdtemp(prefix="vrx-faults-")
    with open(os.path.join(d, "bmc.script"), "w") as f:
        f.write(script)
    with open(os.path.join(d, "bmcfwu.cfg"), "w") as f:
        f.write(CONFIG)
    return d


def environment(d):
    env = dict(os.environ)
    env.update({
        "LD_LIBRARY_PATH": OPENRAW_DIR,
        "VRX_SCRIPTED_BMC": os.path.join(d, "bmc.script"),
        "VRX_SCRIPTED_BMC_LOG": os.path.join(d, "requests.log"),
        "VRXFWUL_LOCK_DIR": d,
        "VRXFWUL_HISTORY_FILE": os.path.join(d, "history"),
        "LC_ALL": "C",
    })
    return env


def read_log(d):
    try:
        with open(os.path.join(d, "run.log"), errors="replace") as f:
            return f.read()
    except OSError:
        return ""


def polls(d):
    try:
        with open(os.path.join(d, "requests.log")) as f:
            return sum(1 for line in f if line.startswith("08 02"))
    except OSError:
        return 0


def start_in_terminal(d, ignore_hup=False):
    pid, master = pty.fork()
    if pid == 0:
        os.chdir(d)
        if ignore_hup:
            signal.signal(signal.SIGHUP, signal.SIG_IGN)  # as nohup does
        os.execve(VRXFWUL, [VRXFWUL] + ARGS, environment(d))
    return pid, master


def drain(master, into, seconds):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        try:
            r, _, _ = select.select([master], [], [], 0.05)
        except (OSError, ValueError):  # the terminal is closed
            time.sleep(0.05)
            continue
        if r:
            try:
                chunk = os.read(master, 4096)
            except OSError:
                return
            if not chunk:
                return
            into.append(chunk)


def wait_for_polls(d, master, seen, count=3, limit=20):
    end = time.monotonic() + limit
    while polls(d) < count and time.monotonic() < end:
        drain(master, seen, 0.1)
    return polls(d) >= count


def wait_exit(pid, master, seen, limit=20):
    end = time.monotonic() + limit
    while time.monotonic() < end:
        done, status = os.waitpid(pid, os.WNOHANG)
        if done == pid:
            drain(master, seen, 0.2)
            return status
        drain(master, seen, 0.05)
    os.kill(pid, signal.SIGKILL)
    os.waitpid(pid, 0)
    return None


def exit_code(status):
    if status is None:
        return None
    if os.WIFEXITED(status):
        return os.WEXITSTATUS(status)
    return 128 + os.WTERMSIG(status)


def case_signal(name, deliver, expected_sig, ignore_hup=False):
    d = workdir(SCRIPT_ENDLESS)
    pid, master = start_in_terminal(d, ignore_hup)
    seen = []
    if not wait_for_polls(d, master, seen):
        check(name + ": run reached the status poll", False, b"".join(seen)[-400:])
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
        return
    sent = time.monotonic()
    deliver(pid, master)
    status = wait_exit(pid, master, seen)
    took = time.monotonic() - sent
    text = b"".join(seen).decode(errors="replace")
    signame = signal.Signals(expected_sig).name
    code = exit_code(status)
    check(name + ": exit status 128 + %d" % expected_sig, code == 128 + expected_sig,
          "got %s" % code)
    line = "   Interrupted by %s: " % signame
    if expected_sig != signal.SIGHUP:
        check(name + ": the terminal names the signal", line in text, text[-300:])
    check(name + ": the log names the signal", line in read_log(d), read_log(d)[-300:])
    check(name + ": says what was left in which state",
          line + "the BMC's update task was left to end on its own" in read_log(d))
    TIMINGS.append((name, took))
    try:
        os.close(master)
    except OSError:
        pass


def type_ctrl_c(pid, master):
    os.write(master, b"\x03")


def term_to_group(pid, master):
    os.killpg(os.getpgid(pid), signal.SIGTERM)


def quit_typed(pid, master):
    os.write(master, b"\x1c")  # ^\ sends SIGQUIT


def close_terminal(pid, master):
    os.close(master)


def case_nohup_keeps_hup_ignored():
    d = workdir(SCRIPT_ENDLESS)
    pid, master = start_in_terminal(d, ignore_hup=True)
    seen = []
    wait_for_polls(d, master, seen)
    os.kill(pid, signal.SIGHUP)
    drain(master, seen, 1.5)
    done, _ = os.waitpid(pid, os.WNOHANG)
    check("nohup: an ignored SIGHUP stays ignored", done == 0)
    os.killpg(os.getpgid(pid), signal.SIGTERM)
    status = wait_exit(pid, master, seen)
    check("nohup: SIGTERM still stops the run with 143", exit_code(status) == 143,
          "got %s" % exit_code(status))
    os.close(master)


def case_closed_pipe_keeps_the_result():
    # The reader of standard output goes away at once: the run goes on and
    # ends with the status it would have had.
    results = []
    for close_reader in (False, True):
        d = workdir(SCRIPT_DONE)
        r, w = os.pipe()
        proc = subprocess.Popen([VRXFWUL] + ARGS, cwd=d, env=environment(d),
                                stdin=subprocess.DEVNULL, stdout=w,
                                stderr=subprocess.DEVNULL)
        os.close(w)
        if close_reader:
            os.close(r)
        else:
            while os.read(r, 4096):
                pass
            os.close(r)
        results.append(proc.wait(timeout=60))
        log = read_log(d)
    check("closed pipe: same exit status as with a reader (%s)" % results,
          results[0] == results[1] and results[0] >= 0, str(results))
    check("closed pipe: the log goes on to the end",
          "   Firmware Update Successfully\n" in log, log[-300:])
    check("closed pipe: the run succeeded both times", results == [0, 0], str(results))


def case_second_run_is_refused():
    d = workdir(SCRIPT_ENDLESS)
    pid, master = start_in_terminal(d)
    seen = []
    wait_for_polls(d, master, seen)
    started = time.monotonic()
    second = subprocess.run([VRXFWUL] + ARGS[:-1], cwd=d, env=environment(d),
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
    took = time.monotonic() - started
    err = second.stderr.decode(errors="replace")
    check("second run: refused with status 13", second.returncode == 13,
          "got %d" % second.returncode)
    check("second run: says another run holds the lock",
          "   Another vrxfwul run is updating this BMC (lock %s/vrxfwul-kcs.lock)" % d in err,
          err)
    check("second run: refused at once (%.2f s)" % took, took < 5)
    os.write(master, b"\x03")
    check("first run: ends on ^C afterwards",
          exit_code(wait_exit(pid, master, seen)) == 130)
    os.close(master)


def main():
    case_signal("^C typed at the terminal", type_ctrl_c, signal.SIGINT)
    case_signal("SIGTERM to the process group", term_to_group, signal.SIGTERM)
    case_signal("^\\ typed at the terminal", quit_typed, signal.SIGQUIT)
    case_signal("the terminal closed", close_terminal, signal.SIGHUP)
    case_nohup_keeps_hup_ignored()
    case_closed_pipe_keeps_the_result()
    case_second_run_is_refused()
    for name, took in TIMINGS:
        print("timing: %s: %.3f s from the signal to the exit" % (name, took))
    if FAILURES:
        print("%d check(s) failed" % len(FAILURES))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
