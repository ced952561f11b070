"""What the tests in Python share: where things are, the words behind a script's name, an end that CTest knows."""

import os
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

IN_SANDBOX = "LARKSPUR_SANDBOX" in os.environ
NO_SANDBOX = "needs root and the accounts of tests/support/sandbox"
# The scratch directory of the sandbox; outside one it is a path that nothing has.
SANDBOX = Path(os.environ.get("LARKSPUR_SANDBOX", "/no-sandbox"))

NAMESPACE = "http://nimbo.example/ns/wtx/1"  # of metadata documents, unless a build has another one

SKIPPED = 77  # the exit status that CTest is told to take for "skipped"

needs_sandbox = unittest.skipUnless(IN_SANDBOX, NO_SANDBOX)


def skip(reason):
    """Ends the script as skipped, with the reason for tools/test."""
    print(f"skipped: {reason}", flush=True)
    sys.exit(SKIPPED)


def arguments(*names):
    """Takes one word behind the script's name for each of NAMES.  What follows is for unittest: -v, -k PATTERN."""
    words = sys.argv[1 : len(names) + 1]
    if len(words) < len(names):
        sys.exit(f"usage: {sys.argv[0]} {' '.join(names)} [-v] [-k PATTERN]")
    del sys.argv[1 : len(names) + 1]
    return words


def application(content, namespace=NAMESPACE, attributes=""):
    """A metadata document.  ATTRIBUTES: the version of its format, as in "version='1.1'"."""
    prefixes = f"xmlns='{namespace}' xmlns:php='{namespace}/php' xmlns:cgi='{namespace}/cgi'"
    return f"<application {prefixes} {attributes}>\n{content}</application>\n"


def main():
    """Runs the test cases of the script that calls this.

    The exit status is 1 if a test failed, else 77 if some were skipped, each with its reason in a line, else 0.
    """
    run = unittest.main(module="__main__", exit=False).result
    for test, reason in run.skipped:
        print(f"skipped: {reason}", flush=True)
    if not run.wasSuccessful():
        sys.exit(1)
    if run.skipped:
        sys.exit(SKIPPED)
