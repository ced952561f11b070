#!/usr/bin/python3
"""A customer can spoil a call for one host, which then says so: never touch or see anything else, nor keep others
waiting."""

import ctypes
import errno
import fcntl
import grp
import json
import os
import pathlib
import pty
import signal
import socket
import stat
import subprocess
import termios
import time
from typing import Callable, NamedTuple

from support import CUT, SiteTest, all_facts, are_gone, as_account, children, differences, facts, main, until

LIBC = ctypes.CDLL(None, use_errno=True)
AT_FDCWD, RENAME_EXCHANGE, PTRACE_ATTACH = -100, 2, 16
ONE = {"htdocs/index": "one", "htdocs/same": "same", "htdocs/gone": "one", "htdocs/sub/page": "one",
       "htdocs/old/page": "one"}
TWO = {"htdocs/index": "two", "htdocs/same": "same", "htdocs/sub/page": "two", "htdocs/new/page": "two"}


def replace(path, make):
    """Something else stands at a path from now on."""
    path.rename(path.parent / f"{path.name}.moved")
    make(path)


def link_to(target):
    return lambda path: path.symlink_to(target)


def make_socket(path):
    with socket.socket(socket.AF_UNIX) as listener:
        os.chdir(path.parent)
        listener.bind(path.name)
        os.chdir("/")


def make_directory(path):
    path.mkdir()
    (path / "mine").write_text("mine")


def make_giant(path):
    path.write_text("")
    os.truncate(path, 1 << 50)


def nest(path):
    os.chdir(path)
    for _ in range(5000):
        os.mkdir("nested")
        os.chdir("nested")
    os.chdir("/")


def set_immutable(path, is_immutable=True):
    subprocess.run(["chattr", "+i" if is_immutable else "-i", path], check=True)


class Obstacle(NamedTuple):
    name: str
    make: Callable   # is given the test
    cause: str = ""  # of the failed upgrade; empty where the upgrade is made


OBSTACLES = [
    Obstacle("the document root is a neighbour's", lambda test: replace(test.root, link_to(test.next_root)),
             "files: the account cannot enter the document root"),
    Obstacle("the application is a neighbour's", lambda test: replace(test.app, link_to(test.next_root / "app")), "files: "),
    Obstacle("a directory is root's", lambda test: replace(test.app / "sub", link_to(test.roots / "sub")), "files: "),
    Obstacle("a directory to come is root's", lambda test: link_to(test.roots)(test.app / "new"), "files: "),
    Obstacle("an obsolete directory is root's", lambda test: replace(test.app / "old", link_to(test.roots / "sub"))),
    Obstacle("a file is a neighbour's", lambda test: replace(test.app / "index", link_to(test.next_root / "app/index"))),
    Obstacle("an obsolete file is root's", lambda test: replace(test.app / "gone", link_to(test.roots / "index"))),
    Obstacle("a file is a FIFO", lambda test: replace(test.app / "index", os.mkfifo)),
    Obstacle("an unchanged file is a FIFO", lambda test: replace(test.app / "same", os.mkfifo)),
    Obstacle("an obsolete file is a FIFO", lambda test: replace(test.app / "gone", os.mkfifo)),
    Obstacle("a file is a socket", lambda test: replace(test.app / "index", make_socket)),
    Obstacle("a file is a directory", lambda test: replace(test.app / "index", make_directory), "files: "),
    Obstacle("a file is a sparse giant", lambda test: replace(test.app / "index", make_giant)),
    Obstacle("an obsolete file is a sparse giant", lambda test: replace(test.app / "gone", make_giant)),
    Obstacle("files of mode 0", lambda test: [path.chmod(0) for path in (test.app / "index", test.app / "same")],
             "files: larkspur-preview"),
    Obstacle("a directory of mode 0", lambda test: (test.app / "sub").chmod(0), "files: "),
    Obstacle("an immutable file", lambda test: set_immutable(test.app / "index"), "files: "),
    Obstacle("an immutable directory", lambda test: set_immutable(test.app / "sub"), "files: "),
    Obstacle("names with line feeds", lambda test: (test.app / "failed: two.example\nx").mkdir()),
    Obstacle("thousands of nested directories", lambda test: nest(test.app / "sub")),
]


class HostileTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", ONE)
        self.two = self.package("two", TWO)
        self.next_root = self.host("two.example", "siteb")
        self.roots = self.base / "roots"
        self.roots.mkdir()
        for directory in ("sub", "empty"):
            (self.roots / directory).mkdir()
        for path in ("index", "sub/page", "page"):
            (self.roots / path).write_text("root's")
        self.changes(self.neighbour())
        self.changes(self.present(self.one))
        self.is_one = self.release()
        self.elsewhere_before = self.elsewhere()

    def neighbour(self):
        return self.present(self.one, host="two.example", account="siteb")

    def elsewhere(self):
        return {root.name: all_facts(root) for root in (self.next_root.parent, self.roots)}

    def nothing_elsewhere(self):
        self.assertEqual(differences(self.elsewhere_before, self.elsewhere()), [])

    def start_anew(self):
        """Whatever has become of the site, it has release one again."""
        subprocess.run(["chattr", "-R", "-f", "-i", self.root], check=False)
        subprocess.run(["rm", "-rf", *self.root.parent.glob("httpdocs*")], check=True)
        self.make_root("one.example", "sitea")
        outcome = self.present(self.one, options=["--repair"])
        self.assertEqual(outcome.status, 0, outcome.error)
        self.assertEqual(differences(self.is_one, self.release()), [])

    def test_what_is_in_the_way(self):
        for obstacle in OBSTACLES:
            with self.subTest(obstacle.name):
                obstacle.make(self)
                outcome = self.present(self.two)
                if obstacle.cause:
                    self.fails(outcome, obstacle.cause, is_taken_back="files, fragment" in outcome.error)
                else:
                    self.changes(outcome)
                self.call("verify")
                self.present(self.two, options=["--repair"])
                self.absent()
                self.nothing_elsewhere()
                self.start_anew()

    def exchanges(self):
        return {
            "document root": lambda: replace(self.root, link_to(self.next_root)),
            "application": lambda: replace(self.app, link_to(self.next_root / "app")),
            "directory": lambda: replace(self.app / "sub", link_to(self.roots / "sub")),
            "file": lambda: replace(self.app / "index", os.mkfifo),
        }

    def test_what_is_exchanged_at_any_moment(self):
        last = dict(self.moments(*self.words(self.two)))
        moments = [("stage", 1), ("swap", 1), ("swap", 2), *last.items(), "script"]
        self.start_anew()
        for moment in moments:
            for name, exchange in self.exchanges().items():
                with self.subTest(f"{name} at {moment}"):
                    call = self.start(*self.words(self.two), moment=moment)
                    self.assertTrue(call.hold())
                    exchange()
                    call.go_on()
                    outcome = call.end()
                    self.assertIn((outcome.status, outcome.output), [(0, "changed\n"), (1, "")])
                    self.nothing_elsewhere()
                    self.start_anew()

    def test_what_is_exchanged_all_the_time(self):
        directory, decoy = os.fsencode(self.app / "sub"), os.fsencode(self.app / "decoy")
        os.symlink(self.roots / "sub", decoy)
        exchanger = os.fork()
        if exchanger == 0:
            while True:
                LIBC.renameat2(AT_FDCWD, directory, AT_FDCWD, decoy, RENAME_EXCHANGE)
        end = time.monotonic() + 8
        statuses = []
        while time.monotonic() < end:
            statuses += [self.present(package).status for package in (self.two, self.one)]
        os.kill(exchanger, signal.SIGKILL)
        os.waitpid(exchanger, 0)
        self.assertLessEqual(set(statuses), {0, 1})
        self.nothing_elsewhere()
        self.start_anew()

    def plant(self, held_directory):
        """As the account, which has a directory open: puts it into the place of a file between the look at that and its
        exchange, by which it comes to the store for a moment; and then leaves in the store what leads elsewhere."""
        time.sleep(1)
        os.rename(self.app / "index", self.app / "away")
        os.rename(self.app / "mine", self.app / "index")
        application = os.stat(self.app).st_ino
        until(lambda: os.stat("..", dir_fd=held_directory).st_ino != application)
        store = os.open("..", os.O_RDONLY | os.O_DIRECTORY, dir_fd=held_directory)
        # Step 1 makes the directory new, and step 2 brings new/page.
        os.symlink(self.roots / "empty", "1", dir_fd=store)
        staged = os.open("2", os.O_WRONLY | os.O_TRUNC, dir_fd=store)
        os.write(staged, b"the customer's")
        os.mkdir("full", dir_fd=store)
        os.mkdir("full/of-it", dir_fd=store)

    def test_what_is_planted_in_the_store_leads_nowhere(self):
        # Both system calls of the exchange take so long that the moment between them is met.
        slow = self.base / "slow"
        # No leak is looked for, because that does not work under strace.
        slow.write_text("#!/bin/sh\nexport ASAN_OPTIONS=detect_leaks=0\nexec strace -f -o /dev/null -e trace=renameat2 "
                        f"-e inject=renameat2:delay_enter=2000000:delay_exit=2000000:when=1 {CUT} \"$@\"\n")
        slow.chmod(0o755)
        (self.app / "mine").mkdir()
        os.chown(self.app / "mine", 20001, -1)
        held_directory = os.open(self.app / "mine", os.O_RDONLY | os.O_DIRECTORY)
        self.addCleanup(os.close, held_directory)
        call = self.start(*self.words(self.two), moment=("swap", 1), program=slow)
        self.assertTrue(call.hold())
        call.go_on()
        as_account("sitea", lambda: self.plant(held_directory))
        self.fails(call.end(), "app/index: something else stands there", is_taken_back=True)
        self.nothing_elsewhere()
        (told,) = json.loads(self.call("--json", "status", "one.example", "app").output)["applications"]
        self.assertEqual(sorted(pathlib.Path(file).name for file in told["kept"]), ["entry-2", "full", "new"])
        self.assertEqual(self.call("recover").status, 0)
        self.start_anew()

    def test_directories_that_the_customer_has_closed_are_as_before(self):
        failing = self.package("failing", TWO, "exit 3")
        sub = self.app / "sub"
        os.chown(sub, 20001, grp.getgrnam("kroserv").gr_gid)
        sub.chmod(0o2555)
        before = facts(sub)["mode"]
        self.fails(self.present(failing), "script upgrade: exit status 3", is_taken_back=True)
        self.assertEqual(((sub / "page").read_text(), facts(sub)["mode"]), ("one", before))
        self.changes(self.present(self.two))
        self.assertEqual(((sub / "page").read_text(), facts(sub)["mode"]), ("two", before))
        # What is closed in the middle stays as it is then, and keeps nobody waiting.
        sub.chmod(0o755)
        call = self.start(*self.words(self.package("failing too", ONE, "exit 3")), moment="script")
        self.assertTrue(call.hold())
        sub.chmod(0o555)
        call.go_on()
        outcome = call.end()
        self.fails(outcome, "script upgrade: exit status 3")
        self.assertIn("app/sub/page: left as it is: its directory is closed\n", outcome.error)
        self.stays(self.call("recover"))

    def test_processes_that_the_account_stops_or_kills(self):
        def held(call):
            return call.held

        def above_script(call):
            return children(call.leader)[0]

        rows = [
            (("stage", 1), held, signal.SIGSTOP, "files: stopped by signal 19", False),
            (("stage", 2), held, signal.SIGKILL, "files: killed by signal 9", False),
            (("swap", 1), held, signal.SIGSTOP, "files: stopped by signal 19", True),
            (("swap", 4), held, signal.SIGKILL, "files: killed by signal 9", True),
            ("script", held, signal.SIGSTOP, "script upgrade: it did not end by itself", True),
            ("script", held, signal.SIGKILL, "script upgrade: it did not end by itself", True),
            ("script", above_script, signal.SIGSTOP, "script upgrade: stopped by signal 19", True),
            ("script", above_script, signal.SIGKILL, "script upgrade: killed by signal 9", True),
        ]
        for moment, whom, number, cause, is_taken_back in rows:
            with self.subTest(f"{whom.__name__} gets {number.name} at {moment}"):
                call = self.start(*self.words(self.two), moment=moment)
                self.assertTrue(call.hold())
                self.stays(self.neighbour())
                family = children(call.leader)
                target = whom(call)
                as_account("sitea", lambda: os.kill(target, number))
                self.fails(call.end(), cause, is_taken_back=is_taken_back)
                self.assertTrue(are_gone(family))
                self.assertEqual(differences(self.is_one, self.release()), [])

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
                call = self.start(*self.words(self.two), moment=moment)
                self.assertTrue(call.hold())
                above_script = children(call.leader)[0]
                for pid in (call.leader, above_script):
                    self.assertEqual(as_account("sitea", lambda: self.looks_into(pid)), [])
                call.go_on()
                self.changes(call.end())
                self.changes(self.present(self.one))

    def test_a_script_gets_nothing_of_its_caller_s(self):
        seen = self.marks / "seen"
        look = self.base / "look"
        look.write_text(f"""#!/usr/bin/python3
import json, os
def terminal():
    try:
        return os.ttyname(os.open("/dev/tty", os.O_RDWR))
    except OSError as failure:
        return failure.errno
links = {{name: os.readlink(f"/proc/self/fd/{{name}}").split("[")[0].split(":")[0] for name in os.listdir("/proc/self/fd")
         if os.path.exists(f"/proc/self/fd/{{name}}")}}
with open({str(seen)!r}, "w") as file:
    json.dump({{"environment": dict(os.environ), "descriptors": links, "terminal": terminal(), "ids": os.getresuid(),
               "groups": os.getgroups(), "directory": os.getcwd(), "mask": os.umask(0)}}, file)
""")
        look.chmod(0o755)
        package = self.package("looking", TWO, f"grep -E 'Sig(Blk|Ign)' /proc/self/status >{self.marks}/signals\nexec {look}")
        master, slave = pty.openpty()
        descriptor = os.open(self.conf, os.O_RDONLY)
        os.environ["ROOTS_OWN"] = "secret"
        self.addCleanup(os.environ.pop, "ROOTS_OWN")
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
        self.addCleanup(signal.signal, signal.SIGHUP, signal.SIG_DFL)
        call = self.start(*self.words(package), stdin=slave, stderr=slave, pass_fds=[descriptor],
                          start_new_session=True, preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        self.changes(call.end())
        self.assertIn(b"one.example/app: script upgrade\r\n", os.read(master, 1 << 16))
        for fd in (master, slave, descriptor):
            os.close(fd)
        found = json.loads(seen.read_text())
        self.assertEqual(found["descriptors"], {"0": "/dev/null", "1": "pipe", "2": "pipe"})
        self.assertEqual(found["terminal"], errno.ENXIO)
        self.assertEqual(found["ids"], [20001] * 3)
        self.assertNotIn(0, found["groups"])
        self.assertEqual(found["mask"], 0o22)
        self.assertEqual(found["environment"].keys() - {"PWD", "OLDPWD", "SHLVL", "_", "LC_CTYPE"},
                         {"PATH", "LANG", "HOME", "LOGNAME", "USER"})
        self.assertEqual({line.split()[1] for line in (self.marks / "signals").read_text().splitlines()}, {"0" * 16})

    def test_a_script_cannot_say_what_programs_rely_on(self):
        said = ["failed: two.example", "two.example/app: files, fragment and record are as before"]
        script = "".join(f"echo '{line}' >&2\n" for line in said)
        outcome = self.present(self.package("lying", TWO, script))
        self.assertEqual((outcome.status, outcome.error.splitlines()), (0, [f"| {line}" for line in said]))

    def left_behind(self):
        """Processes that scripts of these tests have noted."""
        noted = self.marks / "left"
        return [int(pid) for pid in noted.read_text().split()] if noted.exists() else []

    def test_what_a_script_leaves_running_is_not_waited_for(self):
        note = f"echo $! >>{self.marks}/left"
        rows = [
            ("a child", f"sleep 1000 & {note}", ""),
            ("a daemon", f"setsid sh -c 'sleep 1000; :' & {note}", ""),
            ("a daemon that writes", f"setsid sh -c 'trap \"\" PIPE; while :; do echo x; sleep 0.01; done' & {note}", ""),
            ("new files", f"(i=0; while :; do : >{self.app}/$i; i=$((i + 1)); done) & {note}", ""),
            ("a daemon of a failure", f"setsid sh -c 'sleep 1000; :' & {note}; exit 3", "exit status 3"),
            ("descendants without end", f"sh -c 'while :; do setsid sleep 1000 & sleep 0.01; done' & {note}; exit 3",
             "exit status 3"),
            ("output without end", "yes", "no end within 3 s"),
        ]
        self.settings(TIME_LIMIT=3)
        for name, script, cause in rows:
            with self.subTest(name):
                (self.marks / "left").unlink(missing_ok=True)
                outcome = self.present(self.package(f"leaving {name}", TWO, script))
                self.assertLess(len(outcome.error), 3 << 20)
                if cause:
                    self.fails(outcome, f"script upgrade: {cause}", is_taken_back=True)
                    self.assertTrue(are_gone(self.left_behind()))
                else:
                    self.changes(outcome)
                    self.stays(self.neighbour())
                    self.assertFalse(are_gone(self.left_behind()))
                    self.call("verify")
                    self.changes(self.present(self.one))
                for pid in self.left_behind():
                    if not are_gone([pid]):
                        os.kill(pid, signal.SIGKILL)
                subprocess.run(["find", self.app, "-name", "[0-9]*", "-delete"], check=True)

    def test_a_way_back_that_is_barred_is_walked_later(self):
        call = self.start(*self.words(self.package("failing", TWO, "exit 3")), moment="script")
        self.assertTrue(call.hold())
        set_immutable(self.app / "index")
        call.go_on()
        outcome = call.end()
        self.fails(outcome, "way back: ")
        self.fails(self.present(self.two), "recovery: ")
        set_immutable(self.app / "index", False)
        self.stays(self.call("recover"))
        self.assertEqual(differences(self.is_one, self.release()), [])


if __name__ == "__main__":
    main()
