#!/usr/bin/env python3
"""ARCHITECTURE.md, held against the tree: its length, its numbered invariants with the tests and
lints that they cite, and the files that it names."""
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGE = TOP / "ARCHITECTURE.md"
MOST_LINES = 200


def known_tests():
    found = set()
    for path in (TOP / "tests").rglob("*_test.cpp"):
        found.update(".".join(pair) for pair in
                     re.findall(r"^TEST(?:_[FP])?\(\s*(\w+),\s*(\w+)\)", path.read_text(), re.M))
    return found


def check_citations(number, text, tests, faults):
    cited = re.search(r"\(([^()]*)\)\s*$", text)
    if not cited:
        faults.append(f"[I-{number}]: no test and no lint is cited")
        return
    for one in re.split(r",\s+", cited.group(1)):
        if one.startswith("tests/"):
            if not (TOP / one).is_file() or f"I-{number}" not in (TOP / one).read_text():
                faults.append(f"[I-{number}]: {one} does not check it")
        elif one not in tests:
            faults.append(f"[I-{number}]: there is no test {one}")


def check_files(page, faults):
    for name in re.findall(r"`((?:src|tests|docs)/[\w./-]+)`", page):
        if not (TOP / name).exists():
            faults.append(f"{name} is not there")
    for name in re.findall(r"`(\w+\.(?:cpp|h))`", page):
        if not any((TOP / "src").rglob(name)):
            faults.append(f"{name} is not there")
    table = page.partition("## The road")[2].partition("## ")[0]
    for cell in re.findall(r"^\|[^|]*\|([^|]*)\|$", table, re.M):
        for name in re.findall(r"`(\w+)`", cell):
            if not any((TOP / "src" / part / f"{name}.cpp").is_file()
                       for part in ("services", "objects", "host")):
                faults.append(f"the road of one install: there is no module {name}")


def main():
    page = PAGE.read_text()
    faults = []
    if len(page.splitlines()) > MOST_LINES:
        faults.append(f"more than {MOST_LINES} lines")
    part = page.partition("## Invariants")[2].partition("\n## ")[0].partition("\n\n`")[0]
    invariants = re.findall(r"^- \[I-(\d+)\] (.*?)(?=^- \[I-|\Z)", part, re.M | re.S)
    if [int(number) for number, _ in invariants] != list(range(1, len(invariants) + 1)):
        faults.append("the invariants are not numbered one by one")
    tests = known_tests()
    for number, text in invariants:
        check_citations(number, " ".join(text.split()), tests, faults)
    check_files(page, faults)
    for fault in faults:
        print(f"ARCHITECTURE.md: {fault}")
    print(f"{len(invariants)} invariants, {len(faults)} fault(s)")
    return 1 if faults or not invariants else 0


if __name__ == "__main__":
    sys.exit(main())
