#!/usr/bin/python3
"""A removal takes what was installed and nothing of anybody else's, and what is gone already can be forgotten."""

import os
import shutil

from calls import kill_tree
from support import ONE, SITEA, SITEB, TWO, SiteTest, main, mappings
from trees import differences


class RemovalTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", ONE, mappings=mappings("one"))
        self.two = self.package("two", TWO, mappings=mappings("two"))
        self.both = self.package("both", {"htdocs/mine/app/index": "one", "htdocs/other": "other"})
        self.changes(self.present(self.one))

    def test_an_application_goes_without_its_script_or_package(self):
        before = self.release()
        (self.one / "scripts/configure").write_text("#!/bin/sh\nexit 7\n")
        self.fails(self.absent(), "script remove: exit status 7", is_taken_back=True)
        self.assertEqual((self.app / "index").read_text(), "one")
        (self.one / "scripts/configure").unlink()
        self.one.rename(self.base / "moved")
        self.fails(self.absent(), f"script remove: {self.one}: No such file or directory", is_taken_back=True)
        self.assertEqual(differences(before["tree"], self.release()["tree"]), [])
        self.changes(self.absent(options=["--without-script"]))
        self.assertFalse(self.app.exists())
        self.stays(self.absent())

    def test_files_that_are_away_are_not_forgotten(self):
        before = self.release()
        away = self.root.parent / "away"
        self.root.rename(away)
        self.fails(self.absent(), "files: there is no document root")
        away.rename(self.root)
        self.assertEqual(differences(before, self.release()), [])
        self.cut(kill_tree, ("journal", 1), ["absent", "one.example", "app"])
        self.root.rename(away)
        self.fails(self.absent(), "recovery: there is no document root")
        self.changes(self.absent(options=["--without-script"]))

    def test_a_removal_that_fails_behind_its_script_is_told_and_finished_by_the_next_call(self):
        in_the_way = self.places().state / "journal.new"
        outcome = self.meanwhile(("script-ended", 1), ["absent", "one.example", "app"], in_the_way.mkdir)
        self.fails(outcome, "; the next call goes on with the removal")
        in_the_way.rmdir()
        self.changes(self.absent())
        self.assertFalse(self.app.exists())

    def test_without_script_is_said_for_one_application_only(self):
        asked = self.marks / "asked"
        other = self.package("other", {}, f"touch {asked}")
        self.changes(self.present(other, name="other"))
        self.cut(kill_tree, ("journal", 1), ["absent", "one.example", "other"])
        asked.unlink()
        self.changes(self.absent(options=["--without-script"]))
        self.assertTrue(asked.exists())

    def test_a_removal_passes_over_what_the_account_may_not_take(self):
        sub = self.app / "sub"
        rows = [("somebody else's directory", lambda: os.chown(sub, SITEB, -1)), ("a closed one", lambda: sub.chmod(0))]
        for name, bar in rows:
            with self.subTest(name):
                bar()
                outcome = self.absent()
                self.changes(outcome)
                self.assertEqual(outcome.error, "left as it is: app/sub/page: Permission denied\n")
                self.assertEqual([path.name for path in self.app.rglob("*")], ["sub", "page"])
                self.stays(self.absent())
                shutil.rmtree(self.app)
                self.changes(self.present(self.one))

    def test_a_removal_takes_nothing_of_another_application_or_of_the_customer(self):
        self.changes(self.absent())
        (self.root / "mine").mkdir()
        os.chown(self.root / "mine", SITEA, -1)
        self.changes(self.present(self.one, name="mine/app"))
        self.changes(self.present(self.both, name=".", options=["--ignore=replaces"]))
        self.changes(self.absent(name="."))
        self.assertEqual((self.root / "mine/app/index").read_text(), "one")
        self.changes(self.absent(name="mine/app"))
        self.assertEqual([path.name for path in self.root.rglob("*")], ["mine"])

    def test_a_fragment_that_is_edited_while_the_script_runs_is_kept_by_the_way_back(self):
        fragment = self.places().fragment
        failing = self.package("failing", TWO, "exit 3", mappings=mappings("two"))
        outcome = self.meanwhile("script", self.words(failing), lambda: fragment.write_text("# in the middle\n"))
        self.fails(outcome, "script upgrade: exit status 3", is_taken_back=True)
        (kept,) = self.kept()
        self.assertEqual(kept.read_text(), "# in the middle\n")

    def test_a_fragment_that_was_edited_before_is_kept(self):
        acts = {"upgrade": self.words(self.two), "removal": ["absent", "one.example", "app"]}
        for name, words in acts.items():
            with self.subTest(name):
                text = f"# before the {name}\n"
                self.places().fragment.write_text(text)
                outcome = self.call(*words)
                self.changes(outcome)
                kept_by_text = {file.read_text(): file for file in self.kept()}
                self.assertIn(text, kept_by_text)
                self.assertIn(f"kept as {kept_by_text[text]}", outcome.error)

    def test_a_script_that_has_ended_is_not_asked_again(self):
        asked = self.marks / "asked"
        (self.one / "scripts/configure").write_text(f"#!/bin/sh\necho $1 >>{asked}\n")
        self.cut(kill_tree, ("journal", 1), ["absent", "one.example", "app"])
        self.cut(kill_tree, ("taken", 1), ["recover"])
        self.stays(self.call("recover"))
        self.assertEqual(asked.read_text(), "remove\n")

    def test_a_removal_is_not_finished_while_the_hosts_are_not_mounted(self):
        (self.one / "scripts/configure").write_text(f"#!/bin/sh\ntouch {self.marks}/ran\n")
        self.cut(kill_tree, ("journal", 1), ["absent", "one.example", "app"])
        away = self.base / "away"
        self.vhosts.rename(away)
        self.vhosts.mkdir()
        self.fails(self.call("recover"), "recovery: ")
        self.assertFalse((self.marks / "ran").exists())
        self.vhosts.rmdir()
        away.rename(self.vhosts)
        self.stays(self.call("recover"))
        self.assertTrue((self.marks / "ran").exists())
        self.assertFalse(self.app.exists())

    def test_what_an_account_leaves_behind_that_is_another_one_now_is_forgotten(self):
        self.give_to_another_account(self.places().state / "record.json")
        self.fails(self.present(self.two), "account: sitea is another one than it was installed for")
        self.places().fragment.write_text("# mine\n")
        self.changes(self.absent(options=["--without-script"]))
        self.assertTrue((self.app / "index").exists())
        (kept,) = self.kept()
        self.assertEqual(kept.read_text(), "# mine\n")
        self.changes(self.present(self.one, options=["--ignore=replaces"]))

    def test_what_a_host_leaves_behind_is_forgotten_by_the_server_as_well(self):
        self.changes(self.call("reload"))
        shutil.rmtree(self.root.parent)
        self.fails(self.absent(), "there is no host ")
        self.changes(self.absent(options=["--without-script"]))
        self.changes(self.call("reload"))
        self.assertEqual(self.loaded.read_text(), "")

    def test_a_record_that_was_not_finished_is_forgotten_as_well(self):
        shutil.rmtree(self.root.parent)
        (self.places().state / "record.json.new").touch()
        self.changes(self.absent(options=["--without-script"]))
        self.assertFalse(self.places().state.exists())

    def test_what_a_call_had_staged_is_forgotten_as_well(self):
        self.cut(kill_tree, ("staged", 1), self.words(self.two))
        self.give_to_another_account(self.places().state / "record.json")
        self.changes(self.absent(options=["--without-script"]))
        self.assertFalse(self.places().store.parent.exists())

    def test_a_first_installation_whose_account_is_another_one_now_is_forgotten(self):
        self.changes(self.absent())
        self.cut(kill_tree, ("swapped", 1), self.words(self.one))
        self.give_to_another_account(self.places().state / "journal")
        self.fails(self.absent(), "recovery: ")
        self.changes(self.absent(options=["--without-script"]))
        self.changes(self.present(self.two, options=["--ignore=replaces"]))

    @staticmethod
    def give_to_another_account(file):
        text = file.read_text()
        file.write_text(text.replace(str(SITEA), str(SITEB)))

    def test_an_application_in_another_document_root_keeps_no_file(self):
        self.changes(self.absent())
        outer = self.package("outer", {"htdocs/app/index": "outer", "htdocs/app/old": "outer"})
        self.changes(self.present(outer, name="."))
        self.settings(DOCUMENT_ROOT="web")
        web = self.vhosts / "one.example/web"
        web.mkdir()
        os.chown(web, SITEA, -1)
        self.changes(self.present(self.one))
        self.changes(self.present(self.two))
        self.assertFalse((web / "app/old").exists())
        self.changes(self.absent())
        self.assertEqual(list(web.iterdir()), [])

    def test_a_host_that_is_made_anew_does_not_stay_barred(self):
        self.cut(kill_tree, ("swapped", 1), self.words(self.two))
        for directory in (self.root.parent, self.vhosts / "system/one.example"):
            shutil.rmtree(directory)
        self.host("one.example", "sitea")
        self.fails(self.present(self.one), "recovery: ")
        self.changes(self.absent(options=["--without-script"]))
        self.changes(self.present(self.one))


main()
