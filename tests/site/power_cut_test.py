#!/usr/bin/python3
"""The power is cut at any moment: what the disks have then becomes one release, with all its content."""

import pathlib

from disks import DiskTest
from calls import kill_tree
from support import main, share
from trees import differences


class TwoDisksTest(DiskTest):
    def test_power_cut_at_any_moment_of_an_upgrade(self):
        self.cut_power_during(self.words(self.two), self.is_two)

    def test_power_cut_at_any_moment_of_a_removal(self):
        self.cut_power_during(["absent", "one.example", "app"], self.is_none)

    def cut_power_during(self, words, done):
        """`done` is the release that the call leaves when nothing cuts it off."""
        for moment in share([*self.all_moments(words), "end"]):
            with self.subTest(moment):
                self.cut_power(moment, words)
                self.assertEqual(self.call("recover").status, 0)
                self.is_one_of({"done": done} if moment == "end" else {"before": self.is_one, "done": done})
                self.assertEqual(self.call(*words).status, 0)
                self.assertEqual(differences(done, self.release()), [])
                self.changes(self.present(self.one))

    def cut_power(self, moment, words):
        copies = [(disk, pathlib.Path(f"{disk.image}.copy")) for disk in self.disks]
        if moment == "end":
            self.changes(self.call(*words))
            for disk, copy in copies:
                disk.copy(copy)
        else:
            call = self.start(*words, moment=moment)
            self.assertTrue(call.hold())
            for disk, copy in copies:
                disk.copy(copy)
            kill_tree(call)
            call.end()
        for disk, copy in copies:
            disk.become(copy)


class OneDiskTest(TwoDisksTest):
    def mount_disks(self):
        disk = self.mount_disk("both")
        self.vhosts = disk.directory / "vhosts"
        self.state = disk.directory / "state"


if __name__ == "__main__":
    main()
