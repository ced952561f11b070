"""Runs a case under strace: to list its system calls, or to let one of them fail."""

import os
import re
import signal
import subprocess
from dataclasses import dataclass

import cases
from testing import SANDBOX

# The errors that are plausible for a call: a row holds for each of its calls.
PLAUSIBLE = [
    ("EACCES EMFILE ENOMEM EIO EINTR", "open openat openat2"),
    ("EIO EINTR", "read pread64 close fcntl dup2 dup3"),
    ("EIO ENOSPC EDQUOT EINTR EPIPE", "write writev sendfile"),
    ("EIO ENOSPC EDQUOT EINTR EXDEV", "copy_file_range"),
    ("ENOMEM", "mmap mprotect"),
    ("EACCES EIO ENOMEM", "stat lstat newfstatat statx access faccessat faccessat2 readlink readlinkat"),
    ("EACCES EIO ENOMEM", "chdir fchdir getdents64 execve"),
    ("EACCES EIO ENOSPC EDQUOT", "mkdir mkdirat rename renameat renameat2 unlink unlinkat rmdir"),
    ("EACCES EIO ENOSPC EDQUOT", "chmod fchmod fchmodat fchmodat2 ftruncate"),
    ("EPERM EAGAIN", "setuid setgid setgroups setsid"),
    ("EAGAIN ENOMEM", "clone clone3 fork vfork"),
    ("EINTR", "wait4 waitid rt_sigtimedwait"),
    ("EMFILE", "socket pipe2"),
    # Another call for the same application takes the entry away, or makes it.
    ("ENOENT", "openat openat2 newfstatat statx faccessat faccessat2 readlink unlink unlinkat rmdir chmod fchmodat"),
    ("EEXIST", "mkdir mkdirat open openat renameat renameat2"),
    ("ENOTEMPTY", "unlinkat rmdir"),
    # A kernel that is older than the call.
    ("ENOSYS", "openat2 copy_file_range statx faccessat2 fchmodat2 close_range"),
]

# Each allocation becomes a mapping of its own.  What the C library would fall back on always fails.
ALLOCATIONS_AS_MAPPINGS = ["-EGLIBC_TUNABLES=glibc.malloc.mmap_threshold=1", "-einject=brk,mremap:error=ENOMEM"]

PATIENCE = 200  # seconds, after which a run counts as hanging
KILLED_BY_TIMEOUT = 137
ABORTED = -signal.SIGABRT


@dataclass(frozen=True)
class Fault:
    call: str
    occurrence: int  # the how manieth call of this name in its process
    effect: str  # in strace's words: "error=EIO", "signal=KILL"
    deaf: bool = False  # nobody reads standard error

    def __str__(self):
        return f"{self.call} {self.occurrence} {self.effect}{', deaf' if self.deaf else ''}"

    @property
    def is_signal(self):
        return self.effect.startswith("signal=")


@dataclass(frozen=True)
class Run:
    status: int  # exit status, or the signal that ended the program, negative
    output: str
    errors: str
    trace: str


def whole_calls(trace):
    """The lines of a trace.  A call during which another process was heard of stands in two of them."""
    begun = {}
    for line in trace.splitlines():
        process, _, said = line.partition(" ")
        if said.endswith(" <unfinished ...>"):
            begun[process] = said.removesuffix(" <unfinished ...>")
        elif said.lstrip().startswith("<... "):
            yield f"{process} {begun.pop(process, '')}{said.partition(' resumed>')[2]}"
        else:
            yield line


def run(program, case, options, deaf=False):
    """Runs the case on a fresh site.  strace follows the program's children until they become another program."""
    cases.make_site()
    trace = SANDBOX / "trace"
    command = ["timeout", "-s", "KILL", str(PATIENCE), "strace", "-f", "-b", "execve", "-y", "-q", "-o", trace]
    with open(case.input) as standard_input:
        reader, writer = os.pipe()
        process = subprocess.Popen([*command, *options, program, *case.words], text=True, errors="replace",
                                   stdin=standard_input, stdout=subprocess.PIPE,
                                   stderr=writer if deaf else subprocess.PIPE)
        os.close(writer)
        os.close(reader)
        output, errors = process.communicate()
    lines = whole_calls(trace.read_text(errors="replace"))
    return Run(process.returncode, output, errors or "", "\n".join(lines))


