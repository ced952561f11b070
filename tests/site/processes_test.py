#!/usr/bin/python3
"""The processes of a call that are the account's: what that does to them, what they get to see, what they leave."""

import ctypes
import errno
import fcntl
import os
import pathlib
import pty
import signal
import termios
from typing import Callable, NamedTuple

from calls import are_gone, as_account, children, kill_all
from support import ONE, SITEA, TWO, SiteTest, main
from trees import differences

LIBC = ctypes.CDLL(None, use_errno=True)
PTRACE_ATTACH = 16


def held(call):
    return call.held


def above_script(call):
    return children(call.leader)[0]


class Victim(NamedTuple):
    moment: tuple | str
    whom: Callable
    signal: signal.Signals
    cause: str
    is_taken_back: bool = True


VICTIMS = [
    Victim(("stage", 1), held, signal.SIGSTOP, "files: stopped by signal 19", is_taken_back=False),
    Victim(("swap", 4), held, signal.SIGKILL, "files: killed by signal 9"),
    Victim("script", held, signal.SIGSTOP, "script upgrade: it did not end by itself"),
    Victim("script", held, signal.SIGKILL, "script upgrade: it did not end by itself"),
    Victim("script", above_script, signal.SIGSTOP, "script upgrade: stopped by signal 19"),
    Victim("script", above_script, signal.SIGKILL, "script upgrade: killed by signal 9"),
]


class ProcessesTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", ONE)
        self.two = self.package("two", TWO)
        self.host("two.example", "siteb")
        self.changes(self.neighbour(self.one))
        self.changes(self.present(self.one))
        self.is_one = self.release()

    def test_processes_that_the_account_stops_or_kills(self):
        for row in VICTIMS:
            with self.subTest(f"{row.whom.__name__} gets {row.signal.name} at {row.moment}"):
                call = self.hold(row.moment, self.words(self.two))
                self.stays(self.neighbour(self.one))
                family = children(call.leader)
                target = row.whom(call)
                as_account("sitea", lambda: os.kill(target, row.signal))
                self.fails(call.end(), row.cause, is_taken_back=row.is_taken_back)
                self.assertTrue(are_gone(family))
                self.assertEqual(differences(self.is_one, self.release()), [])

    def test_what_a_killed_call_has_left_is_ended_by_the_next_one(self):
        for name, words in [("recover", ["recover"]), ("the same call", self.words(self.two))]:
            with self.subTest(name):
                call = self.hold("script", self.words(self.two))
                stopped = above_script(call)
                as_account("sitea", lambda: os.kill(stopped, signal.SIGSTOP))
                os.kill(call.leader, signal.SIGKILL)
                call.end()
                self.assertEqual(self.call(*words).status, 0)
                self.assertTrue(are_gone([stopped]))
                self.stays(self.call("recover"))

    @staticmethod
    def looks_into(pid):
        """What a process gets to see of another one."""
        seen = []
        for name in ("environ", "maps", "mem", "fd/0", "cwd", "root", "exe"):
            try:
                with open(f"/proc/{pid}/{name}", "rb"):
                    seen.append(name)
            except PermissionError:
                pass
        ctypes.set_errno(0)
        if LIBC.ptrace(PTRACE_ATTACH, pid, None, None) == 0 or ctypes.get_errno() != errno.EPERM:
            seen.append("traced")
        return seen

    def test_no_process_lets_itself_be_traced_or_looked_into(self):
        for moment in (("stage", 1), ("swap", 2), "script"):
            with self.subTest(moment):
                call = self.hold(moment, self.words(self.two))
                for pid in (call.leader, above_script(call)):
                    self.assertEqual(as_account("sitea", lambda: self.looks_into(pid)), [])
                call.go_on()
                self.changes(call.end())
                self.changes(self.present(self.one))

    def test_a_script_gets_nothing_of_its_caller_s(self):
        seen = self.marks / "seen"
        package = self.package("looking", TWO, f"cat /proc/self/status >{seen}")
        master, slave = pty.openpty()
        descriptor = os.open(self.conf, os.O_RDONLY)
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
        self.addCleanup(signal.signal, signal.SIGHUP, signal.SIG_DFL)
        call = self.hold("script", self.words(package), stdin=slave, stderr=slave, pass_fds=[descriptor], umask=0o077,
                         start_new_session=True, restore_signals=False,  # Python itself ignores PIPE and XFSZ
                         preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        script = pathlib.Path(f"/proc/{call.held}")
        descriptors = {file.name: os.readlink(file).split(":")[0] for file in (script / "fd").iterdir()}
        terminal = (script / "stat").read_text().rpartition(")")[2].split()[4]
        call.go_on()
        self.changes(call.end())
        self.assertIn(b"one.example/app: script upgrade\r\n", os.read(master, 1 << 16))
        for fd in (master, slave, descriptor):
            os.close(fd)
        by_the_shell = {"10": str(package / "scripts/configure")}
        self.assertEqual(descriptors, {"0": "/dev/null", "1": "pipe", "2": "pipe"} | by_the_shell)
        self.assertEqual(terminal, "0")
        status = dict(line.split(":\t", 1) for line in seen.read_text().splitlines())
        self.assertEqual(status["Uid"].split(), [str(SITEA)] * 4)
        self.assertNotIn("0", status["Groups"].split())
        self.assertEqual(status["Umask"], "0022")
        for signals in ("SigBlk", "SigIgn"):
            self.assertEqual(status[signals], "0" * 16, signals)

    def test_a_script_cannot_say_what_programs_rely_on(self):
        said = ["failed: two.example", "two.example/app: files, fragment and record are as before"]
        script = "".join(f"echo '{line}' >&2\n" for line in said)
        outcome = self.present(self.package("lying", TWO, script))
        self.assertEqual((outcome.status, outcome.error.splitlines()), (0, [f"| {line}" for line in said]))

    def left_behind(self):
        """The processes that a script has noted."""
        noted = self.marks / "left"
        return [int(pid) for pid in noted.read_text().split()] if noted.exists() else []

    def end_left_behind(self):
        for pid in self.left_behind():
            kill_all([*children(pid), pid])
        (self.marks / "left").unlink(missing_ok=True)

    def leave(self, name, command, then=""):
        """What comes of an upgrade whose script leaves a command running."""
        self.addCleanup(self.end_left_behind)
        text = f"{command} & echo $! >>{self.marks}/left\n{then}"
        return self.present(self.package(f"leaving {name}", TWO, text))

    def test_what_a_script_leaves_running_is_not_waited_for_and_goes_on(self):
        writes_on = "trap \"\" PIPE; while :; do echo x; sleep 0.01; done"
        makes_files = f"i=0; while :; do : >{self.app}/$i; i=$((i + 1)); sleep 0.01; done"
        commands = {"a daemon that writes": f"setsid sh -c '{writes_on}'", "new files": f"sh -c '{makes_files}'"}
        for name, command in commands.items():
            with self.subTest(name):
                self.changes(self.leave(name, command))
                self.stays(self.neighbour(self.one))
                self.assertFalse(are_gone(self.left_behind()))
                self.assertEqual(self.asked("verify"), "")
                self.changes(self.present(self.one))
                self.end_left_behind()

    def test_what_a_script_that_fails_leaves_running_is_ended(self):
        daemon = "setsid sh -c 'while :; do setsid sleep 1000 & sleep 0.01; done'"
        outcome = self.leave("a daemon with descendants without end", daemon, then="exit 3")
        self.fails(outcome, "script upgrade: exit status 3", is_taken_back=True)
        self.assertNotEqual(self.left_behind(), [])
        self.assertTrue(are_gone(self.left_behind()))

    def test_output_without_end_is_shown_in_part(self):
        self.settings(TIME_LIMIT=5)
        outcome = self.present(self.package("writing", TWO, f"yes {'y' * 4000}"))
        self.fails(outcome, "script upgrade: no end within 5 s", is_taken_back=True)
        self.assertLess(len(outcome.error), 2 << 20)
        self.assertIn("(the rest is left out)\n", outcome.error)


main()
