#!/usr/bin/env python3
"""The layers of src/services, checked from its MODULES list.

modules.py check    every file is listed and there, no include goes upward, only the modules that
                    may do so rename, flush, exit, throw or print, and no line names what it must not
modules.py readme   print src/services/README.md
"""
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]
HOME = TOP / "src" / "services"
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)
COMMENT = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"', re.S)

# What only few may do: [I-n] of ARCHITECTURE.md, a pattern of code, and the files it is allowed in.
FENCES = [
    ("I-2", r"(?<![\w.>])(?:::)?(?:rename|renameat2?|fsync|fdatasync|syncfs)\s*\(",
     {"durable.cpp", "durable.h", "file.cpp", "fileio.cpp"}),
    ("I-3", r"(?<![\w.>:])(?:::|std::)?_?exit\s*\(", {"engine_exit.cpp", "engine_exit.h", "profiler.h"}),
    ("I-4", r"\b(?:throw|catch)\b(?!\s*\(\)\s*;)", {"base/"}),
    ("I-5", r"\bstd::(?:cout|cerr)\b|(?<![\w.>])(?:printf|puts)\s*\(|\bstdout\b",
     {"states.cpp", "base/log.cpp"}),  # a self-test that tells; a log that is asked to
]


def read_list():
    bands, modules, excepts = {}, [], []
    for number, line in enumerate((HOME / "MODULES").read_text().splitlines(), 1):
        if line.startswith("@band"):
            name, uses = line[5:].split("|")
            bands[name.strip()] = set(uses.split())
        elif line.startswith("@except"):
            rule, reason = line[7:].split("|")
            source, header = (part.strip() for part in rule.split("->"))
            excepts.append((source, header, reason.strip()))
        elif line.strip() and not line.startswith("#"):
            parts = [part.strip() for part in line.split("|")]
            if len(parts) != 3:
                sys.exit(f"MODULES:{number}: not 'name | band | purpose'")
            modules.append(tuple(parts))
    return bands, modules, excepts


def files_of(name):
    if re.search(r"\.(h|cpp)$", name):
        return [name] if (HOME / name).exists() else []
    return [name + end for end in (".h", ".cpp") if (HOME / (name + end)).exists()]


def check_list(bands, modules, faults):
    owner = {}
    for name, band, purpose in modules:
        if band not in bands:
            faults.append(f"MODULES: {name}: no band {band}")
        if len(purpose.split()) > 12:
            faults.append(f"MODULES: {name}: the purpose has more than twelve words")
        found = files_of(name)
        if not found:
            faults.append(f"MODULES: {name}: listed, but there is no such file")
        for file in found:
            if file in owner:
                faults.append(f"MODULES: {file} is listed twice")
            owner[file] = band
    for path in sorted(HOME.rglob("*")):
        file = path.relative_to(HOME).as_posix()
        if path.suffix in (".h", ".cpp") and file not in owner:
            faults.append(f"src/services/{file}: not listed in MODULES")
    return owner


def check_includes(bands, owner, excepts, faults):
    """No include goes upward: [I-1]."""
    used = set()
    for file, band in sorted(owner.items()):
        for header in INCLUDE.findall((HOME / file).read_text()):
            if header not in owner:
                faults.append(f"src/services/{file}: includes {header}, which is no listed header")
            elif owner[header] != band and owner[header] not in bands[band]:
                rule = [e for e in excepts if e[0] == file and e[1] == header]
                used.update(rule)
                if not rule:
                    faults.append(f"src/services/{file} ({band}): upward include of {header}"
                                  f" ({owner[header]})")
    for gone in set(excepts) - used:
        faults.append(f"MODULES: exception {gone[0]} -> {gone[1]} is no longer needed")


def check_nodes(owner, faults):
    """Headers of the tree's nodes know cm_package as a name only: [I-6]."""
    for file, band in owner.items():
        if band == "nodes" and file.endswith(".h") and "package.h" in INCLUDE.findall(
                (HOME / file).read_text()):
            faults.append(f"src/services/{file}: a header of the nodes includes package.h [I-6]")


def check_fences(owner, faults):
    for file in sorted(owner):
        text = COMMENT.sub(lambda m: re.sub(r"[^\n]", " ", m.group()), (HOME / file).read_text())
        for rule, pattern, allowed in FENCES:
            if file in allowed or any(a.endswith("/") and file.startswith(a) for a in allowed):
                continue
            for hit in re.finditer(pattern, text):
                line = text.count("\n", 0, hit.start()) + 1
                faults.append(f"src/services/{file}:{line}: '{hit.group().strip()}' is not for"
                              f" this file [{rule}]")


def readme(bands, modules):
    out = ["# src/services", "",
           "Made from `MODULES` by `tests/lint/modules.py readme`; edit the list, not this page.",
           "A band may include itself and the bands it names.", ""]
    for band, uses in bands.items():
        rows = [m for m in modules if m[1] == band and files_of(m[0])]
        if rows:
            below = ", ".join(b for b in bands if b in uses)
            out += [f"## {band}" + (f" (on {below})" if below else ""), "",
                    "| module | purpose |", "|---|---|"]
            out += [f"| `{name}` | {purpose} |" for name, _, purpose in rows] + [""]
    return "\n".join(out)


def main():
    bands, modules, excepts = read_list()
    text = readme(bands, modules)
    if sys.argv[1:] == ["readme"]:
        print(text, end="")
        return 0
    faults = []
    owner = check_list(bands, modules, faults)
    check_includes(bands, owner, excepts, faults)
    check_nodes(owner, faults)
    check_fences(owner, faults)
    page = HOME / "README.md"
    if not page.exists() or page.read_text() != text:
        faults.append("src/services/README.md is not what MODULES says: run modules.py readme")
    for fault in faults:
        print(fault)
    print(f"{len(owner)} files of {len(modules)} modules in {len(bands)} bands,"
          f" {len(faults)} fault(s)")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
