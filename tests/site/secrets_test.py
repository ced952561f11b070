#!/usr/bin/python3
"""What the files of secrets hold arrives in the script's environment as it stands there, and nowhere else."""

import pathlib

from calls import children
from support import SiteTest, main, mappings

FIXED = {b"PATH", b"LANG", b"HOME", b"LOGNAME", b"USER"}


class SecretsTest(SiteTest):
    def setUp(self):
        super().setUp()
        # What the script's process was given, before the shell makes anything of it.
        script = f'umask 0; echo "$1" >>{self.marks}/actions; cat /proc/$$/environ >{self.marks}/environ'
        self.one = self.package("one", {"htdocs/index": "one"}, script, mappings=mappings("one"))
        self.state.mkdir()
        self.common = self.state / "app.environment"
        self.own = self.places().state / "environment"
        self.own.parent.mkdir(parents=True)

    def given(self):
        """The script's environment."""
        return dict(line.split(b"=", 1) for line in (self.marks / "environ").read_bytes().split(b"\0") if line)

    def actions(self):
        file = self.marks / "actions"
        words = file.read_text().split() if file.exists() else []
        file.unlink(missing_ok=True)
        return words

    def test_every_name_and_value_arrives_as_it_stands(self):
        rows = [
            ("names of the fixed environment", {b"PATH": b"/usr/bin:/bin:/mine", b"HOME": b"/x", b"USER": b"siteb"}),
            ("names that no shell can have", {b"a.b": b"1", b"-x": b"2", b"1": b"3", "ü".encode(): b"4",
                                              b"\xff": b"5", b"%s": b"6"}),
            ("values", {b"a": b"", b"b": b" blanks ", b"c": b"'\"$HOME`id`\\", b"d": b"x=y", b"e": b"\r", b"f": b"\xff",
                        b"g": b"#", b"h": b"x" * 100000}),
        ]
        for name, variables in rows:
            for end in (b"\n", b""):
                with self.subTest(name, end=end):
                    lines = [key + b"=" + value for key, value in variables.items()]
                    self.own.write_bytes(b"# a note\n\n" + b"\n".join(lines) + end)
                    self.changes(self.present(self.one))
                    self.assertLessEqual(variables.items(), self.given().items())
                    self.assertEqual(self.given().keys(), variables.keys() | FIXED)

    def test_lines_that_cannot_be_variables_are_refused_by_name(self):
        rows = [(b"a=1\nword\n", ", line 2: no NAME=VALUE"), (b"=x\n", ", line 1: no NAME=VALUE"),
                (b"\n# x\nkey=a\0b\n", ", line 3: key has a NUL byte"),
                (b"export key=x\n", ", line 1: a blank in the name export key"),
                (b" key=x\n", ", line 1: a blank in the name  key")]
        for text, cause in rows:
            with self.subTest(text):
                self.own.write_bytes(text)
                self.fails(self.present(self.one), f"secrets: {self.own}{cause}")
                self.assertEqual(self.actions(), [])

    def test_only_the_script_sees_them(self):
        secret = "known-to-the-script-alone"
        self.settings(CONFIGTEST=f'"env >>{self.marks}/server"', RELOAD=f'"env >>{self.marks}/server"')
        self.common.write_text(f"KEY={secret}\n")
        for moment in (("stage", 1), ("swap", 1), ("fragment", 1), "script"):
            with self.subTest(moment):
                call = self.hold(moment, self.words(self.one, f"parameter {moment}"))
                family = {call.leader, *children(call.leader)[:1]}
                environments = [pathlib.Path(f"/proc/{pid}/environ").read_text() for pid in family]
                words = [pathlib.Path(f"/proc/{pid}/cmdline").read_text() for pid in family]
                call.go_on()
                outcome = call.end()
                self.changes(outcome)
                self.assertNotIn(secret, f"{environments}{words}{outcome}")
                self.changes(self.absent())
        self.changes(self.present(self.one))
        self.assertEqual(self.given()[b"KEY"], secret.encode())
        self.assertEqual(self.call("reload").status, 0)
        (self.marks / "environ").unlink()
        for file in self.base.rglob("*"):
            if file.is_file() and file != self.common:
                self.assertNotIn(secret.encode(), file.read_bytes(), file)
        for words in (["list"], ["status", "one.example", "app"], ["--json", "list"]):
            self.assertNotIn(secret, self.asked(*words))

    def test_the_site_s_own_come_first_and_a_change_configures_the_sites_that_use_it(self):
        self.host("two.example", "siteb")
        self.common.write_text("KEY=common\n")

        def present(host, account):
            outcome = self.present(self.one, host=host, account=account)
            self.assertEqual(outcome.status, 0, outcome.error)
            return self.actions()

        def both():
            return present("one.example", "sitea"), present("two.example", "siteb")

        self.assertEqual(both(), (["install"], ["install"]))
        self.own.write_text("KEY=own\n")
        self.assertEqual(both(), (["configure"], []))
        self.assertEqual(self.given()[b"KEY"], b"own")
        self.common.write_text("KEY=changed\n")
        self.assertEqual(both(), ([], ["configure"]))
        self.common.unlink()
        self.assertEqual(both(), ([], ["configure"]))
        self.common.write_text("KEY=own\n")
        self.own.unlink()
        self.assertEqual(both(), ([], ["configure"]))
        self.own.parent.mkdir(exist_ok=True)
        self.own.write_text("KEY=for the removal\n")
        self.changes(self.absent())
        self.assertEqual((self.actions(), self.given()[b"KEY"]), (["remove"], b"for the removal"))
        self.assertTrue(self.own.exists())


main()
