"""Calls of larkspur-site that run beside a test, are held at a moment and ended there, and their processes."""

import json
import os
import pathlib
import pwd
import select
import signal
import subprocess
import tempfile
import time
import traceback
from typing import NamedTuple

from testing import ROOT

BUILD = pathlib.Path(os.environ.get("LARKSPUR_BUILD", ROOT / "build/release"))
SITE = BUILD / "larkspur-site"
CUT = BUILD / "tests/larkspur-site-cut"
PATIENCE = 60  # seconds, after which a test does not wait any longer

# A shell has its background jobs ignore INT, and nohup has them ignore HUP: larkspur-site would do so, too.
for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
    if signal.getsignal(number) == signal.SIG_IGN:
        signal.signal(number, signal.SIG_DFL)


class Outcome(NamedTuple):
    status: int
    output: str
    error: str


def until(condition):
    """Waits for a moment that has to come, and returns what the condition then is."""
    end = time.monotonic() + PATIENCE
    while not (value := condition()):
        if time.monotonic() > end:
            raise TimeoutError("what is waited for does not come")
        time.sleep(0.001)
    return value


def children(pid):
    """All processes below one, in no order."""
    found = []
    for task in pathlib.Path(f"/proc/{pid}/task").glob("*/children"):
        try:
            names = task.read_text().split()
        except (FileNotFoundError, ProcessLookupError):
            continue  # it has ended since
        for child in map(int, names):
            found += [child, *children(child)]
    return found


def are_gone(pids):
    """True when none of the processes holds anything any more."""
    for pid in pids:
        try:
            if pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] not in "ZX":
                return False
        except (FileNotFoundError, ProcessLookupError):
            pass
    return True


def has_taken_signals(pid):
    """True when a process has read the signals that it blocks, and sleeps again or has ended."""
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    status = dict(line.split(":\t", 1) for line in lines)
    state = status["State"][0]
    return state == "Z" or (state == "S" and int(status["ShdPnd"], 16) == 0)


def kill_all(pids):
    for pid in pids:
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            continue  # it has ended since


def kill_tree(call):
    """Nobody of a call sees another one die."""
    os.kill(call.leader, signal.SIGSTOP)
    family = [*children(call.leader), call.leader]
    kill_all(family)
    until(lambda: are_gone(family))


def kill_leader(call):
    """The others have to end as well, and at once: the next call must not meet them."""
    family = [*children(call.leader), call.leader]
    os.kill(call.leader, signal.SIGKILL)
    until(lambda: are_gone(family))


def kill_child(call):
    os.kill(call.held, signal.SIGKILL)


def become(account):
    entry = pwd.getpwnam(account)
    os.setgroups([])
    os.setgid(entry.pw_gid)
    os.setuid(entry.pw_uid)


def as_account(account, work):
    """What a function returns that runs in a process of an account."""
    reading, writing = os.pipe()
    pid = os.fork()
    if pid == 0:
        try:
            become(account)
            os.write(writing, json.dumps(work()).encode())
        except BaseException:
            traceback.print_exc()
        finally:
            os._exit(0)
    os.close(writing)
    with open(reading, "rb") as answer:
        said = answer.read()
    os.waitpid(pid, 0)
    return json.loads(said)


class Call:
    """One larkspur-site that runs beside the test.  `moment` is a cut point and its number, or "script", at which the
    script of a package of these tests waits.  `later` has more cut points, which come behind that one."""

    def __init__(self, test, words, moment=None, later=(), **streams):
        self.mark = test.marks / "held"
        self.moment = moment
        environment = dict(os.environ)
        if moment == "script":
            self.mark.touch()
            self.mark.chmod(0o666)
        elif moment:
            moments = " ".join(f"{name} {number}" for name, number in (moment, *later))
            environment["LARKSPUR_CUT"] = f"{self.mark} {moments}"
        self.files = [tempfile.TemporaryFile(), tempfile.TemporaryFile()]
        streams = {"stdin": subprocess.DEVNULL, "stdout": self.files[0], "stderr": self.files[1], **streams}
        program = CUT if moment else SITE
        self.process = subprocess.Popen([program, f"--settings={test.conf}", *words], env=environment, **streams)
        self.leader = self.process.pid
        self.held = None
        test.addCleanup(self.abandon)

    def hold(self):
        """Waits for the next moment.  Returns False when the call has ended without it."""
        def look():
            if self.process.poll() is not None:
                return "ended"
            return self.mark.read_text() if self.mark.exists() else ""
        said = until(look)
        self.held = None if said == "ended" else int(said)
        return self.held is not None

    def wait_for(self, words):
        """Waits until the call has said something."""
        until(lambda: words in os.pread(self.files[1].fileno(), 1 << 20, 0).decode())

    def go_on(self):
        self.mark.unlink(missing_ok=True)

    def abandon(self):
        """A failed test does not end its calls."""
        if self.process.poll() is None:
            kill_tree(self)
            self.process.wait()
        for file in self.files:
            file.close()

    def wait(self):
        """The status.  The end itself is waited for: Popen.wait with a limit asks in steps of up to 50 ms, which is
        longer than most calls take."""
        if self.process.poll() is None:
            descriptor = os.pidfd_open(self.leader)
            ended, _, _ = select.select([descriptor], [], [], PATIENCE)
            os.close(descriptor)
            if not ended:
                raise TimeoutError(f"a call does not end: {self.process.args}")
        return self.process.wait()

    def end(self):
        try:
            status = self.wait()
        finally:
            if self.moment:
                self.go_on()
        texts = []
        for file in self.files:
            file.seek(0)
            texts.append(file.read().decode(errors="backslashreplace"))
            file.close()
        return Outcome(status, *texts)
