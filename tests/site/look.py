#!/usr/bin/python3
"""look.py FILE: writes what a process sees of itself that it may have from its caller, a JSON object."""

import json
import os
import sys


def terminal():
    """Its name, or the number of the error."""
    try:
        return os.ttyname(os.open("/dev/tty", os.O_RDWR))
    except OSError as failure:
        return failure.errno


def descriptors():
    """What each leads to: a path, or a word for what has none."""
    seen = {}
    for number in os.listdir("/proc/self/fd"):
        try:
            target = os.readlink(f"/proc/self/fd/{number}")
        except FileNotFoundError:
            continue  # by which the directory was listed
        seen[number] = target.split("[")[0].split(":")[0]
    return seen


found = {
    "descriptors": descriptors(),
    "terminal": terminal(),
    "ids": os.getresuid(),
    "groups": os.getgroups(),
    "mask": os.umask(0),
}
with open(sys.argv[1], "w") as file:
    json.dump(found, file)
