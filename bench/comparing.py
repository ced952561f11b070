"""Commands beside each other, in turns: a busy minute of the machine then hits not one of them alone."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path


@dataclass(frozen=True)
class Command:
    words: list
    input: Path = Path("/dev/null")


@dataclass(frozen=True)
class Seconds:
    cpu: float  # user and system, of the command and all that it waits for
    wall: float


class Ratio:
    """Of the seconds of two commands, a value for each round."""

    def __init__(self, values):
        self.values = values
        self.median = statistics.median(values)
        self.range = f"{min(values):.2f} to {max(values):.2f}"

    def times(self, factor):
        return Ratio([factor * value for value in self.values])

    def __str__(self):
        return f"{self.median:.2f} ({self.range})"


class Comparison:
    """The first command's seconds beside those of the others."""

    def __init__(self, names):
        self.rounds = {name: [] for name in names}
        self.first = names[0]

    def cpu(self, name):
        return statistics.median(seconds.cpu for seconds in self.rounds[name])

    def wall(self, name):
        return statistics.median(seconds.wall for seconds in self.rounds[name])

    def cpu_ratio(self, other):
        pairs = zip(self.rounds[self.first], self.rounds[other])
        return Ratio([first.cpu / its.cpu for first, its in pairs])

    def wall_ratio(self, other):
        pairs = zip(self.rounds[self.first], self.rounds[other])
        return Ratio([first.wall / its.wall for first, its in pairs])

    def print(self, title):
        print(f"{title}\n  {'':22} {'user+system':>11} {'wall':>11}   ratio: user+system, wall")
        for name in self.rounds:
            line = f"  {name:22} {self.cpu(name):9.4f} s {self.wall(name):9.4f} s"
            if name != self.first:
                line += f"   {self.cpu_ratio(name)}, {self.wall_ratio(name)}"
            print(line)
        print(flush=True)


def compare(rounds, commands, prepare=None, check=None):
    """Runs the COMMANDS (by their names) in turns, ROUNDS times.

    A command that changes from round to round is a function of the round's number, which makes it.
    `prepare` is called before every run, and `check` behind it; it ends the benchmark if the run has not done its work.
    The round before the first one warms up and does not count.
    """
    comparison = Comparison(list(commands))
    for number in range(rounds + 1):
        for name, command in commands.items():
            if prepare:
                prepare()
            seconds = measure(command(number) if callable(command) else command)
            if check:
                check()
            if number > 0:
                comparison.rounds[name].append(seconds)
    return comparison


def measure(command):
    with open(command.input) as source, tempfile.TemporaryFile() as output:
        begin = time.monotonic()
        process = subprocess.Popen(command.words, stdin=source, stdout=output, stderr=output)
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.monotonic() - begin
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            output.seek(0)
            sys.exit(f"a run failed: {command.words}\n{output.read().decode(errors='replace')}")
    return Seconds(usage.ru_utime + usage.ru_stime, wall)
