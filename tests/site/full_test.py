#!/usr/bin/python3
"""A disk that becomes full at any moment: a call does all or nothing, and the next one needs no hand."""

from disks import DiskTest
from support import differences, main


class FullTest(DiskTest):
    def full(self, fill, disk):
        """Fills a disk at each moment.  A call that ends well has done all; the next one is made when there is room."""
        failures = 0
        for moment in self.all_moments():
            with self.subTest(moment):
                call = self.start(*self.words(self.two), moment=moment)
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
                self.assertEqual(differences(self.is_two if outcome.status == 0 else self.is_one, self.release()), [])
                self.assertEqual(self.present(self.two).status, 0)
                self.assertEqual(differences(self.is_two, self.release()), [])
                self.changes(self.present(self.one))
                failures += outcome.status
        self.assertGreater(failures, 0)

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
