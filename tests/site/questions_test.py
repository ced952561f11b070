#!/usr/bin/python3
"""What larkspur-site is asked: list, status, verify and a dry run, and what --repair mends.  No question changes a
site."""

import os
import pathlib
import subprocess
from typing import Callable, NamedTuple

from calls import kill_tree
from support import ONE, SITEA, SITEB, TWO, SiteTest, main, mappings, no_change
from trees import all_facts, differences

TIME = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ"


class Change(NamedTuple):
    name: str
    make: Callable  # changes the test's site
    told: str       # by verify
    mend: Callable = no_change  # what the repair cannot do


def rewrite(path, text):
    """Somebody else's content of the same size and time."""
    status = path.stat()
    path.write_text(text)
    os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))


def close_directory(test):
    os.chown(test.app / "sub", 0, 0)
    (test.app / "sub").chmod(0o700)


def open_directory(test):
    os.chown(test.app / "sub", SITEA, -1)
    (test.app / "sub").chmod(0o755)


CHANGES = [
    Change("a file is gone", lambda test: (test.app / "index").unlink(), "missing: app/index"),
    Change("a file is edited", lambda test: (test.app / "index").write_text("mine"), "edited: app/index"),
    Change("a file has another mode", lambda test: (test.app / "index").chmod(0o600), "mode: app/index"),
    Change("a directory has another mode", lambda test: (test.app / "sub").chmod(0o700), "mode: app/sub"),
    Change("a file has another owner", lambda test: os.chown(test.app / "index", SITEB, -1), "owner: app/index"),
    Change("a directory is closed", close_directory, "unreadable: app/sub/page", mend=open_directory),
    Change("the fragment is gone", lambda test: test.places().fragment.unlink(), "fragment-missing: FRAGMENT"),
    Change("the fragment is edited", lambda test: test.places().fragment.write_text("# mine\n"),
           "fragment-edited: FRAGMENT"),
]


class QuestionsTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", ONE, mappings=mappings("one"))
        self.two = self.package("two", TWO, mappings=mappings("two"))
        self.changes(self.present(self.one, "a title", "two\nlines"))

    def test_what_is_installed_is_listed_and_told(self):
        self.host("two.example", "siteb")
        self.changes(self.present(self.two, host="two.example", account="siteb", name="sub/wiki"))
        one, two = (told["changed"][:10] for told in self.applications("list"))
        self.assertEqual(self.asked("list"),
                         f"one.example/app       one-1          {one}\n"
                         f"two.example/sub/wiki  two-1          {two}\n")
        self.assertEqual(self.asked("list", "two.example"), f"two.example/sub/wiki  two-1          {two}\n")
        self.assertEqual(self.call("list", "three.example"), (1, "", f"larkspur-site: there is no host {self.vhosts}/three.example\n"))
        self.assertIn("parameter:     two\\nlines\n", self.asked("status", "one.example", "app"))
        outcome = self.call("status", "one.example", "other")
        self.assertEqual(outcome, (1, "", "larkspur-site: there is no one.example/other\n"))

    def test_where_nothing_is_known_there_is_nothing_to_tell_or_do(self):
        self.settings(STATE=self.base / "new")
        for act in ("list", "verify", "recover", "reload"):
            self.assertEqual(self.call(act), (0, "", ""), act)

    def test_an_answer_that_cannot_be_written_is_none(self):
        rows = (["list"], ["status", "one.example", "app"], ["verify"], self.words(self.two, options=["--dry-run"]))
        with open("/dev/full", "w") as full:
            for words in rows:
                with self.subTest(words):
                    outcome = self.call("--json", *words, stdout=full)
                    self.assertEqual((outcome.status, outcome.error),
                                     (1, "larkspur-site: standard output cannot be written\n"))

    def test_programs_are_told_the_same(self):
        (told,) = self.applications("list", "one.example")
        times = {name: told.pop(name) for name in ("installed", "changed")}
        for time in times.values():
            self.assertRegex(time, f"^{TIME}$")
        self.assertEqual(told, {
            "host": "one.example", "name": "app", "isInstalled": True, "isAtWork": False, "isCutOff": False,
            "title": "book", "version": "one-1", "package": str(self.one), "account": "sitea",
            "documentRoot": str(self.root), "script": "configure", "language": "binary",
            "parameters": ["a title", "two\nlines"], "hasSecrets": False, "webserverWrite": False,
            "fragment": str(self.places().fragment), "kept": []})
        self.assertEqual(self.applications("status", "one.example", "app"), [told | times])

    def is_listed_as(self, state):
        """A person is told so, and a program."""
        self.assertRegex(self.asked("list"), f"^one.example/app .*{state}$")
        (told,) = self.applications("list")
        self.assertEqual((told["isAtWork"], told["isCutOff"]), (state == "at work", state == "cut off"))

    def look_and_cut(self, moment, package):
        call = self.hold(moment, self.words(package))
        self.is_listed_as("at work")
        kill_tree(call)
        call.end()

    def test_a_call_at_work_or_cut_off_is_listed(self):
        for name, package in [("an upgrade", self.two), ("a first installation", self.one)]:
            with self.subTest(name):
                self.look_and_cut(("swap", 1), package)
                self.is_listed_as("cut off")
                self.assertEqual(self.absent().status, 0)

    def test_a_first_installation_that_was_killed_before_its_journal_has_changed_nothing(self):
        self.changes(self.absent())
        self.look_and_cut(("staged", 1), self.one)
        self.assertEqual(self.asked("list"), "")

    def test_an_upgrade_that_was_killed_behind_its_record_is_compared_with_the_new_release(self):
        self.cut(kill_tree, ("record", 1), self.words(self.two))
        self.assertEqual(self.asked("verify"), "")

    def test_what_is_wrong_with_one_application_is_not_told_of_another(self):
        self.changes(self.present(self.one, name="other"))
        record = self.places(name="other").state / "record.json"
        record.write_text("{")
        for act in ("status", "verify"):
            self.asked(act, "one.example", "app")
        for words in (["list"], ["verify"], ["status", "one.example", "other"]):
            outcome = self.call(*words)
            self.assertEqual(outcome.status, 1)
            self.assertIn(f"one.example/other: {record} is no record: ", outcome.error)

    def test_a_copy_of_an_application_s_state_is_no_application(self):
        state = self.places().state
        subprocess.run(["cp", "-a", state, f"{state}.bak"], check=True)
        outcome = self.call("list")
        self.assertEqual(outcome.status, 1)
        self.assertIn(f"one.example/app.bak: {state}.bak/record.json is the record of one.example/app\n", outcome.error)
        self.fails(self.absent(name="app.bak"), "is the record of one.example/app", name="app.bak")
        self.changes(self.absent())
        self.assertFalse(self.app.exists())

    def test_a_dry_run_names_the_application_that_was_cut_off(self):
        self.cut(kill_tree, ("swap", 1), self.words(self.two))
        words = self.words(self.one, name="other", options=["--dry-run"])
        plan = "recover  one.example/app\nfragment changes\nscript   install\n"
        self.assertEqual(self.asked(*words, status=10), plan)
        (told,) = self.applications(*words, status=10)
        self.assertEqual((told["isPending"], told["steps"]), (True, []))

    def test_kept_files_are_listed(self):
        (self.app / "index").write_text("mine")
        self.changes(self.present(self.two))
        self.assertRegex(self.asked("list"), "1 kept$")
        (told,) = self.applications("list")
        (kept,) = told["kept"]
        self.assertEqual(pathlib.Path(kept).read_text(), "mine")
        self.changes(self.absent())
        self.assertRegex(self.asked("list"), "removed, 1 kept$")

    def test_each_difference_is_told_and_most_are_mended(self):
        fragment = self.places().fragment
        for change in CHANGES:
            with self.subTest(change.name):
                change.make(self)
                told = change.told.replace("FRAGMENT", str(fragment))
                self.assertIn(f"one.example/app: {told}\n", self.asked("verify", status=10))
                what, path = told.split(": ")
                (found,) = self.applications("verify", "one.example", "app", status=10)
                self.assertIn({"what": what, "path": path}, found["differences"])
                change.mend(self)
                outcome = self.present(self.one, "a title", "two\nlines", options=["--repair"])
                self.assertEqual((outcome.status, outcome.output), (0, "changed\n"), outcome.error)
                self.assertEqual(self.asked("verify"), "")

    def test_content_counts_in_a_repair_where_time_and_size_do_not_tell(self):
        rewrite(self.app / "index", "own")
        self.assertEqual(self.asked("verify"), "")
        self.changes(self.present(self.one, "a title", "two\nlines", options=["--repair"]))
        self.assertEqual((self.app / "index").read_text(), "one")

    def test_a_time_in_whole_seconds_does_not_tell_what_a_file_holds(self):
        packages = [self.package(f"lib {text}", {"htdocs/lib": text, "htdocs/page": "own time"}) for text in ("1", "2")]
        for package in packages:
            os.utime(package / "htdocs/lib", (0, 0))
            self.assertEqual(self.present(package, name="lib").status, 0)
            self.assertEqual((self.root / "lib/lib").read_text(), package.name[-1])

    def test_a_dry_run_shows_what_the_call_does_and_does_nothing(self):
        plan = "changed  app/index\nnew      app/new\nnew      app/new/page\nobsolete app/old\n" \
               "fragment changes\nscript   upgrade\n"
        before = {root.name: all_facts(root) for root in (self.vhosts, self.state)}
        words = self.words(self.two, options=["--dry-run"])
        self.assertEqual(self.asked(*words, status=10), plan)
        (told,) = self.applications(*words, status=10)
        steps = [dict(zip(("what", "path"), line.split())) for line in plan.splitlines()[:4]]
        self.assertEqual(told, {"host": "one.example", "name": "app", "outcome": "planned", "cause": None,
                                "action": "upgrade", "changesFragment": True, "isPending": False, "steps": steps})
        self.assertEqual(self.asked(*self.words(self.one, "a title", "two\nlines", options=["--dry-run"])), "")
        self.assertEqual(self.asked(*self.words(self.one, options=["--dry-run"]), status=10), "script   configure\n")
        self.fails(self.present(self.two, account="nobody-here", options=["--dry-run"]), "account: ")
        after = {root.name: all_facts(root) for root in (self.vhosts, self.state)}
        self.assertEqual(differences(before, after), [])

    def test_what_an_option_leaves_out_is_as_the_record_has_it(self):
        for package in (self.one, self.two):
            (package / "scripts/other").write_text(f"#!/bin/sh\necho $1 >>{self.marks}/other\n")
            (package / "scripts/other").chmod(0o755)
        self.changes(self.present(self.one, options=["--script=other"]))
        self.changes(self.call("present", self.two, "one.example", "sitea", "app"))
        self.stays(self.call("present", self.two, "one.example", "sitea", "app"))
        self.assertEqual((self.marks / "other").read_text(), "upgrade\nupgrade\n")

    def test_a_list_of_files_that_is_lost_or_has_lost_lines_is_not_believed(self):
        files = self.places().state / "files"
        lines = files.read_text().splitlines(keepends=True)
        rows = [
            ("some lines", lambda: files.write_text("".join(lines[:2])), f"{files} is no list of files: "),
            ("the file", files.unlink, f"files: the list of what was installed is missing: {files}"),
        ]
        for name, lose, cause in rows:
            with self.subTest(name):
                lose()
                for words in (["verify"], ["absent", "one.example", "app"], self.words(self.two)):
                    self.fails(self.call(*words), cause)
        self.changes(self.present(self.one, "a title", "two\nlines", options=["--repair"]))
        self.assertEqual(self.asked("verify"), "")


main()
