"""Where a benchmark runs: as root, in the tests' sandbox, with a place in memory and one on the disk."""

import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

import debian_trees
from aims import Aims
from programs import LARKSPUR, ROOT, STORE

SANDBOX = ROOT / "tests/support/sandbox"


@dataclass(frozen=True)
class Bench:
    """What the function that measures is given."""

    quick: bool
    other_build: Path | None
    scratch: Path
    in_memory: Path
    on_disk: Path
    aims: Aims = field(default_factory=Aims)

    def rounds(self, count):
        """How many rounds a comparison takes that deserves COUNT."""
        return 2 if self.quick else count


def main(description, measure, trees=(), against_another_build=False, tools=()):
    """Calls `measure` with a Bench and prints the aims.  TREES are the packages of Debian that it works on, and TOOLS
    what it runs beside larkspur's programs."""
    options = parse_arguments(description, against_another_build)
    check_requirements(tools)
    for package in trees:
        debian_trees.fetch(package)
    if "LARKSPUR_SANDBOX" not in os.environ:
        enter_sandbox()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # a benchmark that is ended leaves nothing behind
    scratch = Path(os.environ["LARKSPUR_SANDBOX"])
    with directory_on_disk() as storage:
        in_memory, on_disk = make_places(scratch, storage)
        bench = Bench(options.quick, options.against, scratch, in_memory, on_disk)
        measure(bench)
    bench.aims.print()


def parse_arguments(description, against_another_build):
    parser = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="two rounds of each comparison")
    parser.set_defaults(against=None)
    if against_another_build:
        parser.add_argument("--against", type=Path, metavar="PROGRAM", required=True, help="the other build")
    options = parser.parse_args()
    if options.against:
        options.against = options.against.resolve()
    return options


def check_requirements(tools):
    if os.geteuid() != 0:
        sys.exit("needs root, for the site accounts of the sandbox")
    if not LARKSPUR.exists():
        sys.exit(f"{LARKSPUR} is missing; tools/bench builds it")
    for tool in tools:
        if not shutil.which(tool):
            sys.exit(f"{tool} is missing; tools/bench installs it")


def enter_sandbox():
    """Becomes the same benchmark in there."""
    if subprocess.run([SANDBOX, "--check"]).returncode != 0:
        sys.exit(1)
    os.execv(SANDBOX, [SANDBOX, *sys.argv])


def directory_on_disk():
    STORE.mkdir(parents=True, exist_ok=True)
    # ext4 passes over each inode freed within the last minutes when it looks for a new one, which takes far longer than
    # what is measured.  The attribute puts each run's place far from where an earlier one was deleted.
    subprocess.run(["chattr", "+T", STORE], stderr=subprocess.DEVNULL)
    return tempfile.TemporaryDirectory(prefix="place.", dir=STORE)


def make_places(scratch, storage):
    in_memory = scratch / "memory"
    on_disk = scratch / "disk"
    in_memory.mkdir()
    on_disk.mkdir()
    # The site's account can follow paths through a mount, wherever the working copy lies.
    os.chmod(storage, 0o755)
    subprocess.run(["mount", "--bind", storage, on_disk], check=True)
    return in_memory, on_disk
