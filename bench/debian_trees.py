"""Trees of real applications: the document files of Debian packages, kept below build/bench."""

import shutil
import subprocess
import tempfile
from pathlib import Path

from programs import STORE

TREES = STORE / "trees"


def fetch(package):
    """Every symbolic link becomes what it names inside the package."""
    if (TREES / package).exists():
        return
    TREES.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=STORE) as work:
        download(package, work)
        [archive] = Path(work).glob("*.deb")
        unpacked = Path(work, "unpacked")
        run("dpkg", "-x", archive, unpacked)
        # Links out of the package would bring in whatever this host happens to have.
        run("find", unpacked, "-lname", "/*", "-delete")
        run("find", unpacked, "-xtype", "l", "-delete")
        tree = Path(work, "tree")
        run("cp", "-rL", unpacked / "usr/share" / package, tree)
        run("chmod", "-R", "a+rX", tree)
        tree.rename(TREES / package)


def download(package, directory):
    get = ["apt-get", "-qq", "-o", "APT::Sandbox::User=root"]
    if subprocess.run([*get, "download", package], cwd=directory).returncode != 0:
        run(*get, "update")
        run(*get, "download", package, cwd=directory)


def run(*command, **options):
    subprocess.run(command, check=True, **options)


def copy(package, target):
    shutil.copytree(TREES / package, target)
