"""All that can be told of a tree, and what is different in another one."""

import os
import pathlib
import stat
import struct
from typing import NamedTuple

USER_OBJ, USER, GROUP_OBJ, MASK, OTHER = 0x01, 0x02, 0x04, 0x10, 0x20  # tags of an ACL's entries
ALL = 0xFFFFFFFF  # in place of an id, in an entry that names none


def facts(path):
    """All that can be told of one entry without following it, but its access time."""
    path = os.fspath(path)
    status = os.lstat(path)
    told = {
        "mode": oct(status.st_mode),
        "owner": (status.st_uid, status.st_gid),
        "inode": status.st_ino,
        "links": status.st_nlink,
        "changed": status.st_ctime_ns,
        "modified": status.st_mtime_ns,
        "attributes": {name: os.getxattr(path, name, follow_symlinks=False)
                       for name in os.listxattr(path, follow_symlinks=False)},
    }
    if stat.S_ISLNK(status.st_mode):
        told["target"] = os.readlink(path)
    elif stat.S_ISREG(status.st_mode):
        told["size"] = (status.st_size, status.st_blocks)
        if status.st_size < 1 << 20:
            told["content"] = pathlib.Path(os.fsdecode(path)).read_bytes()
    return told


def all_facts(root):
    found = {}
    for directory, directories, files in os.walk(os.fsencode(root)):
        for name in [b".", *files, *(name for name in directories if os.path.islink(os.path.join(directory, name)))]:
            path = os.path.normpath(os.path.join(directory, name))
            found[os.fsdecode(os.path.relpath(path, os.fsencode(root)))] = facts(path)
    return found


def differences(before, after):
    """Of two values of all_facts or release, a line a difference."""
    lines = []
    for path in sorted(before.keys() | after.keys()):
        was, now = before.get(path), after.get(path)
        if isinstance(was, dict) and isinstance(now, dict):
            lines += [f"{path}: {line}" for line in differences(was, now)]
        elif was != now:
            lines.append(f"{path}: {was} is {now}")
    return lines


class Entry(NamedTuple):
    mode: str  # with the kind
    owner: int
    group: int
    content: bytes | str | None  # of a file, or of a link


def tree(root):
    """What a person sees of a tree: path to entry."""
    return {path: Entry(told["mode"], *told["owner"], told.get("content", told.get("target")))
            for path, told in all_facts(root).items()}


def acl(*entries):
    """The value of a POSIX ACL's attribute, of (tag, rights, id)."""
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)
