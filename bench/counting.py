"""What one run of a command takes: the same on any machine and on a busy one."""

import os
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path


def instructions(command):
    """In user space."""
    counts = scratch_file("callgrind")
    # The program ends as the site's account, which can write a file that is there.
    counts.touch()
    counts.chmod(0o666)
    valgrind = ["valgrind", "--tool=callgrind", "--vgdb=no", f"--callgrind-out-file={counts}"]
    told = run(command, valgrind)
    return int(re.search(r"refs: +([\d,]+)", told).group(1).replace(",", ""))


def system_calls(command):
    """How often each one was made."""
    trace = scratch_file("trace")
    run(command, ["strace", "-o", trace])
    lines = trace.read_text(errors="replace")
    # A tracer that is older than fchmodat2(2) gives its number only, and leaves it out of a summary of its own.
    return Counter(re.findall(r"^(\w+)\(", lines.replace("syscall_0x1c4(", "fchmodat2("), re.MULTILINE))


def peak_kibibytes(command):
    """The greatest resident memory.

    time(1) starts the command, and not this process: a child counts with its parent's memory until it has become the
    program, and that of a small parent is less than the program's own.
    """
    peak = scratch_file("peak")
    run(command, ["/usr/bin/time", "-q", "-f", "%M", "-o", peak])
    return int(peak.read_text())


def scratch_file(name):
    return Path(os.environ["TMPDIR"], name)


def run(command, below):
    """Runs the command BELOW another one and returns what both say."""
    with open(command.input) as source:
        result = subprocess.run(
            [*below, *command.words], stdin=source, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True
        )
    if result.returncode != 0:
        sys.exit(f"a run failed: {command.words}\n{result.stdout}")
    return result.stdout
