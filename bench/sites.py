"""Sites to install into, emptied so that an earlier run does not cost the next one."""

import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from programs import ACCOUNT


def clear(site):
    """For a site in memory."""
    if site.exists():
        shutil.rmtree(site)
    make(site)


def retire(site):
    """For a site on the disk.  Freed inodes slow ext4 down (see frame.py), so the old site keeps its inodes and gives back
    its blocks only."""
    if site.exists():
        subprocess.run(["find", site, "-type", "f", "-exec", "truncate", "-s", "0", "{}", "+"], check=True)
        site.rename(Path(tempfile.mkdtemp(dir=site.parent)) / "site")
    make(site)


def make(site):
    site.mkdir()
    shutil.chown(site, ACCOUNT, "kroserv")
    settle(site)


def settle(site):
    """Nothing is left to be written back while the next run is timed."""
    subprocess.run(["sync", "-f", site], check=True)


def check_copy(source, site):
    if subprocess.run(["diff", "-rq", source, site]).returncode != 0:
        sys.exit(f"{site} is not what {source} is")


def check_gone(path):
    if path.exists():
        sys.exit(f"a run left {path} behind")
