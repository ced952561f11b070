#!/usr/bin/python3
"""Nothing of a visitor's is lost or changed, whatever larkspur-site does and however that ends."""

import itertools
import os
import pathlib
import pwd
import signal
import subprocess
import time

from calls import as_account, become, kill_child, kill_leader, kill_tree, until
from support import KROCLN, SITEA, SiteTest, main, mappings
from trees import ALL, GROUP_OBJ, MASK, OTHER, USER, USER_OBJ, acl, all_facts, differences

DATA = "<mapping url='data' path='data'/>"
OLD = {"htdocs/index": "one", "htdocs/same": "same", "htdocs/gone": "one", "htdocs/old/page": "one",
       "data/book": "first\n", "data/same": "same"}
NEW = {"htdocs/index": "two", "htdocs/same": "same", "htdocs/new/page": "two", "data/book": "first of two\n",
       "data/same": "same"}
NOBODY = 65534


class Visitor:
    """A process of the site's account that appends and creates all the time.  What it has been told
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
            pathlib.Path(f"page-{number}").write_text(str(number), encoding="ascii")
            os.write(done, f"page {number}\n".encode())
            time.sleep(0.001)

    def __exit__(self, *failure):
        os.kill(self.pid, signal.SIGTERM)
        status = os.waitpid(self.pid, 0)[1]
        if failure[0] is None:
            self.test.assertEqual(os.WTERMSIG(status), signal.SIGTERM, "the visitor met an error")
            self.check_all_is_there()

    def check_all_is_there(self):
        done = {"append": [], "page": []}
        for line in self.done.read_text().splitlines():
            what, number = line.split()
            done[what].append(int(number))
        lines = list(map(int, (self.directory / "log").read_text().split()))
        self.test.assertEqual(lines[:len(done["append"])], done["append"], "lines of the log")
        pages = {number: (self.directory / f"page-{number}").read_text() for number in done["page"]}
        self.test.assertEqual([number for number, text in pages.items() if text != str(number)], [], "changed pages")


def append(path, text):
    with open(path, "a", encoding="ascii") as file:
        file.write(text)


class VisitorsTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", OLD, mappings=mappings("one", beside=DATA))
        self.two = self.package("two", NEW, mappings=mappings("two", beside=DATA))
        self.failing = self.package("failing", NEW, "exit 3", mappings=mappings("two", beside=DATA))
        self.refused = self.package("refused", NEW, mappings=mappings("no-such-directive", beside=DATA))
        self.changes(self.present(self.one))

    def zoo(self):
        """What visitors and the customer have beside and in the package's entries.  Returns their own directory."""
        own = self.app / "data/own"
        own.mkdir()
        self.set_rights_and_attributes(own)
        self.make_strange_entries(own)
        for path in (own, *own.iterdir()):
            os.lchown(path, SITEA, NOBODY)
        (self.app / "same").chmod(0o640)
        (self.app / "data").chmod(0o2775)
        return own

    def set_rights_and_attributes(self, own):
        private = own / "private"
        private.write_text("secret")
        private.chmod(0o600)
        rights = acl((USER_OBJ, 6, ALL), (USER, 4, NOBODY), (GROUP_OBJ, 0, ALL), (MASK, 4, ALL), (OTHER, 0, ALL))
        for path in (private, self.app / "index"):
            os.setxattr(path, "system.posix_acl_access", rights)
            os.setxattr(path, "user.note", b"\0mine")
        os.setxattr(own, "system.posix_acl_default", rights)
        own.chmod(0o2751)

    def make_strange_entries(self, own):
        with open(own / "holes", "wb") as holes:
            holes.write(b"begin")
            holes.truncate(1 << 40)
        os.utime(own / "holes", ns=(0, 86_400_000_000_123))
        os.link(own / "private", self.root / "other-name")
        os.link(self.app / "same", own / "name-of-same")
        os.symlink("/etc/shadow", own / "link")
        os.mkfifo(own / "pipe", 0o640)
        (own / "closed").write_text("closed")
        (own / "closed").chmod(0)
        (own / "line\nfeed").write_text("")

    def comparable_facts(self, own):
        """Everything but what a way back cannot give back: when names of the package were last changed."""
        visitors = {own, *own.iterdir(), self.root / "other-name"}
        visitors.discard(own / "name-of-same")
        told = all_facts(self.root)
        for path, entry in told.items():
            if self.root / path not in visitors:
                del entry["changed"]
                if (self.root / path).is_dir():
                    del entry["modified"]
        return told

    def test_every_entry_is_the_same_in_every_respect_after_every_way_back(self):
        own = self.zoo()
        before = self.comparable_facts(own)
        rows = [
            ("script", lambda: self.present(self.failing)),
            ("fragment", lambda: self.present(self.refused)),
            ("killed half way", self.cut_and_recover),
            ("killed in the way back", self.cut_twice_and_recover),
        ]
        for name, act in rows:
            with self.subTest(name):
                act()
                self.assertEqual(differences(before, self.comparable_facts(own)), [])

    def cut_and_recover(self):
        self.cut(kill_tree, ("swap", 3), self.words(self.two))
        self.stays(self.call("recover"))

    def cut_twice_and_recover(self):
        self.cut(kill_tree, ("script-ended", 1), self.words(self.two))
        self.cut(kill_tree, ("back", 3), ["recover"])
        self.stays(self.call("recover"))

    def test_uploads_are_neither_read_nor_counted(self):
        own = self.zoo()
        (own / "upload").write_bytes(os.urandom(1 << 20))
        uploads = [own / "upload", own / "holes", own / "private"]
        (own / "name-of-same").unlink()
        before = all_facts(own)
        read = 1_000_000_000
        for upload in uploads:
            os.utime(upload, ns=(read, upload.stat().st_mtime_ns))
        self.changes(self.present(self.two))
        self.fails(self.present(self.failing), "exit status 3", is_taken_back=True)
        self.changes(self.present(self.one))
        self.assertEqual([path.stat().st_atime_ns for path in uploads], [read] * len(uploads))
        self.assertEqual([line for line in differences(before, all_facts(own)) if ": changed: " not in line], [])
        state = subprocess.run(["du", "-s", self.state], check=True, capture_output=True, text=True).stdout
        self.assertLess(int(state.split()[0]), 100)

    def cut_while_it_goes_back(self):
        """Where there is something to take back."""
        call = self.start("recover", moment=("back", 2))
        if call.hold():
            kill_tree(call)
        call.end()

    def test_a_busy_site_loses_nothing_in_any_act(self):
        data = self.app / "data"
        inner = data / "inner"
        inner.mkdir()
        for directory in (data, inner):
            os.chown(directory, SITEA, KROCLN)
        moments = [("staged", 1), ("swap", 2), ("swap", 7), ("fragment", 1), "script", ("script-ended", 1),
                   ("noted", 1)]
        with Visitor(self, inner), Visitor(self, data):
            self.changes(self.present(self.two))
            self.changes(self.present(self.two, options=["--repair"]))
            self.fails(self.present(self.failing), "exit status 3", is_taken_back=True)
            self.fails(self.present(self.refused), "refuses the fragment", is_taken_back=True)
            for end, moment in itertools.product((kill_tree, kill_leader, kill_child), moments):
                with self.subTest(end.__name__, moment=moment):
                    self.cut(end, moment, self.words(self.one))
                    self.cut_while_it_goes_back()
                    self.stays(self.call("recover"))
                    self.assertEqual(self.present(self.two).status, 0)  # it is there already where the cut was early
            self.changes(self.absent())
            self.cut(kill_tree, ("swap", 4), self.words(self.one))
            self.changes(self.present(self.one))
            self.cut(kill_tree, ("swap", 4), ["absent", "one.example", "app"])
            self.stays(self.call("recover"))
            self.changes(self.present(self.one))

    def test_lines_in_a_file_of_the_package_are_kept(self):
        book = self.app / "data/book"
        kept = self.places().store / "kept"

        def write(text):
            as_account("sitea", lambda: append(book, text))

        def kept_text():
            return "".join(path.read_text() for path in kept.rglob("book"))

        write("before\n")
        self.assertEqual(self.present(self.failing).status, 1)
        self.assertEqual(book.read_text(), "first\nbefore\n")
        outcome = self.meanwhile("script", self.words(self.failing), lambda: write("while the script runs\n"))
        self.assertEqual(outcome.status, 1)
        self.assertEqual(book.read_text(), "first\nbefore\n")
        self.assertIn("first of two\nwhile the script runs\n", kept_text())
        self.changes(self.present(self.two))
        self.assertIn("first\nbefore\n", kept_text())
        write("after\n")
        self.changes(self.absent())
        self.assertIn("first of two\nafter\n", kept_text())


main()
