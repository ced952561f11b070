"""Disks of their own for the tests of larkspur-site: ext4 images that can be filled, and copied at any moment."""

import os
import subprocess
import unittest

from support import SiteTest


class Disk:
    """An ext4 image and its directory.  Its options leave all care for what is written to the program."""

    def __init__(self, directory, image):
        self.directory = directory
        self.image = image
        directory.mkdir()
        subprocess.run(["truncate", "-s", "16M", image], check=True)
        subprocess.run(["mkfs.ext4", "-q", "-m", "0", "-b", "1024", "-N", "300", image], check=True)
        try:
            self.mount()
        except subprocess.CalledProcessError as failure:
            raise unittest.SkipTest(f"no image can be mounted: {failure.stderr.strip()}") from failure
        (directory / "another-file").touch()

    def mount(self):
        subprocess.run(["mount", "-o", "loop,noauto_da_alloc,data=writeback,commit=300", self.image, self.directory],
                       check=True, capture_output=True, text=True)

    def unmount(self):
        subprocess.run(["umount", self.directory], check=True)

    def sync(self):
        subprocess.run(["sync", "-f", self.directory], check=True)

    def write_for_another(self):
        """Another program's fsync has the disk write the names of all files.  Their content may still be missing."""
        fd = os.open(self.directory / "another-file", os.O_WRONLY)
        os.write(fd, b".")
        os.fsync(fd)
        os.close(fd)

    def copy(self, copy):
        """What the disk has if the power is cut now."""
        subprocess.run(["cp", "--sparse=always", self.image, copy], check=True)

    def become(self, copy):
        self.unmount()
        copy.rename(self.image)
        self.mount()

    def fill(self):
        fd = os.open(self.directory / "filler", os.O_WRONLY | os.O_CREAT)
        for size in (1 << 20, 1):
            try:
                while True:
                    os.write(fd, b"x" * size)
            except OSError:
                pass
        os.fsync(fd)
        os.close(fd)

    def use_all_inodes(self):
        try:
            for number in range(1000):
                (self.directory / f"filler-{number}").touch()
        except OSError:
            pass

    def make_room(self):
        for filler in self.directory.glob("filler*"):
            filler.unlink()


class DiskTest(SiteTest):
    """Two releases on a site; its hosts are on one disk, the state is on another one."""

    def mount_disks(self):
        self.site_disk = self.mount_disk("site")
        self.state_disk = self.mount_disk("state")
        self.vhosts = self.site_disk.directory / "vhosts"
        self.state = self.state_disk.directory / "state"

    def mount_disk(self, name):
        disk = Disk(self.base / name, self.base / f"{name}.image")
        self.addCleanup(disk.unmount)
        self.disks.append(disk)
        return disk

    def setUp(self):
        self.disks = []
        super().setUp()
        self.one, self.two = self.two_releases()
        self.is_none = self.release()
        self.changes(self.present(self.two))
        self.is_two = self.release()
        self.changes(self.present(self.one))
        self.is_one = self.release()

    def first_and_last_moments(self, words):
        """The first and the last arrival of a call at each place where it can be held."""
        moments = self.moments(*words)
        self.changes(self.present(self.one))
        first = dict(reversed(moments))
        last = dict(moments)
        return sorted(first.items() | last.items(), key=moments.index) + ["script"]
