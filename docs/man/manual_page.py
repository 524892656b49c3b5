#!/usr/bin/env python3
"""Writes a manual page of a file beside this one and of the documents that it includes. Tools run: pandoc.

    docs/man/manual_page.py kesto.1 build/release/man/man1/kesto.1.gz --kesto PROGRAM --version VERSION --date DATE

A line "@include FILE@" stands for a document of docs/, without its title and a level up; "@chapters FILE@" for its title and
its chapters, without what stands between them; "@help@" for what the program says to --help, of itself and of each of its commands.
"""
import argparse
import gzip
import pathlib
import re
import subprocess

SECTIONS = {"1": "User Commands", "5": "File Formats", "8": "System Administration"}
DOCS = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r"^@(include|chapters) (\S+)@$|^@(help)@$")


def chapters(name):
    """The lines of the document's title and of its chapters."""
    lines = (DOCS / name).read_text(encoding="utf-8").splitlines()
    return [lines[0], "", *lines[next(number for number, line in enumerate(lines) if line.startswith("## ")):]]


def included(name):
    """The lines of the document below its title, with its headings a level up."""
    lines = (DOCS / name).read_text(encoding="utf-8").splitlines()
    shown, fenced = [], False
    for line in lines[1:]:
        fenced ^= line.startswith("```")
        shown.append(line[1:] if line.startswith("##") and not fenced else line)
    return shown


def plain(text):
    """Text as markdown that means just that text."""
    return re.sub(r"([\\`*_{}\[\]<>#|$~^'\"@-])", r"\\\1", text)


def command_help(program, words):
    return subprocess.run([program, *words, "--help"], check=True, stdout=subprocess.PIPE, text=True).stdout


def options_list(lines):
    """Lines of options, "  --name VALUE   what it does" with its lines of continuation, as a definition list."""
    items = []
    for line in lines:
        if re.match(r"  \S", line):
            name, _, description = line.strip().partition("  ") if "  " in line.strip() else line.strip().rpartition("> ")
            if not name:  # a name as long as the column: one blank behind the value
                name, description = re.match(r"((?:-\w, )?--\S+ \S+) (.*)", line.strip()).groups()
            items.append([name, description.strip()])
        else:
            items[-1][1] += " " + line.strip()
    shown = []
    for name, description in items:
        shown += [f"**{plain(name)}**", f":   {plain(description)}", ""]
    return shown


def command_chapter(program, words):
    """What `PROGRAM WORDS --help` says: usage, purpose and text, groups of options."""
    usage, text, *groups = command_help(program, words).rstrip("\n").split("\n\n")
    shown = [f"## {plain(' '.join(words))}", "", f"**{plain(usage.removeprefix('usage: '))}**", "", plain(text), ""]
    for group in groups:
        title, *lines = group.splitlines()
        shown += [plain(title), "", *options_list(lines)]
    return shown


def help_chapters(program):
    """The chapters of `PROGRAM --help`, with each command's own help under COMMANDS."""
    shown = []
    for chapter in re.split(r"\n\n(?=[A-Z ]+\n)", command_help(program, []).rstrip("\n")):
        title, *lines = chapter.splitlines()
        if title == "EXIT STATUS":  # a chapter of the document
            continue
        shown += [f"# {title}", ""]
        if title == "COMMANDS":
            for line in lines:
                if command := re.match(r"  ([a-z]+(?: [a-z]+)*)  +[A-Z]", line):
                    shown += command_chapter(program, command[1].split())
        elif title == "NAME":
            shown += [plain(" ".join(lines).strip()).replace(r"\-", "-"), ""]
        else:
            shown += [f"| {plain(line.strip())}" for line in lines] + [""]
    return shown


def markdown(page, kesto):
    """The page with all that it includes."""
    shown = []
    for line in (DOCS / "man" / f"{page}.md").read_text(encoding="utf-8").splitlines():
        mark = INCLUDE.match(line)
        if not mark:
            shown.append(line)
        elif mark[3]:
            shown += help_chapters(kesto)
        else:
            shown += chapters(mark[2]) if mark[1] == "chapters" else included(mark[2])
    return "\n".join(shown) + "\n"


def main():
    """Writes the page, compressed; fails when an included document or a program is missing."""
    parser = argparse.ArgumentParser(description="Writes a manual page.")
    parser.add_argument("page", help="NAME.SECTION")
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("--kesto", help="the program whose help is meant")
    parser.add_argument("--version", required=True, help="of the product, for the foot of the page")
    parser.add_argument("--date", required=True)
    options = parser.parse_args()
    name, section = options.page.rsplit(".", 1)
    facts = {"title": name, "section": section, "header": SECTIONS[section], "date": options.date,
             "footer": f"recovery-loader {options.version}"}
    command = ["pandoc", "-f", "markdown-smart", "-s", "-t", "man", "-L", DOCS / "man" / "manual.lua"]
    page = subprocess.run([*command, *(f"-M{key}={value}" for key, value in facts.items())], check=True,
                          input=markdown(options.page, options.kesto), stdout=subprocess.PIPE, encoding="utf-8").stdout
    # Not every reader of manuals knows this font of code blocks.
    page = page.replace("\n\\f[C]\n", "\n")
    # A heading begins a paragraph by itself.
    page = re.sub(r"^(\.S[HS] .*\n)\.PP\n", r"\1", page, flags=re.MULTILINE)
    options.output.parent.mkdir(parents=True, exist_ok=True)
    options.output.write_bytes(gzip.compress(page.encode(), 9, mtime=0))


if __name__ == "__main__":
    main()
