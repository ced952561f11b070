#!/usr/bin/python3
"""What a customer puts into the way of a call can spoil it for that host, which then says so: it never leads the call
to anything else."""

import grp
import json
import os
import pathlib
import subprocess
from typing import Callable, NamedTuple

from calls import as_account
from support import SITEA, SiteTest, main
from trees import all_facts, differences, facts

ONE = {"htdocs/index": "one", "htdocs/same": "same", "htdocs/gone": "one", "htdocs/sub/page": "one",
       "htdocs/old/page": "one"}
TWO = {"htdocs/index": "two", "htdocs/same": "same", "htdocs/sub/page": "two", "htdocs/new/page": "two",
       "htdocs/other/page": "two"}


def replace(path, make):
    """Something else stands at a path from now on."""
    path.rename(path.parent / f"{path.name}.moved")
    make(path)


def link_to(target):
    return lambda path: path.symlink_to(target)


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
    make: Callable               # is given the test
    cause: str = ""              # of the failed upgrade; empty where the upgrade is made
    is_taken_back: bool = False  # what the upgrade had begun


AGAINST_IT = "files: larkspur-preview is against it"

OBSTACLES = [
    Obstacle("the document root is a neighbour's", lambda test: replace(test.root, link_to(test.next_root)),
             "files: the account cannot enter the document root"),
    Obstacle("the application is a neighbour's", lambda test: replace(test.app, link_to(test.next_root / "app")),
             AGAINST_IT),
    Obstacle("a directory is root's", lambda test: replace(test.app / "sub", link_to(test.roots / "sub")), AGAINST_IT),
    Obstacle("a directory to come is root's", lambda test: link_to(test.roots)(test.app / "new"), AGAINST_IT),
    Obstacle("an obsolete directory is root's", lambda test: replace(test.app / "old", link_to(test.roots / "sub"))),
    Obstacle("a file is a neighbour's",
             lambda test: replace(test.app / "index", link_to(test.next_root / "app/index"))),
    Obstacle("an obsolete file is root's", lambda test: replace(test.app / "gone", link_to(test.roots / "index"))),
    Obstacle("a file is a FIFO", lambda test: replace(test.app / "index", os.mkfifo)),
    Obstacle("an obsolete file is a FIFO", lambda test: replace(test.app / "gone", os.mkfifo)),
    Obstacle("a file is a sparse giant", lambda test: replace(test.app / "index", make_giant)),
    Obstacle("files of mode 0", lambda test: [path.chmod(0) for path in (test.app / "index", test.app / "same")],
             AGAINST_IT),
    Obstacle("a directory of mode 0", lambda test: (test.app / "sub").chmod(0), AGAINST_IT),
    Obstacle("an immutable file", lambda test: set_immutable(test.app / "index"),
             "files: app/index: Operation not permitted", is_taken_back=True),
    Obstacle("an immutable directory", lambda test: set_immutable(test.app / "sub"),
             "files: app/sub/page: Operation not permitted", is_taken_back=True),
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
        self.changes(self.neighbour(self.one))
        self.changes(self.present(self.one))
        self.is_one = self.release()
        self.elsewhere_before = self.elsewhere()

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
                    self.fails(outcome, obstacle.cause, is_taken_back=obstacle.is_taken_back)
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
                    outcome = self.meanwhile(moment, self.words(self.two), exchange)
                    self.assertIn((outcome.status, outcome.output), [(0, "changed\n"), (1, "")])
                    self.nothing_elsewhere()
                    self.start_anew()

    def put_in_place_of_file(self):
        os.rename(self.app / "index", self.app / "away")
        os.rename(self.app / "mine", self.app / "index")

    def plant(self, held_directory):
        """Through a directory that is in the store for a moment: leaves there what leads elsewhere."""
        store = os.open("..", os.O_RDONLY | os.O_DIRECTORY, dir_fd=held_directory)
        # Steps 1 and 3 make the directories new and other, and step 2 brings new/page, step 4 other/page.
        os.symlink(self.roots / "empty", "1", dir_fd=store)
        os.mkdir("3", dir_fd=store)
        for name in ("2", "4"):
            staged = os.open(name, os.O_WRONLY | os.O_TRUNC, dir_fd=store)
            os.write(staged, b"the customer's")
        os.mkdir("full", dir_fd=store)
        os.mkdir("full/of-it", dir_fd=store)

    def with_directory_in_the_store(self, work):
        """What comes of an upgrade when the account does work while a directory of its own, whose descriptor the work is
        given, has come to the store in the place of a file."""
        (self.app / "mine").mkdir()
        os.chown(self.app / "mine", SITEA, -1)
        held_directory = os.open(self.app / "mine", os.O_RDONLY | os.O_DIRECTORY)
        self.addCleanup(os.close, held_directory)
        # Between the look at the file and its exchange, and between that and the look at what has come to the store.
        call = self.hold(("exchange", 1), self.words(self.two), later=[("exchange", 2)])
        as_account("sitea", self.put_in_place_of_file)
        call.go_on()
        self.assertTrue(call.hold())
        as_account("sitea", lambda: work(held_directory))
        call.go_on()
        return call.end()

    def test_what_is_planted_in_the_store_leads_nowhere(self):
        outcome = self.with_directory_in_the_store(self.plant)
        self.fails(outcome, "app/index: something else stands there", is_taken_back=True)
        self.nothing_elsewhere()
        (told,) = json.loads(self.call("--json", "status", "one.example", "app").output)["applications"]
        # Neither page is kept below what the customer has put in the place of its directory.
        self.assertEqual(sorted(pathlib.Path(file).name for file in told["kept"]),
                         ["entry-2", "entry-4", "full", "new", "other"])
        self.assertEqual(self.call("recover").status, 0)
        self.start_anew()

    def test_a_store_that_the_customer_closes_while_it_is_lent_keeps_no_way_back(self):
        outcome = self.with_directory_in_the_store(lambda directory: os.chmod("..", 0, dir_fd=directory))
        self.fails(outcome, "Permission denied", is_taken_back=True)

    def test_directories_that_the_customer_has_closed_are_as_before(self):
        failing = self.package("failing", TWO, "exit 3")
        sub = self.app / "sub"
        os.chown(sub, SITEA, grp.getgrnam("kroserv").gr_gid)
        sub.chmod(0o2555)
        before = facts(sub)["mode"]
        self.fails(self.present(failing), "script upgrade: exit status 3", is_taken_back=True)
        self.assertEqual(((sub / "page").read_text(), facts(sub)["mode"]), ("one", before))
        self.changes(self.present(self.two))
        self.assertEqual(((sub / "page").read_text(), facts(sub)["mode"]), ("two", before))

    def test_what_is_put_out_of_reach_in_the_middle_is_not_said_to_be_as_before_and_keeps_nobody_waiting(self):
        failing = self.package("failing", TWO, "exit 3")
        rows = [
            ("closed", lambda: (self.app / "sub").chmod(0o555), "app/sub/page: left as it is: its directory is closed"),
            ("moved away", lambda: (self.app / "new").rename(self.app / "moved"),
             "app/new/page: somebody has removed or replaced its directory"),
        ]
        for name, bar, told in rows:
            with self.subTest(name):
                outcome = self.meanwhile("script", self.words(failing), bar)
                self.fails(outcome, "script upgrade: exit status 3")
                self.assertIn(f"{told}\n", outcome.error)
                self.stays(self.call("recover"))
                self.start_anew()

    def test_a_way_back_that_is_barred_is_walked_later(self):
        failing = self.package("failing", TWO, "exit 3")
        outcome = self.meanwhile("script", self.words(failing), lambda: set_immutable(self.app / "index"))
        self.fails(outcome, "way back: ")
        self.fails(self.present(self.two), "recovery: ")
        set_immutable(self.app / "index", False)
        self.stays(self.call("recover"))
        self.assertEqual(differences(self.is_one, self.release()), [])


main()
