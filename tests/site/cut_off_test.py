#!/usr/bin/python3
"""Each step of each act is ended by SIGKILL; then the same call, another call, or recover leaves one release."""

import itertools
import os
from typing import NamedTuple

from calls import kill_child, kill_leader, kill_tree
from support import SITEA, SiteTest, main, share
from trees import differences

HANDLER = "<php:handler><php:extension>php</php:extension></php:handler>"
ENDS = [("the whole tree", kill_tree), ("the leader", kill_leader), ("the child", kill_child)]


MAKING = {"nothing": "remove", "one": "install"}  # a release, and the act that leaves it whatever was there


class Row(NamedTuple):
    release: str    # that is there before
    act: str        # that is cut off
    following: str
    results: list   # the releases of which one is there then


ROWS = [
    Row("nothing", "install", following="install", results=["one"]),
    Row("nothing", "install", following="remove", results=["nothing"]),
    Row("nothing", "install", following="recover", results=["nothing", "one"]),
    Row("one", "upgrade", following="upgrade", results=["two"]),
    Row("one", "upgrade", following="install", results=["one"]),
    Row("one", "upgrade", following="remove", results=["nothing"]),
    Row("one", "upgrade", following="recover", results=["one", "two"]),
    Row("one", "remove", following="remove", results=["nothing"]),
    Row("one", "remove", following="upgrade", results=["two"]),
    Row("one", "remove", following="recover", results=["one", "nothing"]),
]


class CutOffTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one, self.two = self.two_releases(HANDLER)
        self.acts = {"install": self.words(self.one), "upgrade": self.words(self.two),
                     "remove": ["absent", "one.example", "app"], "recover": ["recover"]}
        self.releases = {"nothing": self.release()}
        self.changes(self.call(*self.acts["install"]))
        self.releases["one"] = self.release()
        self.changes(self.call(*self.acts["upgrade"]))
        self.releases["two"] = self.release()
        self.changes(self.absent())
        self.assertEqual(self.releases["nothing"], self.release())

    def begin(self, release):
        """Whatever is there, the release is installed by calls that nobody cuts."""
        outcome = self.call(*self.acts[MAKING[release]])
        self.assertEqual(outcome.status, 0, outcome.error)

    def reloaded(self):
        """After the next reload the server has read what there is."""
        outcome = self.call("reload")
        self.assertEqual(outcome.status, 0, outcome.error)
        fragment = self.places().fragment
        loaded = self.loaded.read_text() if self.loaded.exists() else ""
        self.assertEqual(loaded, fragment.read_text() if fragment.exists() else "")

    def cuts(self, release, act, is_repeated):
        """Each moment of an act, and who dies at it.  Where the leader is at the moment, it is alone.  What has died
        makes no difference to who comes next, so one next call is enough for each."""
        self.begin(release)
        moments = self.moments(*self.acts[act])
        self.assertGreater(len(moments), 7, moments)
        for moment in [*moments, "script"]:
            has_child = moment == "script" or moment[0] in ("stage", "swap", "exchange")
            ends = ENDS if has_child and is_repeated else ENDS[:1]
            for who, end in ends:
                yield moment, who, end

    def test_every_moment_of_every_act_and_every_next_call(self):
        for row in ROWS:
            is_repeated = row.act == row.following
            for moment, who, end in share(self.cuts(row.release, row.act, is_repeated)):
                with self.subTest(f"{row.act} over {row.release}, {who} killed at {moment}, then {row.following}"):
                    self.begin(row.release)
                    self.cut(end, moment, self.acts[row.act])
                    if is_repeated:
                        self.looks()
                    outcome = self.call(*self.acts[row.following])
                    self.assertEqual(outcome.status, 0, outcome.error)
                    self.is_one_of({name: self.releases[name] for name in row.results})
                    self.reloaded()

    def looks(self):
        """A look at what a call would do fails at nothing that was cut off."""
        outcome = self.call("--dry-run", *self.words(self.two))
        self.assertIn(outcome.status, (0, 10), outcome.error)

    def reload_and_kill(self, call):
        """The server reads what the call has placed so far."""
        self.assertEqual(self.call("reload").status, 0)
        kill_tree(call)

    def test_every_moment_of_every_way_back_and_clearing_up(self):
        rows = [  # what is there, what is cut off and where, and what recover alone makes of it
            ("one", "upgrade", ("script-ended", 1), "one"),
            ("one", "upgrade", ("record", 1), "two"),
            ("one", "remove", ("journal", 1), "nothing"),
        ]
        for release, act, first, recovered in rows:
            results = {"recover": recovered, "upgrade": "two", "remove": "nothing"}
            self.begin(release)
            self.cut(self.reload_and_kill, first, self.acts[act])
            moments = self.moments("recover")
            self.assertGreater(len(moments), 2)
            self.is_one_of(self.releases)
            for moment, following in share(itertools.product(moments, results)):
                with self.subTest(f"{act}, cut off at {first}, then at {moment}, then {following}"):
                    self.begin(release)
                    self.cut(self.reload_and_kill, first, self.acts[act])
                    self.cut(kill_tree, moment, ["recover"])
                    outcome = self.call(*self.acts[following])
                    self.assertEqual(outcome.status, 0, outcome.error)
                    self.assertEqual(differences(self.releases[results[following]], self.release()), [])
                    self.reloaded()

    def test_what_another_application_brings_is_not_taken(self):
        """A call that was cut off is ended before another one for the host begins, whatever application that is for."""
        both = self.package("both", {"htdocs/mine/app/index": "one", "htdocs/other": "other"})
        less = self.package("less", {"htdocs/other": "other"})
        inner = self.package("inner", {"htdocs/index": "one"})
        rows = [  # what is there before, and what is cut off where
            ("a removal", both, ["absent", "one.example", "."], ("swap", 1)),
            ("an installation", None, self.words(both, name="."), ("swapped", 1)),
            ("an upgrade", less, self.words(both, name="."), ("swapped", 1)),
        ]
        for name, before, words, moment in rows:
            with self.subTest(name):
                if before:
                    self.changes(self.present(before, name="."))
                self.cut(kill_tree, moment, words)
                self.changes(self.present(inner, name="mine/app", options=["--ignore=replaces"]))
                self.stays(self.call("recover"))
                self.stays(self.call("verify", "one.example", "mine/app"))
                self.changes(self.absent(name="mine/app"))
                self.assertEqual(self.absent(name=".").status, 0)

    def test_a_way_back_that_leaves_something_is_not_the_end(self):
        """The files that could not be reached then are not taken for the release of the record."""
        away = self.root / "away"
        rows = [
            ("closed", lambda: self.app.chmod(0), lambda: self.app.chmod(0o755)),
            ("of another name", lambda: self.app.rename(away), lambda: away.rename(self.app)),
        ]
        for name, bar, unbar in rows:
            with self.subTest(name):
                self.begin("one")
                self.cut(kill_tree, ("swapped", 1), self.acts["upgrade"])
                bar()
                self.stays(self.call("recover"))
                unbar()
                self.changes(self.present(self.one))
                self.assertEqual(differences(self.releases["one"]["tree"], self.release()["tree"]), [])

    def test_what_a_visitor_has_put_in_a_place_stays_there(self):
        self.begin("one")
        self.cut(kill_tree, ("swapped", 1), self.acts["upgrade"])
        pages = [self.app / "index", self.app / "new/page"]  # one was exchanged, one is new
        for page in pages:
            page.unlink()
            page.write_text("a visitor's")
        self.stays(self.call("recover"))
        self.stays(self.present(self.one))
        self.assertEqual([page.read_text() for page in pages], ["a visitor's"] * 2)

    def test_what_a_visitor_has_removed_comes_back(self):
        self.begin("one")
        self.cut(kill_tree, ("swapped", 1), self.acts["upgrade"])
        (self.app / "index").unlink()
        self.stays(self.call("recover"))
        self.assertEqual(differences(self.releases["one"], self.release()), [])

    def test_an_old_file_that_is_not_in_the_store_any_more_is_told(self):
        self.begin("one")
        self.cut(kill_tree, ("swapped", 1), self.acts["upgrade"])
        for file in [*(self.places().store / "call").iterdir(), self.app / "index"]:
            if file.is_file():
                file.unlink()
                file.write_text("another one")
        outcome = self.call("recover")
        self.stays(outcome)
        self.assertIn("app/index: the old one is not in the store any more\n", outcome.error)

    def test_a_directory_of_a_visitor_s_stays_where_no_step_had_begun(self):
        self.begin("one")
        call = self.hold(("fragment", 1), self.acts["upgrade"])
        new = self.app / "new"
        new.mkdir()
        os.chown(new, SITEA, -1)
        self.refusal.touch()
        call.go_on()
        self.fails(call.end(), "broken before", is_taken_back=True)
        self.refusal.unlink()
        self.assertTrue(new.exists())
        new.rmdir()

    def test_a_directory_of_somebody_else_s_in_a_place_stays_there(self):
        self.begin("one")
        self.cut(kill_tree, ("swap", 1), self.acts["upgrade"])
        (self.app / "new").mkdir()  # root's
        self.stays(self.call("recover"))
        self.assertTrue((self.app / "new").exists())
        (self.app / "new").rmdir()


main()
