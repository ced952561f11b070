#!/usr/bin/python3
"""A disk becomes full during an upgrade or a removal, at the first and the last arrival at each place where a call can
be held: it does all or nothing, and the next one needs no hand."""

from typing import NamedTuple

from disks import DiskTest
from support import main, share
from trees import differences


class Act(NamedTuple):
    words: list
    done: dict    # the release that there is after it
    failed: dict  # the releases that there may be when it has failed


class FullTest(DiskTest):
    def full(self, fill, disk):
        """Fills a disk during a call.  One that ends well has done all; the next one is made when there is room."""
        upgrade = Act(self.words(self.two), done=self.is_two, failed={"one": self.is_one})
        failures = self.full_during(upgrade, fill, disk)
        self.assertGreater(failures, 0)
        # A removal whose script has ended has no way back, and needs so little that it may succeed at each moment.
        removal = Act(["absent", "one.example", "app"], done=self.is_none,
                      failed={"one": self.is_one, "none": self.is_none})
        self.full_during(removal, fill, disk)

    def full_during(self, act, fill, disk):
        failures = 0
        fails = ("swap", 1)  # the upgrade, on each of the disks
        for moment in dict.fromkeys([fails, *share(self.first_and_last_moments(act.words))]):
            with self.subTest(f"{moment} of {act.words}"):
                outcome = self.meanwhile(moment, act.words, fill)
                self.assertIn((outcome.status, outcome.output), [(0, "changed\n"), (1, "")], outcome.error)
                says_as_before = "one.example/app: files, fragment and record are as before\n" in outcome.error
                if says_as_before:
                    self.assertEqual(differences(self.is_one, self.release()), [])
                disk.make_room()
                self.assertEqual(self.call("recover").status, 0)
                self.is_one_of({"done": act.done} if outcome.status == 0 else act.failed)
                self.assertEqual(self.call(*act.words).status, 0)
                self.assertEqual(differences(act.done, self.release()), [])
                self.changes(self.present(self.one))
                failures += outcome.status
        return failures

    def test_a_store_on_another_disk_is_refused(self):
        self.settings(STORE=self.state_disk.directory / "store")
        self.fails(self.present(self.two), "is on another file system than ")
        self.settings()
        self.assertEqual(differences(self.is_one, self.release()), [])

    def test_no_space_on_the_site_s_disk(self):
        self.full(self.site_disk.fill, self.site_disk)

    def test_no_inodes_on_the_site_s_disk(self):
        self.full(self.site_disk.use_all_inodes, self.site_disk)

    def test_no_space_on_the_state_s_disk(self):
        self.full(self.state_disk.fill, self.state_disk)

    def test_no_inodes_on_the_state_s_disk(self):
        self.full(self.state_disk.use_all_inodes, self.state_disk)


main()
