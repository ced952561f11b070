"""The case that the tests of larkspur-site share: a host and an account of its own, packages in one line, the acts,
what has to come of them, and all that a site can hold.

Each file of tests here runs by itself: tests/support/sandbox tests/site/FILE [CLASS.CASE].  With LARKSPUR_EVERY=N in
the environment it tries each N-th case of its campaigns only."""

import itertools
import json
import os
import pathlib
import pwd
import subprocess
import tempfile
import unittest
from typing import NamedTuple

from calls import CUT, PATIENCE, Call
from testing import IN_SANDBOX, NO_SANDBOX, SANDBOX, application, main, skip
from trees import differences, tree

ROOT = "<mapping url='/' path='htdocs'/>"
SITEA, SITEB, KROCLN = 20001, 20002, 20100  # the sandbox's accounts, and the group of both

# Two releases, for tests to which it is all the same what changes in an upgrade.
ONE = {"htdocs/index": "one", "htdocs/sub/page": "same", "htdocs/old": "old"}
TWO = {"htdocs/index": "two", "htdocs/sub/page": "same", "htdocs/new/page": "new"}
EVERY = int(os.environ.get("LARKSPUR_EVERY", "1"))

if not IN_SANDBOX:
    skip(NO_SANDBOX)


def mappings(target, inner="", beside=""):
    """Of a package whose fragment names a place of its own.  `inner` is put into the mapping of htdocs, and `beside` in
    the same row."""
    return (f"<mapping url='/' path='htdocs'>{inner}</mapping>{beside}"
            f"<mapping url='r' virtual='redirect' href='http://{target}'/>")


_numbers = itertools.count()  # of the cases of all campaigns


def share(cases):
    """Those cases of a campaign that this run tries.  The numbers go on from one campaign to the next: their cases are
    much the same, and so each campaign begins with another one."""
    for case, number in zip(cases, _numbers):
        if number % EVERY == 0:
            yield case


def no_change(_):
    """What a row does that leaves all as it is."""


class Places(NamedTuple):
    """Where larkspur-site has what it keeps of an application."""

    state: pathlib.Path  # a directory
    store: pathlib.Path  # a directory on the disk of the site
    fragment: pathlib.Path


def lasting_record(file):
    """A record without what each installation has of its own."""
    record = json.loads(file.read_text())
    for field in ("installed", "changed", "journal"):
        del record[field]
    return record


def listed_paths(file):
    """The paths of a list of what was installed, without sizes and times."""
    return sorted(line.split(" ")[-1] for line in file.read_text().splitlines())


class SiteTest(unittest.TestCase):
    """`asked`, `changes`, `stays`, `fails` and `is_one_of` assert what has come of a call."""

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
            os.chown(directory, pwd.getpwnam(account).pw_uid, KROCLN)
        return root

    def package(self, name, files, script="", mappings=ROOT):
        """A package of `files` (path to text), whose script runs `script` behind the place where it can be held."""
        package = self.base / "packages" / name
        for path, text in files.items():
            file = package / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        (package / "htdocs").mkdir(parents=True, exist_ok=True)
        (package / "APP-META.xml").write_text(application(
            f"<name>book</name><version>{name}</version><release>1</release>"
            f"<configuration-script-language>php</configuration-script-language>{mappings}",
            attributes="version='1.1'"))
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

    def words_of_list(self, wishes):
        """Of a call with a list of (package, host, account)."""
        file = self.base / "list"
        file.write_text("".join(json.dumps([str(package), host, account, "app"]) + "\n"
                                for package, host, account in wishes))
        return ["--language=binary", f"--list={file}", "present"]

    def two_releases(self, inner=""):
        """Packages one and two: files that are the same, one that differs, and each a directory of its own.  `inner` is
        put into the mapping of htdocs."""
        both = {"htdocs/same": "", "htdocs/sub/page": "x" * 3000}
        one = both | {"htdocs/index": "one", "htdocs/old/page": "one" * 1000}
        two = both | {"htdocs/index": "two", "htdocs/new/page": "two" * 1000}
        return (self.package("one", one, mappings=mappings("one", inner)),
                self.package("two", two, mappings=mappings("two", inner)))

    def present(self, package, *parameters, moment=None, **where):
        return self.call(*self.words(package, *parameters, **where), moment=moment)

    def neighbour(self, package):
        """A call for another site, which is the other account's."""
        return self.present(package, host="two.example", account="siteb")

    def absent(self, host="one.example", name="app", options=(), moment=None):
        return self.call(*options, "absent", host, name, moment=moment)

    def asked(self, *words, status=0):
        """The answer to a question."""
        outcome = self.call(*words)
        self.assertEqual((outcome.status, outcome.error), (status, ""))
        return outcome.output

    def applications(self, *words, status=0):
        """The same as what programs are told."""
        return json.loads(self.asked("--json", *words, status=status))["applications"]

    def kept(self):
        """The files of which one.example/app says that they are kept."""
        (told,) = self.applications("list", "one.example")
        return [pathlib.Path(file) for file in told["kept"]]

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

    def is_one_of(self, releases):
        """The site is one of the releases (their names to what `release` said of them), in every respect."""
        now = self.release()
        differing = {name: differences(release, now) for name, release in releases.items()}
        self.assertIn([], differing.values(), differing)

    def hold(self, moment, words, **how):
        """Starts a call and holds it at a moment, to which it has to come."""
        call = self.start(*words, moment=moment, **how)
        if not call.hold():
            self.fail(f"{words} does not come to {moment}: {call.end()}")
        return call

    def cut(self, end, moment, words):
        call = self.hold(moment, words)
        end(call)
        return call.end()

    def meanwhile(self, moment, words, work):
        """What comes of a call when work is done while it is held."""
        call = self.hold(moment, words)
        work()
        call.go_on()
        return call.end()

    def moments(self, *words):
        """All moments to which a call comes, each with its number."""
        trace = self.marks / "trace"
        trace.touch()
        trace.chmod(0o666)
        environment = {**os.environ, "LARKSPUR_CUT": f"{trace} all 0"}
        subprocess.run([CUT, f"--settings={self.conf}", *map(str, words)], env=environment, timeout=PATIENCE,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        names = trace.read_text().split()
        trace.unlink()
        return [(name, names[:at].count(name) + 1) for at, name in enumerate(names)]

    def places(self, host="one.example", name="app"):
        system = self.vhosts / "system" / host
        return Places(state=self.state / "sites" / host / name,
                      store=system / "larkspur" / name,
                      fragment=system / "conf/siteapp.d" / f"{name}.conf")

    def release(self, host="one.example", name="app"):
        """What is installed: tree, fragment, record and list, without what differs from one installation of the same
        release to another one.  Nothing of a call may be left."""
        places = self.places(host, name)
        self.assertLessEqual({path.name for path in places.state.glob("*")}, {"record.json", "files", "environment"})
        self.assertFalse((places.store / "call").exists())
        application = self.vhosts / host / "httpdocs" / name
        record = places.state / "record.json"
        files = places.state / "files"
        if record.exists():
            verified = self.call("verify", host, name)
            self.assertEqual((verified.status, verified.output), (0, ""), verified.error)
        return {
            "tree": tree(application) if application.exists() else {},
            "fragment": places.fragment.read_text() if places.fragment.exists() else None,
            "record": lasting_record(record) if record.exists() else {},
            "files": listed_paths(files) if files.exists() else None,
        }
