"""Packages, trees and lists to measure with."""

import random
import subprocess
from pathlib import Path

import debian_trees
from programs import ACCOUNT

NAMESPACE = "http://nimbo.example/ns/wtx/1"
WHOLE = '<mapping url="/" path="htdocs"/>'
WHOLE_WRITABLE = '<mapping url="/" path="htdocs"><php:permissions writable="true"/></mapping>'
KIBIBYTE = b"<?php // " + b"x" * 1014 + b"\n"


def write_metadata(file, mappings, version="1"):
    namespaces = f'xmlns="{NAMESPACE}" xmlns:php="{NAMESPACE}/php"'
    body = f"<name>bench</name><version>{version}</version><release>1</release>" + "\n".join(mappings)
    file.write_text(f'<application version="1.1" {namespaces}>{body}</application>\n')


def make_package(package, mappings, fill):
    """`fill` is called for the directory that the mappings are about."""
    package.mkdir()
    fill(package / "htdocs")
    write_metadata(package / "APP-META.xml", mappings)


def make_debian_package(package, name, mappings=(WHOLE,)):
    make_package(package, mappings, lambda htdocs: debian_trees.copy(name, htdocs))


def make_tree(root, files, per_directory):
    """Twenty directories to a group however many files there are, names about as long as those of real applications."""
    for number in range(files):
        directory = number // per_directory
        parent = f"{root}/extension-{directory // 20:03}/components-{directory % 20:02}"
        if number % per_directory == 0:
            Path(parent).mkdir(parents=True)
        write(f"{parent}/document-{number % per_directory:03}.php")


def make_levels(root, levels, files):
    """So many files in each of LEVELS directories, one inside the other."""
    directory = str(root)
    for _ in range(levels):
        Path(directory).mkdir()
        for number in range(files):
            write(f"{directory}/file-{number}")
        directory += "/l"


def write(path):
    with open(path, "wb", buffering=0) as file:
        file.write(KIBIBYTE)


def give_to_account(tree):
    subprocess.run(["chown", "-R", f"{ACCOUNT}:kroserv", tree], check=True)


def write_removal_list(tree, file):
    """The entries of a tree, in no useful order."""
    entries = sorted(str(path.relative_to(tree)) for path in tree.rglob("*"))
    random.Random(len(entries)).shuffle(entries)
    with open(file, "w") as document:
        document.write('<INSTANCE-DATA><SECTION PREFIX="htdocs">\n')
        document.writelines(f"<FILE>{entry}</FILE>\n" for entry in entries)
        document.write("</SECTION></INSTANCE-DATA>\n")
    return len(entries)
