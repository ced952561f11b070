#!/usr/bin/python3
"""What goes wrong on one site, or with the server, leaves all other sites alone."""

import json
from typing import NamedTuple

from calls import PATIENCE, are_gone, children, kill_all, kill_tree
from support import SiteTest, main, mappings
from trees import differences


class Check(NamedTuple):
    """A check of the server, and what becomes of a list's calls on three hosts."""

    name: str
    command: str
    asked: int  # how often the server is asked
    one: str
    two: str
    three: str
    limit: int = PATIENCE


class AloneTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.one = self.package("one", {"htdocs/index": "one"}, mappings=mappings("one"))
        self.two = self.package("two", {"htdocs/index": "two"}, mappings=mappings("two"))
        self.refused = self.package("refused", {"htdocs/index": "two"}, mappings=mappings("no-such-directive"))
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
        """What comes of a list of (host, package)."""
        return self.call(*self.words_of_list((package, host, self.accounts[host]) for host, package in wishes))

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

    def test_a_list_asks_the_server_once_unless_a_fragment_is_refused(self):
        hosts = self.hosts(3)
        self.changes(self.call(*self.words_for(hosts[0], self.one)))
        words = self.words_of_list((self.two, host, self.accounts[host]) for host in hosts)
        asked = self.base / "asked"
        second = self.places(hosts[1]).fragment
        rows = [
            Check("broken before", "exit 3", asked=2, one="failed", two="failed", three="failed"),
            Check("a check that hangs", "sleep 1000", asked=1, one="failed", two="failed", three="failed", limit=5),
            Check("one refused", f"! test -e {second}", asked=6, one="changed", two="failed", three="changed"),
            Check("none refused", "true", asked=1, one="unchanged", two="changed", three="unchanged"),
        ]
        for row in rows:
            with self.subTest(row.name):
                asked.write_text("")
                self.settings(CONFIGTEST=f'"echo >>{asked}; {row.command}"', TIME_LIMIT=row.limit)
                answer = json.loads(self.call("--json", *words).output)
                outcomes = {one["host"]: one["outcome"] for one in answer["applications"]}
                self.assertEqual(outcomes, dict(zip(hosts, (row.one, row.two, row.three))))
                self.assertEqual(asked.read_text().count("\n"), row.asked)

    def test_fifty_calls_at_once_over_ten_sites(self):
        self.settings(TIME_LIMIT=600)  # the last call for a host waits for four others, also on a busy machine
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

    def test_two_fragments_of_which_the_server_takes_only_one_fail_nobody_when_one_is_left_behind(self):
        host, other = self.hosts(2)
        both = " ".join(f"{self.vhosts}/system/{name}/conf/siteapp.d/app.conf" for name in (host, other))
        self.settings(CONFIGTEST=f'"! ls {both}"')
        self.cut(kill_tree, ("fragment", 1), self.words_for(host, self.one))
        self.changes(self.call(*self.words_for(other, self.one)))

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

    def test_what_another_account_has_started_outlives_a_failure(self):
        first, second = self.hosts(2)
        self.late_process_outlives_failure(first, second, then=":")  # an orphan tells by its account alone whose it is

    def test_what_another_site_of_the_account_has_started_outlives_a_failure(self):
        first, _, second = self.hosts(3)
        self.late_process_outlives_failure(first, second, then="wait")

    def late_process_outlives_failure(self, first, second, then):
        """A process of the first site's starts another one, and goes on with `then`, while the script of the second
        site runs, which then fails."""
        is_late = self.marks / "is-late"
        late = self.marks / "late"
        # The kernel tells in steps of 10 ms when a process was started: the second script has to be younger.
        starting = self.package("starting", {}, f"setsid sh -c 'while [ ! -e {is_late} ]; do sleep 0.01; done; "
                                                f"sleep 1000 & echo $! >{late}; {then}' &\nsleep 0.02")
        failing = self.package("late failure", {},
                               f"touch {is_late}; while [ ! -s {late} ]; do sleep 0.01; done; exit 3")
        outcome = self.listed((first, starting), (second, failing))
        started = [int(late.read_text())]
        self.addCleanup(kill_all, started)
        self.assertEqual((outcome.status, outcome.output), (1, f"changed {first}/app\n"), outcome.error)
        self.assertFalse(are_gone(started))

    def test_a_configuration_that_was_broken_before_is_told_before_the_script_runs(self):
        self.changes(self.present(self.one))
        before = self.release()
        self.refusal.touch()
        upgrade = self.package("upgrade", {"htdocs/index": "two"}, f"touch {self.marks}/ran",
                               mappings=mappings("upgrade"))
        self.fails(self.present(upgrade),
                   "fragment: the server's configuration was broken before this call: CONFIGTEST: exit status 1",
                   is_taken_back=True)
        self.assertFalse((self.marks / "ran").exists())
        self.assertEqual(differences(before, self.release()), [])

    def test_no_script_of_a_cut_off_removal_runs_while_all_others_wait_for_the_server(self):
        self.host("two.example", "siteb")
        self.changes(self.present(self.package("removed", {}, f"touch {self.marks}/ran-$1")))
        self.cut(kill_tree, ("journal", 1), ["absent", "one.example", "app"])
        self.refusal.touch()
        self.fails(self.neighbour(self.two), "broken before this call", host="two.example", is_taken_back=True)
        self.assertFalse((self.marks / "ran-remove").exists())

    def test_what_changes_no_fragment_needs_no_check(self):
        self.changes(self.present(self.one))
        self.refusal.touch()
        self.changes(self.present(self.package("same fragment", {}, mappings=mappings("one"))))

    def test_a_removal_needs_no_check(self):
        self.changes(self.present(self.one))
        self.refusal.touch()
        self.changes(self.absent())

    def test_a_reload_that_fails_stays_due(self):
        self.changes(self.present(self.one))
        for name in ("CONFIGTEST", "RELOAD"):
            self.settings(**{name: "false"})
            self.reload_fails(f"{name}: exit status 1")
        self.settings()
        self.changes(self.call("reload"))

    def reload_fails(self, cause):
        outcome = self.call("reload")
        self.assertEqual((outcome.status, outcome.output), (1, ""))
        self.assertEqual(outcome.error.splitlines()[-1], f"larkspur-site: reload: {cause}")

    def next_call_need_not_wait(self):
        """Nothing of an earlier one holds the site or the server."""
        self.settings()
        outcome = self.present(self.two, options=["--wait=1"])
        self.changes(outcome)
        self.assertNotIn("waits for", outcome.error)
        self.changes(self.call("reload"))

    def test_a_list_waits_once_for_a_check_that_another_call_does_not_end(self):
        held, *others = self.hosts(3)
        call = self.hold(("fragment", 1), self.words_for(held, self.one))
        self.settings(TIME_LIMIT=1)
        outcome = self.listed(*((host, self.one) for host in others))
        self.assertEqual(outcome.error.count("waits for another call's check of the server\n"), 1)
        self.assertEqual(outcome.error.count("fragment: another call has not ended within 6 s\n"), len(others))
        call.go_on()
        self.changes(call.end())

    def test_a_check_that_hangs_fails_the_call_and_holds_nobody(self):
        self.settings(TIME_LIMIT=5, CONFIGTEST='"sleep 1000"')
        self.fails(self.present(self.one), "fragment: CONFIGTEST: no end within 5 s", is_taken_back=True)
        self.stays(self.call("reload"))  # there is nothing new
        self.next_call_need_not_wait()

    def daemon_noted_in(self, file):
        """A command that leaves a daemon."""
        return f"setsid sh -c 'echo $$ >{file}; sleep 1000; :' & while [ ! -s {file} ]; do sleep 0.01; done"

    def test_daemons_of_the_server_live_on_and_hold_nobody(self):
        of_check, of_failed_reload = self.base / "check", self.base / "reload"
        self.settings(CONFIGTEST=f'"{self.daemon_noted_in(of_check)}"')
        self.changes(self.present(self.one))
        self.settings(RELOAD=f'"{self.daemon_noted_in(of_failed_reload)}; exit 3"')
        self.reload_fails("RELOAD: exit status 3")
        self.next_call_need_not_wait()
        for noted in (of_check, of_failed_reload):
            pid = int(noted.read_text())
            self.addCleanup(kill_all, [*children(pid), pid])
            self.assertFalse(are_gone([pid]), noted)


main()
