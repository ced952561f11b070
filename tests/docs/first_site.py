"""The machine as the page for the first site leaves it.  Its server is a stand-in of two commands."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import machine
from machine import HOSTS, PACKAGES, STATE
from testing import ROOT

HOST = HOSTS / "example.com"
SYSTEM = HOSTS / "system/example.com"


def make(programs):
    """To be called in a sandbox with copies over /opt and /var."""
    remove_earlier_traces()
    shutil.copy(ROOT / "examples/kro.conf", "/etc/kro/kro.conf")
    add_settings()
    machine.make_host(HOST.name, "example")
    add_package()
    add_commands(programs)
    install_guest_book()


def remove_earlier_traces():
    for directory in [HOST, SYSTEM, PACKAGES, STATE, "/var/lib/panel", "/etc/larkspur"]:
        shutil.rmtree(directory, ignore_errors=True)


def add_settings():
    Path("/etc/larkspur").mkdir()
    shutil.copy(ROOT / "packaging/site.conf", "/etc/larkspur")


def add_package():
    shutil.copytree(ROOT / "examples/guestbook", PACKAGES / "guestbook")
    subprocess.run(["chmod", "-R", "a+rX", PACKAGES], check=True)


def add_commands(programs):
    machine.add_commands(programs)
    fragments = HOSTS / "system/*/conf/siteapp.d/*.conf"
    # larkspur-site gives the commands none of its environment.
    apache = f"TMPDIR='{os.environ['TMPDIR']}' exec '{ROOT}/tests/support/apache'"
    machine.write_command("apachectl", f"{apache} check '{fragments}'")
    machine.write_command("service", "exit 0")


def install_guest_book():
    words = ["present", PACKAGES / "guestbook", "example.com", "example", "guestbook", "Our guests"]
    call = subprocess.run(["larkspur-site", *words], capture_output=True, text=True, stdin=subprocess.DEVNULL)
    if call.returncode != 0:
        sys.exit(call.stdout + call.stderr)
    with open(HOST / "httpdocs/guestbook/data/entries.tsv", "a") as entries:
        entries.write("1700000001\tAnn\tHello\n")
