#!/usr/bin/python3
"""On an empty site larkspur-site leaves byte for byte the tree that `larkspur --extract-application` leaves."""

import grp
import itertools
import os
import subprocess
from typing import Callable, NamedTuple

from calls import BUILD
from support import ROOT, SITEA, SITEB, SiteTest, main, no_change
from trees import ALL, GROUP_OBJ, MASK, OTHER, USER, USER_OBJ, acl, all_facts, differences

FILES = {"htdocs/index.php": "page", "htdocs/sub/deep/page": "deep", "htdocs/run.cgi": "#!/bin/sh", "data/.hidden": "",
         "data/in/entries": "none", "data/closed/settings": "x", "cgi/all": "#!/bin/sh", "cgi/all.cgi": "#!/bin/sh"}
PHP = "<php:handler><php:extension>php</php:extension></php:handler>"
CGI = "<cgi:handler><cgi:extension>cgi</cgi:extension></cgi:handler>"
ALL_CGI = "<cgi:handler><cgi:all-files/></cgi:handler>"
WRITABLE = "<php:permissions writable='true'/>"


def group_of_the_server(root):
    os.chown(root, -1, grp.getgrnam("kroserv").gr_gid)
    root.chmod(0o2755)


def default_acl(root):
    os.setxattr(root, "system.posix_acl_default",
                acl((USER_OBJ, 7, ALL), (USER, 7, SITEB), (GROUP_OBJ, 5, ALL), (MASK, 7, ALL), (OTHER, 1, ALL)))


def links(package):
    (package / "htdocs/file-link").symlink_to("../data/in/entries")
    (package / "htdocs/directory-link").symlink_to("sub")


def modes(package):
    (package / "htdocs/index.php").chmod(0o400)
    (package / "htdocs/sub").chmod(0o700)
    (package / "htdocs/run.cgi").chmod(0o4755)
    os.chown(package / "htdocs/index.php", SITEA, 0)
    os.chown(package / "htdocs/sub", SITEA, 0)


class Row(NamedTuple):
    name: str
    mappings: str = ROOT
    place: str = "app"
    site: Callable = no_change     # changes the document root
    package: Callable = no_change
    ignored: tuple = ()
    can_be_closed: bool = True  # when it has been open to the web server


ROWS = [
    Row("one mapping"),
    Row("a place of several elements", place="a/b c/d"),
    Row("the document root itself", place="."),
    Row("handlers", f"<mapping url='/' path='htdocs'>{PHP}{CGI}"
        f"<mapping url='cgi' path='cgi'>{ALL_CGI}</mapping></mapping>"),
    Row("a writable tree with a closed one in it", "<mapping url='/' path='htdocs'>"
        f"<mapping url='d' path='data'>{WRITABLE}<mapping url='closed'/></mapping></mapping>"),
    Row("a writable tree of all", f"<mapping url='/' path='htdocs'>{WRITABLE}{CGI}</mapping>"),
    Row("two mappings of one place", "<mapping url='/' path='htdocs'><mapping url='sub' path='data'/></mapping>"
        f"<mapping url='sub/in' path='cgi'>{WRITABLE}</mapping>", ignored=("shadowed",)),
    Row("a source that is missing", "<mapping url='/' path='htdocs'><mapping url='no'/></mapping>",
        ignored=("missing-source",)),
    Row("links", package=links),
    # A directory of a group that the account is not in loses its set-group-id bit with each change of its mode.
    Row("a site of the server's group", f"<mapping url='/' path='data'>{WRITABLE}</mapping>", site=group_of_the_server,
        can_be_closed=False),
    Row("a site with a default ACL", f"<mapping url='/' path='data'>{WRITABLE}</mapping>", site=default_acl),
]


def seen(root):
    """All of a tree but what no two trees have in common."""
    found = all_facts(root)
    for facts in found.values():
        for name in ("inode", "changed", "modified"):
            del facts[name]
    return found


class SameTreeTest(SiteTest):
    def setUp(self):
        super().setUp()
        self.extracted_root = self.vhosts / "two.example/httpdocs"
        self.packages = {}
        for number, row in enumerate(ROWS):
            package = self.package(f"package-{number}", FILES, mappings=row.mappings, script=None)
            row.package(package)
            self.packages[row.name] = package

    def empty(self, host, row):
        """A host is made anew, as the row wants it."""
        subprocess.run(["rm", "-rf", self.vhosts / host, self.vhosts / "system" / host], check=True)
        row.site(self.host(host, "sitea"))

    def install(self, row, is_opened, options=()):
        self.settings(WEBSERVER_WRITE="yes" if is_opened else "no")
        options = [*options, *(f"--ignore={code}" for code in row.ignored)]
        return self.present(self.packages[row.name], name=row.place, options=options)

    def extract(self, row, is_opened):
        self.empty("two.example", row)
        command = [BUILD / "larkspur", "--extract-application",
                   f"--application-full-name=file:///{self.packages[row.name]}",
                   f"--vhost-path={self.extracted_root.parent}", f"--www-root={self.extracted_root}",
                   f"--application-subdirectory={row.place}", "--user-name=sitea", "--metadata-file", ""]
        if not is_opened:
            command.append("--skip-webserver-write")
        done = subprocess.run(command, check=False, capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stderr)

    def both_are_the_same(self):
        self.assertEqual(differences(seen(self.extracted_root), seen(self.root)), [])

    def each_installed(self, check):
        """Checks each row, whether or not the web server is given what it may write."""
        for row, is_opened in itertools.product(ROWS, (False, True)):
            with self.subTest(row.name, is_opened=is_opened):
                self.empty("one.example", row)
                subprocess.run(["rm", "-rf", self.state], check=True)
                self.changes(self.install(row, is_opened))
                check(row, is_opened)

    def test_both_programs_leave_the_same(self):
        def check(row, is_opened):
            self.extract(row, is_opened)
            self.both_are_the_same()
        self.each_installed(check)

    def test_verify_finds_nothing_different(self):
        self.each_installed(lambda _row, _is_opened: self.assertEqual(self.asked("verify", "one.example"), ""))

    def test_a_repair_finds_nothing_to_mend(self):
        def check(row, is_opened):
            outcome = self.install(row, is_opened, options=["--repair", "--dry-run"])
            self.assertEqual((outcome.status, outcome.output), (10, "script   configure\n"), outcome.error)
        self.each_installed(check)

    def test_a_removal_leaves_nothing(self):
        def check(row, _is_opened):
            self.changes(self.absent(name=row.place))
            self.assertEqual(list(self.root.iterdir()), [])
        self.each_installed(check)

    def test_what_is_taken_from_the_web_server_is_as_if_it_had_never_had_it(self):
        def check(row, is_opened):
            if is_opened and row.can_be_closed:
                self.extract(row, is_opened=False)
                self.changes(self.install(row, is_opened=False))
                self.both_are_the_same()
        self.each_installed(check)


main()
