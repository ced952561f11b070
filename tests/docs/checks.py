"""What has to be true of a block, by its language: CHECKS.  A check raises Wrong or returns what there is to tell."""

import difflib
import os
import re
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

from testing import ROOT, SKIPPED, application


class Wrong(Exception):
    """What is wrong with a block."""


@dataclass
class Session:
    """What the blocks of a page have in common."""

    directory: str  # where commands begin
    umask: int
    metadata_schema: Path
    list_schema: Path
    printed: str = ""  # by the last commands, on both streams


def status_and_output(command, text="", **options):
    """Both streams of the command are one pipe: to an output that is a file larkspur sets the offset."""
    result = subprocess.run(
        command, input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace", **options
    )
    return result.returncode, result.stdout


def commands_succeed(session, text):
    bash = ["bash", "-euo", "pipefail", "-c", text]
    environment = {**os.environ, "LC_ALL": "C.UTF-8"}
    status, session.printed = status_and_output(bash, cwd=session.directory, umask=session.umask, env=environment)
    if status != 0:
        raise Wrong(f"status {status}\n{session.printed}")


def text_was_printed(session, text):
    shown, printed = without_times(text), without_times(session.printed)
    if shown != printed:
        difference = difflib.unified_diff(shown, printed, "the page", "printed", lineterm="")
        raise Wrong("\n".join(difference))


def without_times(text):
    """Its lines; the page was written on another day."""
    return re.sub(r"\d{4}-\d\d-\d\d(T\d\d:\d\d:\d\dZ(\.\d)?)?", "TIME", text).splitlines()


def schema_accepts(session, text):
    schema = session.metadata_schema
    if "<INSTANCE-DATA" in text:
        schema = session.list_schema
    elif "<application" not in text:
        text = as_application(text, schema)
    status, complaints = status_and_output(["xmllint", "--noout", "--relaxng", schema, "-"], text)
    if status != 0:
        raise Wrong(complaints)


def as_application(mappings, schema):
    namespace = re.search(r'^ *ns="(.*)">$', Path(schema).read_text(), re.MULTILINE).group(1)
    return application(f"<name/><version/>{mappings}<release/>", namespace)


def apache_accepts(session, text):
    with tempfile.NamedTemporaryFile("w", suffix=".conf") as fragment:
        fragment.write(text)
        fragment.flush()
        status, said = status_and_output([ROOT / "tests/support/apache", "check", fragment.name])
    if status == SKIPPED:
        return said
    if status != 0:
        raise Wrong(said)


def nothing(session, text):
    pass


CHECKS = {
    "sh": commands_succeed,
    "text": text_was_printed,
    "xml": schema_accepts,
    "apache": apache_accepts,
    "ini": nothing,
    "": nothing,
}
