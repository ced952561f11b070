"""What the tests of larkspur-site share: hosts and accounts of their own, packages in one line, all that a site can
hold, a visitor who never rests, and calls that are held at a moment and ended there.

Each file of tests here runs by itself: tests/support/sandbox tests/site/FILE [CLASS.CASE]."""

import errno
import hashlib
import json
import os
import pathlib
import pwd
import signal
import stat
import struct
import subprocess
import sys
import tempfile
import time
import traceback
import unittest
from typing import NamedTuple

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from testing import IN_SANDBOX, NO_SANDBOX, ROOT as SOURCE, SANDBOX, main, skip

BUILD = pathlib.Path(os.environ.get("LARKSPUR_BUILD", SOURCE / "build/release"))
SITE = BUILD / "larkspur-site"
CUT = BUILD / "tests/larkspur-site-cut"
PATIENCE = 60  # seconds, after which a test does not wait any longer

NAMESPACE = "http://nimbo.example/ns/wtx/1"
ROOT = "<mapping url='/' path='htdocs'/>"

if not IN_SANDBOX:
    skip(NO_SANDBOX)


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


def kill_tree(call):
    """Nobody of a call sees another one die."""
    os.kill(call.leader, signal.SIGSTOP)
    family = [*children(call.leader), call.leader]
    for pid in family:
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            continue  # it has ended since
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
    script of a package of these tests waits.  `program` runs one in place of larkspur-site."""

    def __init__(self, test, words, moment=None, program=None, **streams):
        self.mark = test.marks / "held"
        self.moment = moment
        environment = dict(os.environ)
        if moment == "script":
            self.mark.touch()
            self.mark.chmod(0o666)
        elif moment:
            environment["LARKSPUR_CUT"] = f"{moment[0]} {moment[1]} {self.mark}"
        self.files = [tempfile.TemporaryFile(), tempfile.TemporaryFile()]
        streams = {"stdin": subprocess.DEVNULL, "stdout": self.files[0], "stderr": self.files[1], **streams}
        program = program or (CUT if moment else SITE)
        self.process = subprocess.Popen([program, f"--settings={test.conf}", *words], env=environment, **streams)
        self.leader = self.process.pid
        self.held = None
        test.addCleanup(self.abandon)

    def hold(self):
        """Waits for the moment.  Returns False when the call has ended without it."""
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

    def end(self):
        try:
            status = self.process.wait(PATIENCE)
        finally:
            if self.moment:
                self.go_on()
        texts = []
        for file in self.files:
            file.seek(0)
            texts.append(file.read().decode(errors="backslashreplace"))
            file.close()
        return Outcome(status, *texts)


def facts(path):
    """All that can be told of one entry without following it, but its access time."""
    path = os.fspath(path)
    status = os.lstat(path)
    told = {
        "mode": oct(status.st_mode),
        "owner": (status.st_uid, status.st_gid),
        "inode": status.st_ino,
        "links": status.st_nlink,
        "changed": status.st_ctime_ns,
        "modified": status.st_mtime_ns,
        "attributes": {name: os.getxattr(path, name, follow_symlinks=False)
                       for name in os.listxattr(path, follow_symlinks=False)},
    }
    if stat.S_ISLNK(status.st_mode):
        told["target"] = os.readlink(path)
    elif stat.S_ISREG(status.st_mode):
        told["size"] = (status.st_size, status.st_blocks)
        if status.st_size < 1 << 20:
            told["content"] = pathlib.Path(os.fsdecode(path)).read_bytes()
    return told


def all_facts(root):
    found = {}
    for directory, directories, files in os.walk(os.fsencode(root)):
        for name in [b".", *files, *(name for name in directories if os.path.islink(os.path.join(directory, name)))]:
            path = os.path.normpath(os.path.join(directory, name))
            found[os.fsdecode(os.path.relpath(path, os.fsencode(root)))] = facts(path)
    return found


def differences(before, after):
    """Of two values of all_facts or release, a line a difference."""
    lines = []
    for path in sorted(before.keys() | after.keys()):
        was, now = before.get(path), after.get(path)
        if isinstance(was, dict) and isinstance(now, dict):
            lines += [f"{path}: {line}" for line in differences(was, now)]
        elif was != now:
            lines.append(f"{path}: {was} is {now}")
    return lines


def tree(root):
    """What a person sees of a tree: path to kind, mode, owner and group, and content."""
    seen = {}
    for path, told in all_facts(root).items():
        uid, gid = told["owner"]
        seen[path] = (told["mode"], uid, gid, told.get("content", told.get("target")))
    return seen


def acl(*entries):
    """The value of a POSIX ACL's attribute, of (tag, rights, id)."""
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