def calls_of(program, case):
    """Every system call of the case, and behind them every allocation as an "mmap": pairs of name and occurrence.

    Also returns the faultless run.
    """
    plain = faultless(program, case, [])
    calls = [(call, occurrence) for call, occurrence in listed(plain.trace) if call != "mmap"]
    mapped = faultless(program, case, ALLOCATIONS_AS_MAPPINGS)
    calls += [(call, occurrence) for call, occurrence in listed(mapped.trace) if call == "mmap"]
    return calls, plain


def faultless(program, case, options):
    result = run(program, case, options)
    if result.status != 0:
        raise RuntimeError(f"{case.name} fails without any fault: {result.errors}")
    return result


def listed(trace):
    counts = {}
    calls = []
    for process, call in re.findall(r"^(\d+) +(?!exit)(\w+)\(", trace, re.MULTILINE):
        counts[process, call] = counts.get((process, call), 0) + 1
        calls.append((call, counts[process, call]))
    # Before the loader is done with its cache there is no program yet whose conduct could be judged.
    start = next(index for index, (call, _) in enumerate(calls) if call == "munmap")
    return list(dict.fromkeys(calls[start:]))


def left_open(trace):
    """What a process had open when it ended, but for the standard streams: each with the call that opened it."""
    found = {}
    for process, call, words, result in re.findall(r"^(\d+) +(\w+)\((.*)\) += (.*)$", trace, re.MULTILINE):
        # strace shows behind a descriptor what it is: "3</etc/passwd>".
        opened = re.findall(r"(\d+)<", words if call == "pipe2" else result)
        for descriptor in opened:
            found[process, descriptor] = f"{call}({words}) = {result}"
        if call == "close" and result == "0":
            found.pop((process, re.match(r"\d+", words).group()), None)
    return [line for (_, descriptor), line in found.items() if int(descriptor) > 2]


def unknown(calls):
    """The calls that are newer than strace: it has no name for them and cannot let them fail."""
    return {call for call, occurrence in calls if call.startswith("syscall_")}


def faults_of(calls):
    """Every plausible fault of these calls.  SIGKILL and SIGTERM take turns; no signal is tried for allocations."""
    without_name = unknown(calls)
    for index, (call, occurrence) in enumerate(calls):
        if call in without_name:
            continue
        for errors, names in PLAUSIBLE:
            if call in names.split():
                for error in errors.split():
                    yield Fault(call, occurrence, f"error={error}")
        if call != "mmap":
            yield Fault(call, occurrence, "signal=KILL" if index % 2 else "signal=TERM")


def can_be_deaf(fault):
    """An allocation's failure is known by its message."""
    return not fault.is_signal and fault.call != "mmap"


def inject(program, case, fault):
    """Runs the case with the fault.  Returns the run and what strace says of the call: its line, its stack if known."""
    if fault.call == "mmap":
        # The C library tries twice.
        twice = f"when={fault.occurrence}..{fault.occurrence + 1}"
        options = [*ALLOCATIONS_AS_MAPPINGS, f"-einject=mmap:{fault.effect}:{twice}"]
        options += ["-etrace=%memory", "-estatus=failed", "-k"]  # -k: with the stack
    else:
        options = [f"-etrace={fault.call}", f"-einject={fault.call}:{fault.effect}:when={fault.occurrence}"]
    result = run(program, case, options, fault.deaf)
    line = re.search(rf"^.*(\b{fault.call}\(.*INJECTED|SIG(KILL|TERM)).*(\n >.*)*", result.trace, re.MULTILINE)
    return result, line.group() if line else ""
