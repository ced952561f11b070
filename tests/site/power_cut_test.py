#!/usr/bin/python3
"""The power is cut during an upgrade or a removal, at the first and the last arrival at each place where a call can be
held: what the disks have then becomes one release, with all its content."""

import itertools
import pathlib

from disks import DiskTest
from calls import kill_tree
from support import main, share
from trees import differences


class PowerCutTest(DiskTest):
    """For another program one of the disks has written all names; the other one is sure to have only what larkspur-site
    has had it write.  So what has to be on one disk before something is on the other one, is missing if it was not
    waited for."""

    def test_power_cut_during_an_upgrade(self):
        self.cut_power_during(self.words(self.two), self.is_two)

    def test_power_cut_during_a_removal(self):
        self.cut_power_during(["absent", "one.example", "app"], self.is_none)

    def cut_power_during(self, words, done):
        """`done` is the release that the call leaves when nothing cuts it off."""
        for moment, written in share(itertools.product([*self.first_and_last_moments(words), "end"], self.disks)):
            with self.subTest(f"{moment}, written for another program: {written.directory.name}"):
                self.cut_power(moment, words, written)
                self.assertEqual(self.call("recover").status, 0)
                self.remove_empty_store()
                self.is_one_of({"done": done} if moment == "end" else {"before": self.is_one, "done": done})
                self.assertEqual(self.call(*words).status, 0)
                self.assertEqual(differences(done, self.release()), [])
                self.changes(self.present(self.one))

    def remove_empty_store(self):
        """A removal's last step may come back: the next installation takes the directory."""
        call = self.places().store / "call"
        if call.exists() and not self.places().state.exists():
            call.rmdir()

    def cut_power(self, moment, words, written):
        copies = [(disk, pathlib.Path(f"{disk.image}.copy")) for disk in self.disks]
        for disk in self.disks:
            disk.sync()
        if moment == "end":
            outcome = self.call(*words)
            self.assertEqual(outcome.status, 0, outcome.error)
        else:
            call = self.hold(moment, words)
        written.write_for_another()
        for disk, copy in copies:
            disk.copy(copy)
        if moment != "end":
            kill_tree(call)
            call.end()
        for disk, copy in copies:
            disk.become(copy)

    def test_what_somebody_had_changed_is_kept_when_the_call_has_ended(self):
        (self.app / "index").write_text("mine")
        self.cut_power("end", self.words(self.two), written=self.state_disk)
        self.assertEqual(self.call("recover").status, 0)
        (kept,) = self.kept()
        self.assertEqual(kept.read_text(), "mine")


main()
