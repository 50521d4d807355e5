#!/usr/bin/env python3
"""The pages of docs, held against the sources and each other: [I-20].

Every page that a source names is there; every page of docs/formats is named by a source and shows an
example; every page that another page names is there.
"""
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGES = TOP / "docs" / "formats"
NAMED = re.compile(r"\bdocs/[\w./-]+\.(?:md|\d)\b")
LINKED = re.compile(r"`([\w./-]+\.md)`|\]\(([\w./-]+\.md)\)")


def check_sources(faults):
    named = set()
    for path in sorted((TOP / "src").rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        for number, line in enumerate(path.read_text().splitlines(), 1):
            for page in NAMED.findall(line):
                named.add(page)
                if not (TOP / page).is_file():
                    faults.append(f"{path.relative_to(TOP)}:{number}: {page} is not there")
    return named


def check_pages(named, faults):
    for path in sorted(PAGES.glob("*.md")):
        name = path.relative_to(TOP).as_posix()
        text = path.read_text()
        if name not in named:
            faults.append(f"{name}: no source names it")
        if not text.startswith("# ") or not re.search(r"^ {4}\S|^\| `", text, re.M):
            faults.append(f"{name}: a title or an example is missing")


def check_links(faults):
    pages = [*(TOP / "docs").rglob("*.md"), TOP / "README.md", TOP / "ARCHITECTURE.md"]
    for path in sorted(pages):
        for hit in LINKED.finditer(path.read_text()):
            target = hit.group(1) or hit.group(2)
            if not any((base / target).is_file() for base in (path.parent, TOP, PAGES)):
                faults.append(f"{path.relative_to(TOP)}: {target} is not there")


def main():
    faults = []
    named = check_sources(faults)
    check_pages(named, faults)
    check_links(faults)
    for fault in faults:
        print(fault)
    print(f"{len(named)} pages named by sources, {len(faults)} fault(s)")
    return 1 if faults or not named else 0


if __name__ == "__main__":
    sys.exit(main())
