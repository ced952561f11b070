"""Hosts, and settings with which larkspur-site knows them."""

import shutil
from dataclasses import dataclass
from pathlib import Path

import programs
from comparing import Command


@dataclass(frozen=True)
class Machine:
    vhosts: Path
    state: Path
    settings: Path  # a file

    def write_settings(self, check):
        """CHECK: what the server's check is; one word for a shell."""
        lines = [f"VHOSTS={self.vhosts}", f"STATE={self.state}", f"CONFIGTEST={check}", "RELOAD=true"]
        self.settings.write_text("\n".join(lines) + "\n")

    def add_host(self, host):
        root = self.root(host)
        root.mkdir(parents=True)
        (self.vhosts / "system" / host / "conf").mkdir(parents=True)
        shutil.chown(root, programs.ACCOUNT, "kroserv")

    def root(self, host):
        return self.vhosts / host / "httpdocs"

    def call(self, *words):
        return Command([programs.SITE, f"--settings={self.settings}", *words])

    def present(self, package, host, name):
        return self.call("present", package, host, programs.ACCOUNT, name)
