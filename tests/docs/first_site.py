"""The machine as the page for the first site leaves it.  Its server is a stand-in of two commands."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

from testing import ROOT

HOSTS = Path("/var/www/vhosts")
HOST = HOSTS / "example.com"
SYSTEM = HOSTS / "system/example.com"
PACKAGES = Path("/opt/packages")


def make(programs):
    """To be called in a sandbox with copies over /opt and /var."""
    remove_earlier_traces()
    add_account()
    shutil.copy(ROOT / "examples/kro.conf", "/etc/kro/kro.conf")
    add_settings()
    make_host()
    add_package()
    add_commands(programs)
    install_guest_book()


def remove_earlier_traces():
    for directory in [HOST, SYSTEM, PACKAGES, "/var/lib/larkspur", "/var/lib/panel", "/etc/larkspur"]:
        shutil.rmtree(directory, ignore_errors=True)


def add_account():
    passwd = Path("/etc/passwd")
    others = [line for line in passwd.read_text().splitlines() if not line.startswith("example:")]
    account = f"example:x:20003:20100::{HOST}:/usr/sbin/nologin"
    passwd.write_text("\n".join([*others, account, ""]))


def make_host():
    (SYSTEM / "conf").mkdir(parents=True)
    for directory, mode in [(HOST, 0o0750), (HOST / "httpdocs", 0o2750)]:
        directory.mkdir()
        shutil.chown(directory, "example", "kroserv")
        directory.chmod(mode)


def add_settings():
    Path("/etc/larkspur").mkdir()
    shutil.copy(ROOT / "packaging/site.conf", "/etc/larkspur")


def add_package():
    shutil.copytree(ROOT / "examples/guestbook", PACKAGES / "guestbook")
    subprocess.run(["chmod", "-R", "a+rX", PACKAGES], check=True)


def add_commands(programs):
    """Into a directory of the sandbox's own, which is the first one that root's programs are looked for in."""
    directory = Path("/usr/local/sbin")
    subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "larkspur-local", directory], check=True)
    for program in programs:
        (directory / program.name).symlink_to(program.resolve())
    fragments = HOSTS / "system/*/conf/siteapp.d/*.conf"
    # larkspur-site gives the commands none of its environment.
    apache = f"TMPDIR='{os.environ['TMPDIR']}' exec '{ROOT}/tests/support/apache'"
    write_command(directory / "apachectl", f"{apache} check '{fragments}'")
    write_command(directory / "service", "exit 0")
    os.environ["PATH"] = f"{directory}:{os.environ['PATH']}"


def write_command(path, line):
    path.write_text(f"#!/bin/sh\n{line}\n")
    path.chmod(0o755)


def install_guest_book():
    words = ["present", PACKAGES / "guestbook", "example.com", "example", "guestbook", "Our guests"]
    call = subprocess.run(["larkspur-site", *words], capture_output=True, text=True, stdin=subprocess.DEVNULL)
    if call.returncode != 0:
        sys.exit(call.stdout + call.stderr)
    with open(HOST / "httpdocs/guestbook/data/entries.tsv", "a") as entries:
        entries.write("1700000001\tAnn\tHello\n")
