#!/usr/bin/env python3
"""command_pages.py KMCTL: what kmctl --help and its sources say, and what its pages say, are one: [I-20].

docs/man/kmctl.1 has every command with its arguments and options, every exit code, and nothing else;
docs/JSON.md has a section per command, every word that messages carry, and nothing else.
"""
import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
MAN = TOP / "docs" / "man" / "kmctl.1"
JSON = TOP / "docs" / "JSON.md"
HEADER = TOP / "src" / "host" / "outcome.h"
INSPECT = TOP / "src" / "host" / "inspect.h"


def help_of(program, path):
    run = subprocess.run([program, *path, "--help"], capture_output=True, text=True, timeout=60)
    if run.returncode != 0:
        sys.exit(f"kmctl {' '.join(path)} --help: exit {run.returncode}\n{run.stderr}")
    return run.stdout


def read_help(program, path=()):
    """{command path: (arguments, options)}, with all commands below."""
    text = help_of(program, path)
    usage = re.search(r"^Usage: kmctl (.*)$", text, re.M).group(1).split()
    arguments = [word for word in usage[len(path):] if word not in ("[OPTIONS]", "SUBCOMMAND")]
    options = {name for line in re.findall(r"^  (-\S+)", text, re.M) for name in line.split(",")}
    found = {path: (arguments, options)}
    below = text.partition("Subcommands:")[2]
    for name in re.findall(r"^  ([a-z][\w-]*)", below, re.M):
        found.update(read_help(program, (*path, name)))
    return found


def plain(line):
    line = re.sub(r"\\f[BIRP]", "", line)
    return line.replace("\\-", "-").replace('"', "").replace("\\e", "\\")


def read_man():
    """The same from the page, and the exit codes."""
    found, codes = {}, set()
    section, path, tag = "", None, False
    for line in MAN.read_text().splitlines():
        if line.startswith(".SH "):
            section, path = line[4:].strip('"'), () if line == ".SH OPTIONS" else None
            if path == ():
                found[()] = ([], set())
        elif line.startswith(".SS "):
            words = plain(line[4:]).split()
            path = tuple(word for word in words if word.islower())
            found[path] = ([word for word in words if not word.islower()], set())
        elif tag and section == "EXIT STATUS":
            codes.add(int(plain(line).split()[1]))
        elif tag and path is not None:
            found[path][1].update(name for name in re.split(r"[ ,]+", plain(line))
                                  if name.startswith("-"))
        tag = line == ".TP"
    return found, codes


def compare(what, there, here, faults):
    for one in sorted(there - here, key=str):
        faults.append(f"{what}: {one} is not on the page")
    for one in sorted(here - there, key=str):
        faults.append(f"{what}: {one} is on the page alone")


def check_man(commands, faults):
    pages, codes = read_man()
    compare("kmctl.1", {" ".join(p) for p in commands}, {" ".join(p) for p in pages}, faults)
    for path in commands.keys() & pages.keys():
        name = " ".join(("kmctl", *path))
        arguments, options = commands[path]
        if arguments != pages[path][0]:
            faults.append(f"kmctl.1: {name}: arguments {arguments}, on the page {pages[path][0]}")
        # --help of a command stands once on the page, in OPTIONS.
        common = {"-h", "--help"} if path else set()
        compare(f"kmctl.1: {name}", options - common, pages[path][1], faults)
    body = re.search(r"enum exit_code : int \{(.*?)\};", HEADER.read_text(), re.S).group(1)
    further = re.findall(r"constexpr int exit_\w+ = (\d+);", INSPECT.read_text())
    numbers = set(map(int, re.findall(r"= (\d+)", body) + further))
    compare("kmctl.1: EXIT STATUS", numbers, codes, faults)


def check_json(commands, faults):
    text = JSON.read_text()
    sections = set(re.findall(r"^## ([a-z-]+)$", text, re.M))
    compare("JSON.md", {p[0] for p in commands if len(p) == 1}, sections, faults)
    words = set()
    for path in [*(TOP / "src/host").glob("*.cpp"), *(TOP / "src/kmctl").glob("*.cpp")]:
        words.update(re.findall(r'\b(?:fail|info|warn)\([^";]*"([a-z_]+)"', path.read_text()))
    listed = re.search(r"^The words: (.*?)\.$", text, re.M | re.S).group(1)
    compare("JSON.md: words of messages", words, set(re.findall(r"`([a-z_]+)`", listed)), faults)


def main():
    commands = read_help(sys.argv[1])
    faults = []
    check_man(commands, faults)
    check_json(commands, faults)
    for fault in faults:
        print(fault)
    print(f"{len(commands)} commands, {sum(len(o) for _, o in commands.values())} options,"
          f" {len(faults)} fault(s)")
    return 1 if faults or len(commands) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
