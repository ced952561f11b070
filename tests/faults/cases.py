"""The cases that faults are tried on: a package, a virtual host, and each command with its words."""

import shutil
import subprocess
from dataclasses import dataclass
from pathlib import Path

from testing import SANDBOX, application
from trees import tree

VHOSTS = SANDBOX / "vhosts"
HOST = VHOSTS / "fault.example"
DOCROOT = HOST / "httpdocs"
APPLICATION = DOCROOT / "app"
OWN_FILE = APPLICATION / "index.php"  # of the site, under the name of one that an installation brings
SYSTEM = VHOSTS / "system/fault.example"
FRAGMENTS = SYSTEM / "conf/siteapp.d"
FRAGMENT = FRAGMENTS / "app.conf"
PACKAGE = SANDBOX / "package"
REMOVAL_LIST = SANDBOX / "list.xml"
TEMPLATE = SANDBOX / "template"  # of VHOSTS, for every run of a case to begin with

ACCOUNT = "sitea"
ACCOUNT_ID = 20001

METADATA = application("""\
  <name>n</name><version>1</version><release>1</release>
  <mapping url="/" path="htdocs">
    <php:handler><php:extension>php</php:extension></php:handler>
    <mapping url="data"><php:permissions writable="true"/></mapping>
    <mapping url="cgi"><cgi:handler><cgi:all-files/></cgi:handler></mapping>
    <mapping url="old" virtual="redirect" href="http://x/"/>
  </mapping>
""", attributes="version='1.1'")
DOCUMENTS = ["index.php", "img/logo.png", "data/entries", "cgi/run"]


@dataclass(frozen=True)
class Case:
    name: str
    words: list[str]  # behind the program's name
    area: Path | None = None  # where the command may change something
    input: Path = Path("/dev/null")
    installed: bool = False  # the site has the application's files


PACKAGE_OPTIONS = [f"--application-full-name=file:///{PACKAGE}", f"--user-name={ACCOUNT}"]
HOST_OPTIONS = [f"--vhost-path={HOST}", f"--www-root={DOCROOT}"]
FRAGMENT_OPTION = f"--config-file-name={FRAGMENT.name}"
SCRIPT_OPTIONS = ["--script-name=install", "--script-file-name=act", "--script-language=perl"]
PLACE_OPTIONS = [*HOST_OPTIONS, "--application-subdirectory=app"]

CASES = [
    Case("extract", ["--extract-application", *PACKAGE_OPTIONS, *PLACE_OPTIONS, "--metadata-file", ""], area=DOCROOT),
    Case("delete", ["--delete-application", *PLACE_OPTIONS, f"--user-name={ACCOUNT}"],
         area=DOCROOT, input=REMOVAL_LIST, installed=True),
    Case("install-conf",
         ["--install-apache-conf", *PLACE_OPTIONS, f"--metadata-file={PACKAGE}/APP-META.xml", FRAGMENT_OPTION],
         area=FRAGMENTS),
    Case("remove-conf", ["--remove-apache-conf", *HOST_OPTIONS, FRAGMENT_OPTION], area=FRAGMENTS),
    Case("run-script", ["--run-application-script", *PACKAGE_OPTIONS, *SCRIPT_OPTIONS]),
]


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def make_package():
    write(PACKAGE / "APP-META.xml", METADATA)
    write(PACKAGE / "scripts/act", r'print "ran as $<\n";')
    numbers = "".join(f"{number}\n" for number in range(500))
    for name in DOCUMENTS:
        write(PACKAGE / "htdocs" / name, numbers)
    names = [path.relative_to(PACKAGE / "htdocs") for path in (PACKAGE / "htdocs").rglob("*")]
    files = "".join(f"<FILE>{name}</FILE>" for name in names)
    write(REMOVAL_LIST, f'<INSTANCE-DATA><SECTION PREFIX="htdocs">{files}</SECTION></INSTANCE-DATA>')


def make_template(case):
    for earlier in [TEMPLATE, HOST, SYSTEM]:
        shutil.rmtree(earlier, ignore_errors=True)
    if case.installed:
        shutil.copytree(PACKAGE / "htdocs", APPLICATION)
    for path in [DOCROOT / "own/page", OWN_FILE, HOST / "private/kept", FRAGMENT]:
        write(path, "own\n")
    subprocess.run(["chown", "-R", f"{ACCOUNT}:kroserv", HOST], check=True)
    subprocess.run(["cp", "-a", VHOSTS, TEMPLATE], check=True)


def make_site():
    """Brings back what make_template has made."""
    shutil.rmtree(VHOSTS)
    subprocess.run(["cp", "-a", TEMPLATE, VHOSTS], check=True)


def snapshot():
    """All that is below VHOSTS, by path."""
    return {VHOSTS / path: entry for path, entry in tree(VHOSTS).items()}


def differences(before, after):
    return sorted(path for path in before.keys() | after.keys() if before.get(path) != after.get(path))
