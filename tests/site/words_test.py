#!/usr/bin/python3
"""Each failure names its step and cause, and says what a program can rely on; nothing else changes a result."""

import json
import os
import pathlib
import subprocess
from typing import Callable, NamedTuple

from calls import PATIENCE, SITE
from support import SITEA, SITEB, SiteTest, main, mappings, no_change
from trees import differences


class Row(NamedTuple):
    name: str
    breaks: Callable  # what is done to the test's surroundings
    cause: str
    is_taken_back: bool = False
    options: tuple = ()
    package: str = "two"
    account: str = "sitea"


def link_to_shared(test):
    shared = test.base / "shared"
    shared.mkdir()
    (shared / "library").write_text("root's by now")
    os.chown(shared / "library", SITEB, -1)
    (test.two / "htdocs/shared").symlink_to(shared)


def link_through_directory_of_other(test):
    others = test.base / "others"
    others.mkdir()
    os.chown(others, SITEB, -1)
    (others / "link").symlink_to(test.two / "htdocs/index")
    (test.two / "htdocs/linked").symlink_to(others / "link")


def take_place_of_fragments(test):
    system = test.vhosts / "system/one.example"
    (system / "conf").rename(system / "moved")


def put_file_for_state(test):
    test.state.rename(test.base / "moved")
    test.state.touch()


FAILURES = [
    Row("a script that the package has not", no_change, "script: the package has no script other; it has: configure",
        options=("--script=other",)),
    Row("a package that is not there", no_change, "package: ", package="none"),
    Row("a package that others may write", lambda test: (test.two / "htdocs/index").chmod(0o646),
        "package: others than root can write to "),
    Row("a package that its group may write", lambda test: (test.two / "htdocs/index").chmod(0o664),
        "package: others than root can write to "),
    Row("a package below a directory that others may write", lambda test: test.two.parent.chmod(0o777),
        "package: others than root can write to "),
    Row("a package of the account", lambda test: os.chown(test.two, SITEA, 0),
        "package: others than root can write to "),
    Row("a package with a link to what others may write", link_to_shared, "package: others than root can write to "),
    Row("a package with a link through what others may write", link_through_directory_of_other,
        "package: others than root can write to "),
    Row("metadata that are no XML", lambda test: (test.two / "APP-META.xml").write_text("<application"), "package: "),
    Row("an unknown account", no_change, "account: there is no account nobody-here", account="nobody-here"),
    Row("root's account", no_change, "account: account root is root", account="root"),
    Row("another account", no_change, "account: it was installed for sitea, not for siteb", account="siteb"),
    Row("no document root", lambda test: test.root.rename(test.root.parent / "moved"),
        "files: there is no document root"),
    Row("no place for a fragment", take_place_of_fragments, "fragment: there is no directory "),
    Row("a warning of the preview", lambda test: (test.app / "new").write_text("mine"),
        "files: larkspur-preview is against it; --ignore=CODE passes over a warning\n"),
    Row("a directory in the place of a file", lambda test: (test.app / "new/mine").mkdir(parents=True),
        "files: larkspur-preview is against it\n"),
    Row("a record that is none", lambda test: (test.places().state / "record.json").write_text("{"),
        "record: "),
    Row("state that is a file", put_file_for_state, "lock: "),
    Row("a store that is a file", lambda test: (test.vhosts / "system/one.example/larkspur").touch(), "recovery: "),
    Row("a script that cannot be executed", lambda test: test.script("", "#!/no/such/interpreter"),
        "script upgrade: exit status 255", is_taken_back=True),
]


class WordsTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.two = self.package("two", {"htdocs/index": "two", "htdocs/new": "new"}, mappings=mappings("two"))
        self.changes(self.present(self.package("one", {"htdocs/index": "one"}, mappings=mappings("one"))))

    def script(self, text, first="#!/bin/sh"):
        (self.two / "scripts/configure").write_text(f"{first}\n{text}\n")

    def restore(self, saved):
        subprocess.run(["rm", "-rf", self.base], check=True)
        subprocess.run(["cp", "-a", saved, self.base], check=True)

    def test_a_failure_names_its_step_and_leaves_what_was_there(self):
        saved = pathlib.Path(f"{self.base}.saved")
        subprocess.run(["cp", "-a", self.base, saved], check=True)
        self.addCleanup(subprocess.run, ["rm", "-rf", saved], check=True)
        for row in FAILURES:
            with self.subTest(row.name):
                self.restore(saved)
                before = self.release()
                row.breaks(self)
                package = self.two.parent / row.package
                outcome = self.present(package, account=row.account, options=row.options)
                self.fails(outcome, f"larkspur-site: one.example/app: {row.cause}", is_taken_back=row.is_taken_back)
                if row.is_taken_back:
                    self.assertEqual(differences(before, self.release()), [])

    def test_a_record_that_cannot_be_written_leaves_no_list_of_the_call(self):
        (self.places().state / "record.json.new").mkdir()
        before = sorted(self.places().state.iterdir())
        self.fails(self.present(self.two), "record: ", is_taken_back=True)
        self.assertEqual(sorted(self.places().state.iterdir()), before)

    def test_a_file_in_a_writable_tree_that_a_visitor_has_changed_is_not_replaced(self):
        tree = mappings("two", inner="<php:permissions writable='true'/>")
        one, two = (self.package(f"{name} writable", {"htdocs/page": name}, mappings=tree) for name in ("one", "two"))
        self.changes(self.present(one, name="writable"))
        self.changes(self.present(two, name="writable"))
        (self.root / "writable/page").write_text("a visitor's")
        self.fails(self.present(one, name="writable"), "larkspur-preview is against it", name="writable")
        self.assertEqual((self.root / "writable/page").read_text(), "a visitor's")

    def test_words_that_cannot_be_used_are_told_before_anything_is_done(self):
        rows = [
            (["--ignore=what", *self.words(self.two)], "unknown code: what"),
            (["--what", *self.words(self.two)], "--what"),
            (["present", self.two, "one.example", "sitea"], "too few words"),
            (["present"], "no words"),
            (["what"], "no such act: what"),
            ([], "no act"),
            (self.words(self.two, host="../one.example"), "not the name of a host"),
            (self.words(self.two, host="system"), "not the name of a host"),
            (self.words(self.two, name="a/../../b"), "not a place below a document root"),
            (self.words(self.two, name="/app"), "not a place below a document root"),
            (self.words(self.two, name="a\nb"), "not a place below a document root"),
            (["absent", "one.example"], "wrong number of words"),
            (["--wait=-1", "absent", "one.example", "app"], "--wait is no number of seconds from 0 to 1000000: -1"),
            (["--dry-run", "absent", "one.example", "app"], "absent: --dry-run is not for this act"),
            (["--without-script", *self.words(self.two)], "present: --without-script is not for this act"),
            (["--json", "reload"], "reload: --json is not for this act"),
            (self.words(self.two, "--dry-run"), "options stand before the act: --dry-run"),
            (["verify", "--wait=5"], "options stand before the act: --wait=5"),
            (self.words(""), "an empty word for a package"),
        ]
        before = self.release()
        for words, cause in rows:
            with self.subTest(words):
                outcome = self.call(*words)
                self.assertEqual((outcome.status, outcome.output), (2, ""))
                told, usage, *_ = outcome.error.splitlines()
                self.assertEqual(told.partition(cause)[1], cause, outcome.error)
                self.assertEqual(usage, "Usage: larkspur-site [OPTION]... present PACKAGE HOST USER NAME [PARAMETER]...")
        self.assertEqual(differences(before, self.release()), [])

    def test_settings_and_state_that_others_may_write_are_refused(self):
        for path in (self.conf, self.state):
            with self.subTest(path.name):
                mode = path.stat().st_mode
                path.chmod(mode | 0o020)
                told = f"larkspur-site: others than root can write to {path}\n"
                self.assertEqual(self.call("list"), (1, "", told))
                path.chmod(mode)

    def test_settings_that_are_missing_are_told(self):
        self.conf.unlink()
        self.assertEqual(self.call("reload"), (1, "", f"larkspur-site: no settings: {self.conf} is not there\n"))

    def test_a_lock_is_waited_for(self):
        holder = self.hold(("script-ended", 1), self.words(self.two))
        outcome = self.present(self.two, options=["--wait=1"])
        self.assertIn("larkspur-site: waits for another call on one.example\n", outcome.error)
        self.fails(outcome, "lock: another call has not ended within 1 s")
        waiting = self.start(*self.words(self.two))
        holder.go_on()
        self.changes(holder.end())
        self.stays(waiting.end())

    def test_output_that_nobody_takes_changes_no_result(self):
        reader, closed_pipe = os.pipe()
        os.close(reader)
        full = os.open("/dev/full", os.O_WRONLY)
        rows = [  # name, where to, and what closes the streams before
            ("a full disk", full, []),
            ("a closed pipe", closed_pipe, []),
            ("closed streams", None, ["sh", "-c", 'exec "$0" "$@" <&- >&- 2>&-']),
        ]
        for name, stream, closing in rows:
            with self.subTest(name):
                for package in (self.two, self.base / "packages/one"):
                    (package / "scripts/configure").write_text("#!/bin/sh\necho said; echo >&2 said\n")
                    command = [*closing, SITE, f"--settings={self.conf}", *self.words(package)]
                    done = subprocess.run(command, check=False, timeout=PATIENCE, stdout=stream, stderr=stream)
                    self.assertEqual(done.returncode, 0)
                    self.assertEqual((self.app / "index").read_text(), package.name)
        os.close(closed_pipe)
        os.close(full)

    def test_a_list_with_a_line_that_cannot_be_used_does_nothing(self):
        good = json.dumps([str(self.two), "one.example", "sitea", "app"])
        causes = {
            "one.example": "",  # a library says the rest
            '["/package", "one.example", 5, "app"]': "no array of texts",
            '["/package", "one.example", "sitea", "app", "a\\u0000b"]': "a text with a NUL",
            good: "one.example/app is there already",
        }
        before = self.release()
        for line, cause in causes.items():
            with self.subTest(line):
                (self.base / "list").write_text(f"# the first one is good\n{good}\n\n{line}\n")
                outcome = self.call(f"--list={self.base}/list", "present")
                told = f"larkspur-site: {self.base}/list, line 4: {cause}"
                self.assertEqual((outcome.status, outcome.error[:len(told)]), (2, told))
        self.assertEqual(differences(before, self.release()), [])


main()
