#!/usr/bin/python3
"""A signal ends a call with its way back, or not at all where there is none any more."""

import os
import signal

from calls import has_taken_signals, kill_tree, until
from support import ONE, TWO, SiteTest, main, mappings
from trees import differences


class SignalsTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.two = self.package("two", TWO, mappings=mappings("two"))
        self.changes(self.present(self.package("one", ONE, mappings=mappings("one"))))

    def test_a_signal_ends_a_call_with_its_way_back(self):
        before = self.release()
        for moment in [("stage", 1), ("swap", 2), "script"]:
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                with self.subTest(f"{number.name} at {moment}"):
                    # What is held would not end by itself.
                    call = self.hold(moment, self.words(self.two))
                    os.kill(call.leader, number)
                    self.fails(call.end(), f"interrupted by signal {number.name[3:]}",
                               is_taken_back=moment != ("stage", 1))
                    self.assertEqual(differences(before, self.release()), [])

    def test_a_signal_ends_no_way_back(self):
        before = self.release()
        self.cut(kill_tree, ("swapped", 1), self.words(self.two))
        self.signal_in_the_middle(["recover"], ("back", 1))
        self.assertEqual(differences(before, self.release()), [])

    def test_a_signal_ends_no_removal_that_has_begun(self):
        self.signal_in_the_middle(["absent", "one.example", "app"], ("swap", 1))
        self.assertEqual(self.asked("list"), "")
        self.assertFalse(self.app.exists())

    def signal_in_the_middle(self, words, moment):
        call = self.hold(moment, words)
        os.kill(call.leader, signal.SIGTERM)
        until(lambda: has_taken_signals(call.leader))  # a child that it ends has been killed by then
        call.go_on()
        call.end()

    def test_a_signal_ends_a_call_while_it_waits_for_another_one(self):
        holder = self.hold("script", self.words(self.two))
        waiting = self.start(*self.words(self.two))
        waiting.wait_for("waits for another call")
        os.kill(waiting.leader, signal.SIGTERM)
        self.fails(waiting.end(), "interrupted by signal TERM")
        holder.go_on()
        self.changes(holder.end())

    def test_a_signal_ends_all_calls_of_a_list(self):
        for host in ("two.example", "three.example"):
            self.host(host, "siteb")
        accounts = {"one.example": "sitea", "two.example": "siteb", "three.example": "siteb"}
        call = self.hold("script", self.words_of_list((self.two, host, account) for host, account in accounts.items()))
        os.kill(call.leader, signal.SIGINT)
        outcome = call.end()
        self.assertEqual((outcome.status, outcome.output), (1, ""), outcome.error)
        self.assertEqual(sorted(line for line in outcome.error.splitlines() if line.startswith("failed: ")),
                         sorted(f"failed: {host}" for host in accounts))
        self.assertEqual((self.app / "index").read_text(), "one")


main()