def mappings(target):
    """Of a package whose fragment names a place of its own."""
    return f"{ROOT}<mapping url='r' virtual='redirect' href='http://{target}'/>"


class SiteTest(unittest.TestCase):
    maxDiff = None
    def setUp(self):
        self.base = pathlib.Path(tempfile.mkdtemp(dir=SANDBOX))
        self.addCleanup(subprocess.run, ["rm", "-rf", self.base], check=True)
        self.base.chmod(0o755)
        self.marks = self.base / "marks"
        self.marks.mkdir()
        self.marks.chmod(0o777)
        self.conf = self.base / "site.conf"
        self.state = self.base / "state"
        self.vhosts = self.base / "vhosts"
        self.refusal = self.base / "refuse"  # while it is there, the server's check fails
        self.loaded = self.base / "loaded"   # what the server has read at its last reload
        self.mount_disks()
        self.settings()
        self.root = self.host("one.example", "sitea")
        self.app = self.root / "app"

    def mount_disks(self):
        """For tests that put state and hosts elsewhere."""

    def settings(self, **others):
        fragments = f"{self.vhosts}/system/*/conf/siteapp.d/*.conf"
        lines = {
            "STATE": self.state,
            "VHOSTS": self.vhosts,
            "CONFIGTEST": f'"[ ! -e {self.refusal} ] && ! grep -s no-such-directive {fragments}"',
            "RELOAD": f'"cat /dev/null {fragments} >{self.loaded} 2>/dev/null || :"',
            "TIME_LIMIT": PATIENCE,
            **others,
        }
        self.conf.write_text("".join(f"{name}={value}\n" for name, value in lines.items()))

    def host(self, name, account):
        (self.vhosts / "system" / name / "conf").mkdir(parents=True)
        return self.make_root(name, account)

    def make_root(self, name, account):
        root = self.vhosts / name / "httpdocs"
        root.mkdir(parents=True)
        for directory in (root.parent, root):
            os.chown(directory, pwd.getpwnam(account).pw_uid, pwd.getpwnam("sitea").pw_gid)
        return root

    def package(self, name, files, script="", mappings=ROOT, version="1.1"):
        """A package of `files` (path to text), whose script runs `script` behind the place where it can be held."""
        package = self.base / "packages" / name
        for path, text in files.items():
            file = package / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        (package / "htdocs").mkdir(parents=True, exist_ok=True)
        (package / "APP-META.xml").write_text(
            f"<application xmlns='{NAMESPACE}' xmlns:php='{NAMESPACE}/php' xmlns:cgi='{NAMESPACE}/cgi' "
            f"version='{version}'><name>book</name><version>{name}</version><release>1</release>"
            f"<configuration-script-language>php</configuration-script-language>{mappings}</application>")
        if script is not None:
            scripts = package / "scripts"
            scripts.mkdir()
            held = self.marks / "held"
            (scripts / "configure").write_text(
                f"#!/bin/sh\nif [ -f {held} ]; then\n    echo $$ >{held}\n"
                f"    while [ -e {held} ]; do sleep 0.01; done\nfi\n{script}\n")
            (scripts / "configure").chmod(0o755)
        return package

    def start(self, *words, **how):
        return Call(self, [str(word) for word in words], **how)

    def call(self, *words, **how):
        return self.start(*words, **how).end()

    def words(self, package, *parameters, host="one.example", account="sitea", name="app", options=()):
        return ["--language=binary", *options, "present", package, host, account, name, *parameters]

    def present(self, package, *parameters, moment=None, **where):
        return self.call(*self.words(package, *parameters, **where), moment=moment)

    def absent(self, host="one.example", name="app", options=(), moment=None):
        return self.call(*options, "absent", host, name, moment=moment)

    def changes(self, outcome):
        self.assertEqual((outcome.status, outcome.output), (0, "changed\n"), outcome.error)
        self.assertNotIn("failed:", outcome.error)

    def stays(self, outcome):
        self.assertEqual((outcome.status, outcome.output), (0, ""), outcome.error)

    def fails(self, outcome, cause, host="one.example", name="app", is_taken_back=False):
        """The last lines are those that a program can rely on, and nothing else says them."""
        self.assertEqual((outcome.status, outcome.output), (1, ""), outcome.error)
        self.assertIn(cause, outcome.error)
        lines = outcome.error.splitlines()
        self.assertEqual(lines[-1], f"failed: {host}", outcome.error)
        as_before = f"{host}/{name}: files, fragment and record are as before"
        self.assertEqual([line for line in lines if "as before" in line], [as_before] if is_taken_back else [])
        if is_taken_back:
            self.assertEqual(lines[-2], as_before)

    def cut(self, end, moment, words):
        """Ends a call at a moment, to which it has to come."""
        call = self.start(*words, moment=moment)
        if not call.hold():
            self.fail(f"{words} does not come to {moment}: {call.end()}")
        end(call)
        return call.end()

    def moments(self, *words):
        """All moments to which a call comes, each with its number."""
        trace = self.marks / "trace"
        trace.touch()
        trace.chmod(0o666)
        environment = {**os.environ, "LARKSPUR_CUT": f"all 0 {trace}"}
        subprocess.run([CUT, f"--settings={self.conf}", *map(str, words)], env=environment, timeout=PATIENCE,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        names = trace.read_text().split()
        trace.unlink()
        return [(name, names[:at].count(name) + 1) for at, name in enumerate(names)]

    def places(self, host="one.example", name="app"):
        """Directory of the state, store, and fragment of an application."""
        system = self.vhosts / "system" / host
        return (self.state / "sites" / host / name, system / "larkspur" / name,
                system / "conf/siteapp.d" / f"{name}.conf")

    def release(self, host="one.example", name="app", but=()):
        """What is installed: tree, fragment, record and list, without what differs from one installation of the same
        release to another one.  Nothing of a call may be left."""
        state, store, fragment = self.places(host, name)
        left = {path.name for path in state.glob("*")} if state.exists() else set()
        self.assertLessEqual(left, {"record.json", "files", "environment"})
        self.assertFalse((store / "call").exists())
        application = self.vhosts / host / "httpdocs" / name
        seen = tree(application) if application.exists() else {}
        record = {}
        if "record.json" in left:
            record = json.loads((state / "record.json").read_text())
            for field in ("installed", "changed", "journal"):
                del record[field]
            verified = self.call("verify", host, name)
            self.assertEqual((verified.status, verified.output), (0, ""), verified.error)
        return {
            "tree": {path: told for path, told in seen.items() if not path.startswith(tuple(but))},
            "fragment": fragment.read_text() if fragment.exists() else None,
            "record": record,
            "files": sorted(line.split(" ")[-1] for line in (state / "files").read_text().splitlines())
                     if "files" in left else None,
        }


class Visitor:
    """A process of the site's account that appends, creates, renames and deletes all the time.  What it has been told
    to be done it writes down elsewhere; at the end all of that has to be true."""

    def __init__(self, test, directory):
        self.test = test
        self.directory = pathlib.Path(directory)
        self.done = test.base / f"done-{self.directory.name}"

    def __enter__(self):
        self.pid = os.fork()
        if self.pid == 0:
            try:
                self.live()
            finally:
                os._exit(1)
        until(lambda: self.done.exists() and self.done.stat().st_size > 0)
        return self

    def live(self):
        done = os.open(self.done, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
        become(pwd.getpwuid(self.directory.stat().st_uid).pw_name)
        os.chdir(self.directory)
        number = 0
        while True:
            number += 1
            with open("log", "a", encoding="ascii") as log:
                log.write(f"{number}\n")
            os.write(done, f"append {number}\n".encode())
            pathlib.Path(f"new-{number}").write_text(str(number), encoding="ascii")
            os.rename(f"new-{number}", f"page-{number}")
            os.write(done, f"page {number}\n".encode())
            if number % 3 == 0:
                os.unlink(f"page-{number - 1}")
                os.write(done, f"delete {number - 1}\n".encode())
            time.sleep(0.001)

    def __exit__(self, *failure):
        os.kill(self.pid, signal.SIGTERM)
        status = os.waitpid(self.pid, 0)[1]
        if failure[0] is not None:
            return
        self.test.assertEqual(os.WTERMSIG(status), signal.SIGTERM, "the visitor met an error")
        expected = {"append": [], "page": [], "delete": []}
        for line in self.done.read_text().splitlines():
            what, number = line.split()
            expected[what].append(int(number))
        lines = list(map(int, (self.directory / "log").read_text().split()))
        self.test.assertEqual(lines[:len(expected["append"])], expected["append"])
        pages = set(expected["page"]) - set(expected["delete"])
        there = {int(path.name[5:]): path.read_text() for path in self.directory.glob("page-*")}
        missing = [number for number in pages if there.get(number) != str(number)]
        # The last thing that it did may be done and not written down.
        self.test.assertLessEqual(set(missing), {max(expected["page"]) - 1})
        self.test.assertLessEqual(len(there.keys() - pages), 1)
