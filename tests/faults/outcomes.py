"""What may come of a fault: the documented outcomes.  Everything else is a defect."""

import re
from dataclasses import dataclass

import cases
import tracing


class Undocumented(Exception):
    """Something came of a fault that no document tells."""


@dataclass(frozen=True)
class Expectation:
    """What a case is without a fault."""

    before: dict  # snapshots, see cases.snapshot
    complete: dict
    output: str


@dataclass(frozen=True)
class BestEffort:
    """Where a failure is passed over: status 0 may come with less than the complete result."""

    why: str
    fault: str  # a pattern for the failed call's line and its stack
    command: str = ""  # part of the names of cases
    message: str = ""  # a pattern for standard error; ERROR stands for the text of the call's error


LOOK = "newfstatat|lstat|statx?|openat2?"
ACCOUNT_FILES = r"/etc/(passwd|group|nsswitch\.conf)|nss|socket|ld\.so\.cache|get(pw|gr)nam"

BEST_EFFORT = [
    BestEffort(
        "an unreadable panel configuration stands for its defaults",
        fault=r"kro\.conf|conf_read_file_r|autoprepend",
    ),
    BestEffort(
        "an account that cannot be looked up counts as unknown",
        fault=ACCOUNT_FILES,
        message="getpwnam|getgrnam|uid for user",
    ),
    BestEffort(
        "a directory that cannot be listed is passed over",
        command="extract",
        fault=rf"\b({LOOK}|getdents64|opendir|fdopendir)\b",
        message=r"^Unable to list directory: ERROR|^/[^:\n]+: ERROR$",
    ),
    BestEffort(
        "a source that cannot be found counts as missing",
        command="extract",
        fault=rf"\b({LOOK})\b",
        message=r'^Source directory "[^\n]+" is not exist$',
    ),
    BestEffort(
        "modes below a mapping are opened as far as possible",
        command="extract",
        fault="chmod",
    ),
    BestEffort(
        "an entry that resists is one line",
        command="delete",
        fault=f"unlink|rmdir|{LOOK}",
        message=r'^(unlink|rmdir|lstat)\("[^\n]+"\): ERROR$',
    ),
    BestEffort(
        "a script that cannot be examined counts as absent",
        command="run-script",
        fault=f"({LOOK}).*scripts/act",
    ),
]


def judge(case, fault, run, line, expected):
    """Returns the documented outcome that this run has had, or raises Undocumented.  `line` is from tracing.inject."""
    if case.name == "run-script" and line == "":
        return "met only by the script itself"
    after = cases.snapshot()
    check_damage(case, run, expected, after)
    if run.status < 0:
        return judge_death(case, fault, run, line)
    if any(".new" in path.name for path in after):
        raise Undocumented("a temporary file is left")
    if run.status > 0:
        return judge_failure(case, fault, run, expected, after)
    return judge_success(case, fault, run, line, expected, after)


def check_damage(case, run, expected, after):
    """What no fault excuses."""
    for path in cases.differences(expected.before, after):
        if case.area is None or not path.is_relative_to(case.area):
            raise Undocumented(f"touched {path}")
    if case.area == cases.DOCROOT:
        for path, entry in after.items():
            if path.is_relative_to(cases.DOCROOT) and entry.owner != cases.ACCOUNT_ID:
                raise Undocumented(f"not the site's: {path}")
    if re.search(rf"ran as (?!{cases.ACCOUNT_ID}\b)", run.output):
        raise Undocumented("the script ran as root")
    fragment = after.get(cases.FRAGMENT)
    whole = [snapshot.get(cases.FRAGMENT) for snapshot in (expected.before, expected.complete)]
    if fragment is not None and fragment not in whole:
        raise Undocumented("half a fragment")
    if run.status == tracing.KILLED_BY_TIMEOUT:
        raise Undocumented("hang")


def judge_death(case, fault, run, line):
    if fault.is_signal:
        return "killed: nothing is undone"
    if re.search("get(pw|gr)nam|initgroups", line):
        return "the C library did not survive a failed allocation of its own"
    if run.status != -6:
        raise Undocumented(f"died of signal {-run.status}")
    out_of_memory = "std::bad_alloc" in run.errors and case.name != "remove-conf"
    no_temporary_file = "mkstemp" in run.errors and case.name == "install-conf"
    if fault.deaf or out_of_memory or no_temporary_file:
        return "documented abort"
    raise Undocumented("undocumented abort")


def judge_failure(case, fault, run, expected, after):
    if not fault.deaf and not (run.output + run.errors).strip():
        raise Undocumented("no message")
    if case.name == "run-script" and "ran as" in run.output:
        return "script failed by itself"
    if case.name == "extract" and "bad_alloc" not in run.errors:
        if cases.DOCROOT / "app" in after and cases.differences(expected.before, after):
            raise Undocumented("not rolled back")
    return "failed with a message"


def judge_success(case, fault, run, line, expected, after):
    # A copy that fails is made once more where something stands in its way, which at the others is the failed copy.
    copy = cases.DOCROOT / "app/index.php"
    if fault.effect == "error=EIO" and re.search(rf"\bclose\(\d+<{copy}>", line):
        raise Undocumented("a copy that the disk may not have taken")
    missing = cases.differences(expected.complete, after)
    if not missing and run.output == expected.output:
        return "complete success"
    error = re.search(r"\(([^()]+)\) \(INJECTED\)", line)
    error_text = re.escape(error.group(1)) if error else "none"
    for row in BEST_EFFORT:
        message = row.message.replace("ERROR", error_text)
        told = fault.deaf or re.search(message, run.errors, re.MULTILINE)
        if row.command in case.name and re.search(row.fault, line) and told:
            return f"best effort: {row.why}"
    raise Undocumented(f"status 0 with another result: {' '.join(map(str, missing))}")
