#!/usr/bin/python3
"""A disk that becomes full at any moment: a call does all or nothing, and the next one needs no hand."""

from disks import DiskTest
from support import differences, main


class FullTest(DiskTest):
    def full(self, fill, disk):
        """Fills a disk at each moment.  A call that ends well has done all; the next one is made when there is room."""
        failures = self.full_during(self.words(self.two), self.is_two, [self.is_one], fill, disk)
        self.assertGreater(failures, 0)
        # A removal whose script has ended has no way back, and needs so little that it may succeed at each moment.
        removal = ["absent", "one.example", "app"]
        self.full_during(removal, self.is_none, [self.is_one, self.is_none], fill, disk)

    def full_during(self, words, done, failed, fill, disk):
        failures = 0
        for moment in self.all_moments(words):
            with self.subTest(f"{moment} of {words}"):
                call = self.start(*words, moment=moment)
                self.assertTrue(call.hold())
                fill()
                call.go_on()
                outcome = call.end()
                self.assertIn((outcome.status, outcome.output), [(0, "changed\n"), (1, "")], outcome.error)
                says_as_before = "one.example/app: files, fragment and record are as before\n" in outcome.error
                if says_as_before:
                    self.assertEqual(differences(self.is_one, self.release()), [])
                disk.make_room()
                self.assertEqual(self.call("recover").status, 0)
                now = self.release()
                wanted = [done] if outcome.status == 0 else failed
                self.assertIn([], [differences(release, now) for release in wanted])
                self.assertEqual(self.call(*words).status, 0)
                self.assertEqual(differences(done, self.release()), [])
                self.changes(self.present(self.one))
                failures += outcome.status
        return failures

    def test_no_space_on_the_site_s_disk(self):
        self.full(self.site_disk.fill, self.site_disk)

    def test_no_inodes_on_the_site_s_disk(self):
        self.full(self.site_disk.use_all_inodes, self.site_disk)

    def test_no_space_on_the_state_s_disk(self):
        self.full(self.state_disk.fill, self.state_disk)

    def test_no_inodes_on_the_state_s_disk(self):
        self.full(self.state_disk.use_all_inodes, self.state_disk)


if __name__ == "__main__":
    main()
