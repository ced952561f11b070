"""What the machines of these tests have in common: a virtual host's places, accounts, and commands of their own."""

import os
import pwd
import shutil
import subprocess
from pathlib import Path

HOSTS = Path("/var/www/vhosts")
STATE = Path("/var/lib/larkspur")
PACKAGES = Path("/opt/packages")
COMMANDS = Path("/usr/local/sbin")  # where root's programs are looked for first


def add_commands(programs):
    """The directory becomes the sandbox's own."""
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "larkspur-local", COMMANDS], check=True)
    for program in map(Path, programs):
        (COMMANDS / program.name).symlink_to(program.resolve())
    os.environ["PATH"] = f"{COMMANDS}:{os.environ['PATH']}"


def write_command(name, line):
    file = COMMANDS / name
    file.write_text(f"#!/bin/sh\n{line}\n")
    file.chmod(0o755)


def add_account(name, home):
    """One that is there already stays."""
    accounts = {entry.pw_name: entry for entry in pwd.getpwall()}
    if name not in accounts:
        number = max(entry.pw_uid for entry in accounts.values() if entry.pw_uid < 30000) + 1
        with open("/etc/passwd", "a", encoding="utf-8") as passwd:
            passwd.write(f"{name}:x:{number}:20100::{home}:/usr/sbin/nologin\n")


def make_host(host, user):
    """A virtual host as the page for the first site makes it, with its account."""
    root = HOSTS / host
    add_account(user, root)
    (HOSTS / "system" / host / "conf").mkdir(parents=True)
    for directory, mode in [(root, 0o0750), (root / "httpdocs", 0o2750)]:
        directory.mkdir()
        shutil.chown(directory, user, "kroserv")
        directory.chmod(mode)
