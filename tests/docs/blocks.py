"""The blocks of a document that say something to do: fenced ones of Markdown, examples of a manual page."""

import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Block:
    line: int  # where it begins in the document
    language: str
    text: str
    file: str | None = None  # that the block is written into
    mode: int | None = None  # of that file, as the paragraph before the block tells it


class UnnamedFile(Exception):
    """A block is for a file that the paragraph before it does not name, or whose mode it does not tell."""


def blocks_of(path):
    lines = path.read_text().splitlines()
    if path.suffix == ".md":
        return list(fenced_blocks(lines))
    return list(manual_page_examples(lines))


def fenced_blocks(lines):
    """From "```LANGUAGE" or "```LANGUAGE FILE" to "```"."""
    paragraph = []
    paragraph_ended = False
    opened_at = None
    for number, line in enumerate(lines, 1):
        if opened_at is not None:
            if line == "```":
                yield fenced_block(lines, opened_at, number, " ".join(paragraph))
                opened_at = None
                paragraph = []
        elif line.startswith("```"):
            opened_at = number
        elif line == "":
            paragraph_ended = True
        else:
            if paragraph_ended:
                paragraph = []
            paragraph.append(line)
            paragraph_ended = False


def fenced_block(lines, opened_at, closed_at, paragraph):
    language, _, file = lines[opened_at - 1].removeprefix("```").partition(" ")
    text = "".join(f"{line}\n" for line in lines[opened_at : closed_at - 1])
    if file == "":
        return Block(opened_at, language, text)
    mode = re.search(r"mode (0[0-7]+)", paragraph)
    if f"`{file}`" not in paragraph or mode is None:
        raise UnnamedFile(f"{opened_at}: the paragraph before the block does not name {file} and its mode")
    return Block(opened_at, language, text, file, int(mode.group(1), base=8))


def manual_page_examples(lines):
    """Every ".Bd" to ".Ed" of the section EXAMPLES, for the shell."""
    in_examples = False
    opened_at = None
    for number, line in enumerate(lines, 1):
        if line.startswith(".Sh "):
            in_examples = line == ".Sh EXAMPLES"
        elif in_examples and line.startswith(".Bd"):
            opened_at = number
        elif opened_at is not None and line == ".Ed":
            backslash = r"\e"
            shown = [example.replace(backslash, "\\") for example in lines[opened_at : number - 1]]
            yield Block(opened_at, "sh", "".join(f"{example}\n" for example in shown))
            opened_at = None
