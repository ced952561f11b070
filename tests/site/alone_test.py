#!/usr/bin/python3
"""What goes wrong on one site, or with the server, leaves all other sites alone."""

import json
import os
import signal

from calls import are_gone, children, kill_all, kill_tree
from support import SiteTest, main, mappings
from trees import differences


class AloneTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", {"htdocs/index": "one"}, mappings=mappings("one"))
        self.two = self.package("two", {"htdocs/index": "two"}, mappings=mappings("two"))
        self.refused = self.package("refused", {"htdocs/index": "two"}, f"touch {self.marks}/ran",
                                    mappings=mappings("no-such-directive"))
        self.failing = self.package("failing", {"htdocs/index": "two"}, "exit 3", mappings=mappings("failing"))

        self.accounts = {}  # of the hosts that a test has made

    def hosts(self, number):
        names = [f"host{at}.example" for at in range(number)]
        for at, name in enumerate(names):
            self.accounts[name] = "sitea" if at % 2 == 0 else "siteb"
            self.host(name, self.accounts[name])
        return names

    def words_for(self, host, package):
        return self.words(package, host=host, account=self.accounts[host])

    def listed(self, *wishes):
        """A list of (host, package)."""
        file = self.base / "list"
        file.write_text("".join(json.dumps([str(package), host, self.accounts[host], "app"]) + "\n"
                                for host, package in wishes))
        return self.call("--language=binary", f"--list={file}", "present")

    def changes_all(self, outcome, hosts):
        changed = "".join(f"changed {host}/app\n" for host in hosts)
        self.assertEqual((outcome.status, outcome.output), (0, changed), outcome.error)

    def index(self, host):
        return (self.vhosts / host / "httpdocs/app/index").read_text()

    def the_server_has_all_fragments(self):
        self.assertEqual(self.call("reload").status, 0)
        self.assertEqual(self.loaded.read_text(),
                         "".join(file.read_text() for file in sorted(self.vhosts.glob("system/*/conf/siteapp.d/*"))))

    def test_calls_of_a_list_fail_one_by_one(self):
        hosts = self.hosts(6)
        self.changes_all(self.listed(*((host, self.one) for host in hosts)), hosts)
        before = {host: self.release(host) for host in hosts[:3]}
        packages = [self.refused, self.failing, self.base / "none", self.two, self.one, self.two]
        outcome = self.listed(*zip(hosts, packages))
        self.assertEqual(outcome.status, 1)
        self.assertEqual(outcome.output, "changed host3.example/app\nchanged host5.example/app\n")
        failed = [line for line in outcome.error.splitlines() if line.startswith("failed: ")]
        self.assertEqual(sorted(failed), [f"failed: {host}" for host in hosts[:3]])
        for cause in ("host0.example/app: fragment: the server refuses the fragment",
                      "host1.example/app: script upgrade: exit status 3", "host2.example/app: package: "):
            self.assertIn(f"larkspur-site: {cause}", outcome.error)
        for host, release in before.items():
            self.assertEqual(differences(release, self.release(host)), [])
        self.assertEqual([self.index(host) for host in hosts], ["one", "one", "one", "two", "one", "two"])
        self.the_server_has_all_fragments()

    def test_fifty_calls_at_once_over_ten_sites(self):
        hosts = self.hosts(10)
        self.changes_all(self.listed(*((host, self.one) for host in hosts)), hosts)
        wishes = {host: self.two for host in hosts} | {hosts[7]: self.refused, hosts[8]: self.failing}
        calls = [(host, self.start(*self.words_for(host, wishes[host]))) for _ in range(5) for host in hosts]
        outputs = {host: [] for host in hosts}
        for host, call in calls:
            outcome = call.end()
            outputs[host].append(outcome.output)
            if wishes[host] == self.two:
                self.assertEqual(outcome.status, 0, outcome.error)
                self.assertNotIn("failed: ", outcome.error)
            else:
                self.fails(outcome, "exit status", host=host, is_taken_back=True)
        for host in hosts:
            changes = 1 if wishes[host] == self.two else 0
            self.assertEqual(sorted(outputs[host]), [""] * (5 - changes) + ["changed\n"] * changes)
            self.assertEqual(self.index(host), "two" if changes else "one")
        self.the_server_has_all_fragments()

    def test_a_fragment_that_a_cut_off_call_has_left_fails_nobody_else(self):
        host, other = self.hosts(2)
        self.changes(self.call(*self.words_for(host, self.one)))
        self.cut(kill_tree, ("fragment", 1), self.words_for(host, self.refused))
        self.changes(self.call(*self.words_for(other, self.one)))
        self.stays(self.call(*self.words_for(host, self.one)))

    def test_a_package_that_has_been_broken_since_fails_nobody_else(self):
        package = self.package("broken", {"htdocs/index": "one"})
        self.changes(self.present(package))
        document = package / "APP-META.xml"
        document.write_text(document.read_text().replace("url='/'", ""))
        self.fails(self.absent(), 'script remove: line 2: a mapping without "url"', is_taken_back=True)
        self.cut(kill_tree, ("journal", 1), ["absent", "one.example", "app"])
        reloaded = self.call("reload")
        self.assertEqual((reloaded.status, reloaded.output), (0, "changed\n"), reloaded.error)
        self.assertIn("failed: one.example\n", reloaded.error)

    def test_what_another_site_has_started_outlives_a_failure(self):
        hosts = self.hosts(2)
        late = self.marks / "late"
        starting = self.package("starting", {}, f"setsid sh -c 'sleep 0.3; sleep 1000 & echo $! >{late}' &")
        failing = self.package("late failure", {}, f"while [ ! -s {late} ]; do sleep 0.01; done; sleep 0.1; exit 3")
        outcome = self.listed(*zip(hosts, [starting, failing]))
        self.assertEqual((outcome.status, outcome.output), (1, f"changed {hosts[0]}/app\n"), outcome.error)
        started = int(late.read_text())
        self.assertFalse(are_gone([started]))
        os.kill(started, signal.SIGKILL)

    def test_a_configuration_that_was_broken_before_is_told_before_the_script_runs(self):
        host, other = self.hosts(2)
        self.changes(self.call(*self.words_for(host, self.one)))
        removed = "removed.example"
        self.host(removed, "sitea")
        self.changes(self.present(self.package("removed", {}, f"touch {self.marks}/ran-$1"), host=removed))
        self.cut(kill_tree, ("journal", 1), ["absent", removed, "app"])
        broken = self.places(other).fragment
        broken.parent.mkdir()
        broken.write_text("no-such-directive\n")
        upgrade = self.package("upgrade", {}, f"touch {self.marks}/ran", mappings=mappings("upgrade"))
        self.fails(self.call(*self.words_for(host, upgrade)),
                   "fragment: the server's configuration was broken before this call: CONFIGTEST: exit status 1",
                   host=host, is_taken_back=True)
        self.assertFalse((self.marks / "ran").exists())
        # Nor does anybody else's script while all others wait for the server.
        self.assertFalse((self.marks / "ran-remove").exists())
        # What changes no fragment needs no check, and a removal must not depend on it.
        self.changes(self.call(*self.words_for(host, self.package("same fragment", {}, mappings=mappings("one")))))
        self.changes(self.absent(host))
        outcome = self.call("reload")
        self.assertEqual((outcome.status, outcome.output), (1, ""))
        self.assertEqual(outcome.error.splitlines()[-1], "larkspur-site: reload: CONFIGTEST: exit status 1")
        broken.unlink()
        self.changes(self.call("reload"))

    def test_a_server_that_hangs_or_leaves_a_daemon(self):
        left = self.base / "left"
        daemon = f"setsid sh -c 'sleep 1000; :' & echo $! >>{left}"
        rows = [
            ("a check that hangs", {"CONFIGTEST": '"sleep 1000"'}, "fragment: CONFIGTEST: no end within 2 s", ""),
            ("a reload that hangs", {"RELOAD": '"sleep 1000"'}, "", "RELOAD: no end within 2 s"),
            ("a check that leaves a daemon", {"CONFIGTEST": f'"{daemon}"'}, "", ""),
            ("a reload that leaves a daemon", {"RELOAD": f'"{daemon}"'}, "", ""),
            ("a reload that starts a daemon and fails", {"RELOAD": f'"{daemon}; sleep 1; exit 3"'}, "",
             "RELOAD: exit status 3"),
        ]
        for name, settings, present_cause, reload_cause in rows:
            with self.subTest(name):
                self.settings(TIME_LIMIT=2, **settings)
                outcome = self.present(self.one)
                if present_cause:
                    self.fails(outcome, present_cause, is_taken_back=True)
                else:
                    self.changes(outcome)
                outcome = self.call("reload")
                self.assertEqual(outcome.status, 1 if reload_cause else 0, outcome.error)
                self.assertIn(reload_cause, outcome.error)
                pids = [int(pid) for pid in left.read_text().split()] if left.exists() else []
                self.settings(TIME_LIMIT=2)
                outcome = self.present(self.two, options=["--wait=1"])
                self.changes(outcome)
                self.assertNotIn("waits for", outcome.error)
                self.changes(self.call("reload"))
                self.assertEqual(are_gone(pids), not pids)
                for pid in pids:
                    kill_all([*children(pid), pid])
                left.unlink(missing_ok=True)
                self.changes(self.absent())


if __name__ == "__main__":
    main()
