"""What may come of a fault: the documented outcomes.  Everything else is a defect.

`judge` looks first for damage that nothing excuses, then at how the command ended: by a signal, with a failure or with
status 0.
"""

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
class Trial:
    """A case that was run with a fault."""

    case: cases.Case
    fault: tracing.Fault
    run: tracing.Run
    line: str  # what strace says of the failed call: see tracing.inject
    expected: Expectation
    after: dict  # a snapshot

    @property
    def changed(self):
        return cases.differences(self.expected.before, self.after)


def judge(case, fault, run, line, expected):
    """Returns the documented outcome that this run has had, or raises Undocumented.  `line` is from tracing.inject."""
    if case.name == "run-script" and line == "":
        return "met only by the script itself"
    trial = Trial(case, fault, run, line, expected, cases.snapshot())
    check_damage(trial)
    if run.status < 0:
        return judge_death(trial)
    if any(".new" in path.name for path in trial.after):
        raise Undocumented("a temporary file is left")
    if run.status > 0:
        return judge_failure(trial)
    return judge_success(trial)


def check_damage(trial):
    if trial.run.status == tracing.KILLED_BY_TIMEOUT:
        raise Undocumented("hang")
    area = trial.case.area
    for path in trial.changed:
        if area is None or not path.is_relative_to(area):
            raise Undocumented(f"touched {path}")
    if area == cases.DOCROOT:
        for path, entry in trial.after.items():
            if path.is_relative_to(cases.DOCROOT) and entry.owner != cases.ACCOUNT_ID:
                raise Undocumented(f"not the site's: {path}")
    if re.search(rf"ran as (?!{cases.ACCOUNT_ID}\b)", trial.run.output):
        raise Undocumented("the script ran as root")
    fragment = trial.after.get(cases.FRAGMENT)
    old = trial.expected.before.get(cases.FRAGMENT)
    new = trial.expected.complete.get(cases.FRAGMENT)
    if fragment not in (None, old, new):
        raise Undocumented("half a fragment")


def judge_death(trial):
    if trial.fault.is_signal:
        return "killed: nothing is undone"
    if re.search("get(pw|gr)nam|initgroups", trial.line):
        return "the C library did not survive a failed allocation of its own"
    if trial.run.status != tracing.ABORTED:
        raise Undocumented(f"died of signal {-trial.run.status}")
    out_of_memory = "std::bad_alloc" in trial.run.errors and trial.case.name != "remove-conf"
    no_temporary_file = "mkstemp" in trial.run.errors and trial.case.name == "install-conf"
    if trial.fault.deaf or out_of_memory or no_temporary_file:
        return "documented abort"
    raise Undocumented("undocumented abort")


def judge_failure(trial):
    said = trial.run.output + trial.run.errors
    if not trial.fault.deaf and not said.strip():
        raise Undocumented("no message")
    if trial.case.name == "run-script" and "ran as" in trial.run.output:
        return "script failed by itself"
    # Without memory there is no rollback.
    if trial.case.name == "extract" and "bad_alloc" not in trial.run.errors:
        check_rollback(trial)
    return "failed with a message"


def check_rollback(trial):
    """A rollback removes the planned files, also the site's own ones of these names, and then empty directories."""
    has_removed_all = cases.APPLICATION not in trial.after
    if trial.changed and not has_removed_all:
        raise Undocumented("not rolled back")


def judge_success(trial):
    if is_unsure_of_last_copy(trial):
        raise Undocumented("a copy that the disk may not have taken")
    missing = cases.differences(trial.expected.complete, trial.after)
    if not missing and trial.run.output == trial.expected.output:
        return "complete success"
    for row in BEST_EFFORT:
        if row.covers(trial):
            return f"best effort: {row.why}"
    raise Undocumented(f"status 0 with another result: {' '.join(map(str, missing))}")


def is_unsure_of_last_copy(trial):
    """A copy is made a second time where something stands in its way.  At most files that is the first copy, if it has
    failed.  At this one it was the site's own file, and so a copy whose close fails has been the last one."""
    closes_copy = re.search(rf"\bclose\(\d+<{cases.OWN_FILE}>", trial.line)
    return closes_copy and trial.fault.effect == "error=EIO"


@dataclass(frozen=True)
class BestEffort:
    """Where a failure is passed over: status 0 may come with less than the complete result."""

    why: str
    fault: str  # a pattern for the failed call's line and its stack
    command: str = ""  # part of the names of cases
    message: str = ""  # a pattern for standard error; ERROR stands for the text of the call's error

    def covers(self, trial):
        if self.command not in trial.case.name or not re.search(self.fault, trial.line):
            return False
        error = re.search(r"\(([^()]+)\) \(INJECTED\)", trial.line)
        error_text = re.escape(error.group(1)) if error else "none"
        message = self.message.replace("ERROR", error_text)
        return trial.fault.deaf or re.search(message, trial.run.errors, re.MULTILINE) is not None


LOOK = "newfstatat|lstat|statx?|openat2?"
ACCOUNT_FILES = r"/etc/(passwd|group|nsswitch\.conf)|nss|socket|ld\.so\.cache|get(pw|gr)nam"

BEST_EFFORT = [
    BestEffort("an unreadable panel configuration stands for its defaults",
               fault=r"kro\.conf|conf_read_file_r|autoprepend"),
    BestEffort("an account that cannot be looked up counts as unknown",
               fault=ACCOUNT_FILES, message="getpwnam|getgrnam|uid for user"),
    BestEffort("an entry that another call has taken away is passed over",
               fault=r"\b(statx|newfstatat|unlinkat)\(.* ENOENT .*INJECTED"),
    BestEffort("a directory that cannot be listed is passed over", command="extract",
               fault=rf"\b({LOOK}|getdents64|opendir|fdopendir)\b",
               message=r"^Unable to list directory: ERROR|^/[^:\n]+: ERROR$"),
    BestEffort("a source that cannot be found counts as missing", command="extract",
               fault=rf"\b({LOOK})\b", message=r'^Source directory "[^\n]+" is not exist$'),
    BestEffort("modes below a mapping are opened as far as possible", command="extract", fault="chmod"),
    BestEffort("an entry that resists is one line", command="delete",
               fault=f"unlink|rmdir|{LOOK}", message=r'^(unlink|rmdir|lstat)\("[^\n]+"\): ERROR$'),
    BestEffort("a script that cannot be examined counts as absent", command="run-script",
               fault=f"({LOOK}).*scripts/act"),
]
