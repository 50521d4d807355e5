#!/usr/bin/env python3
"""page_examples.py KMCTL: the examples of the pages, carried out.

The first chapter of the user guide is run as it stands. Members of JSON objects are all told in
docs/JSON.md. Every stanza of the definitions has an example, and each builds. Bytes and lines that format pages show are those that a run writes.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import zipfile

TOP = pathlib.Path(__file__).resolve().parents[2]
DOCS = TOP / "docs"


def shell(line, where):
    run = subprocess.run(["bash", "-c", line], cwd=where, stdin=subprocess.DEVNULL, timeout=120,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return run.stdout


def wrap(program, where):
    """A kmctl that leaves the machine's own state alone, where a line does not say another one."""
    script = where / "bin" / "kmctl"
    script.parent.mkdir()
    script.write_text(f"""#!/bin/sh
case " $* " in
    *" --root "* | *" --state "*) exec {program} "$@" ;;
esac
exec {program} --state {where}/own "$@"
""")
    script.chmod(0o755)
    return script.parent


def check_guide(where, faults):
    chapter = (DOCS / "USER_GUIDE.md").read_text().partition("## The first package")[2]
    block = "\n".join(re.findall(r"^    (.*)$", chapter.partition("\n## ")[0], re.M))
    commands = re.findall(r"^\$ (.*)\n((?:(?!\$ ).*(?:\n|\Z))*)", block + "\n", re.M)
    for line, told in commands:
        pattern = re.escape(told.strip()).replace(r"\.\.\.", r"[\s\S]*")
        said = shell(line, where).strip()
        if not re.fullmatch(pattern, said):
            faults.append(f"USER_GUIDE.md: $ {line}\n  told: {told.strip()}\n  says: {said}")
    if len(commands) < 8:
        faults.append("USER_GUIDE.md: the first chapter has lost its commands")


def members(value):
    if isinstance(value, dict):
        for key, inner in value.items():
            yield key
            yield from members(inner)
    elif isinstance(value, list):
        for inner in value:
            yield from members(inner)


def check_json(where, faults):
    told = set(re.findall(r"`(\w+)`", (DOCS / "JSON.md").read_text()))
    build = "build tree --name j --version 1 --to /opt/j --shared 'bin/*' -o j.spb"
    newer = build.replace("version 1", "version 2").replace("j.spb", "k.spb")
    for line in (build, newer, "init tree -o j.spd", "lint j.spd", "show j.spb", "show j.spb --tree",
                 "show j.spb --files", "install j.spb -n", "install j.spb", "install j.spb",
                 "show j --variables", "list", "status j", "log j",
                 "config list", "variables", "check", "remove j -n", "preview j.spb", "explain j.spb",
                 "verify j", "repair j", "history j", "who-uses /opt/j/bin/hello", "resume",
                 "delta j.spb k.spb -o d.spb", "upgrade k.spb -n", "upgrade k.spb", "undo j -n",
                 "undo j", "upgrade d.spb", "verify --all", "accept j", "remove j",
                 "install j.spb --transactional", "commit j -n", "rollback j", "status j",
                 "config set report_notice yes", "config set report_db /nowhere", "verify --all",
                 "report list", "report deliver", "notices", "notices --clear",
                 "report remove --all", "frob"):
        if line == "verify j":
            shell("rm image/opt/j/bin/hello", where)
        said = shell(f"kmctl --state st --root image --json {line} 2>/dev/null", where)
        for key in sorted(set(members(json.loads(said))) - told):
            faults.append(f"JSON.md: {line}: the member {key} is not told")


def check_definitions(where, faults):
    page = (DOCS / "DEFINITIONS.md").read_text()
    examples = [re.sub("^    ", "", block, flags=re.M).lstrip("\n") for block in
                re.findall(r"^((?:    .*\n|\n(?=    ))+)", page, re.M)]
    examples = [text for text in examples if re.match(r"kmspd|(#.*\n)*\w+ \{", text)]
    rules = (TOP / "src/import/rules.spr").read_text()
    told = set(re.findall(r"^ *(\w+) \{", "\n".join(examples), re.M))
    for name in re.findall(r"^(\w+) \{\n +context =", rules, re.M):
        if name not in told:
            faults.append(f"DEFINITIONS.md: {name} has no example")
    top = where / "definitions"
    top.mkdir()
    for text in examples:
        for name in re.findall(r"source = (\S+)", text):
            (top / name).parent.mkdir(parents=True, exist_ok=True)
            (top / name).touch()
        if not text.startswith(("kmspd", "package")):
            text = "package { name = p version = 1\n" + text + "}"
        (top / "one.spd").write_text(text if text.startswith("kmspd") else "kmspd 1.0\n" + text)
        said = shell("kmctl build definitions/one.spd -o one.spb", where)
        if "error" in said or not (where / "one.spb").exists():
            faults.append(f"DEFINITIONS.md: {text}: {said}")
        (where / "one.spb").unlink(missing_ok=True)


def dump_of(page, offset=None):
    """The bytes of the hexdump lines of a page, from the line of `offset` on."""
    rows = re.findall(r"^    ([0-9a-f]{8})  ((?:[0-9a-f]{2}  ?){1,16})", page.read_text(), re.M)
    at = next(i for i, row in enumerate(rows) if offset is None or int(row[0], 16) == offset)
    return bytes.fromhex("".join(row[1] for row in rows[at:]))


def check_intent(where, same):
    """What a killed install leaves, and what resume makes of it."""
    line = "kmctl --root image --state cut install hello.spb -D prefix=/srv --undoable"
    text = (DOCS / "formats/intent.md").read_text()
    told = json.loads(re.search(r"^    (\{.*\})$", text, re.M).group(1))
    shell(f"KM_KILL_AT=intent.after_write {line}", where)
    file = where / "cut/work/intent/hello^1.0"
    if not file.exists():
        print("intent.md: this kmctl has no kill points; the example was not compared")
        return
    found = json.loads(file.read_text())
    same("intent.md: file", f"{where}/hello.spb", found["file"])
    same("intent.md: run", len(told["run"]), len(found["run"]))
    found.update(file=told["file"], since=told["since"], run=told["run"])
    same("intent.md", told, found)


def check_upgrade(where, same):
    text = (DOCS / "formats/upgrade-record.md").read_text()
    told = "\n".join(re.findall(r"^    (.*)$", text, re.M)) + "\n"
    build = ("kmctl build tree --name hello --to '$(prefix)/hello' --set prefix=/opt"
             " --shared 'etc/*' --version")
    kmctl = "kmctl --root other --state up"
    shell(f"mkdir other; {build} 1.0 -o u1.spb; {kmctl} install u1.spb -D prefix=/srv;"
          "echo greeting=mine > other/srv/hello/etc/hello.conf;"
          f"echo greeting=ho > tree/etc/hello.conf; {build} 1.1 -o u2.spb;"
          f"echo greeting=hi > tree/etc/hello.conf; {kmctl} upgrade u2.spb -D prefix=/srv", where)
    record = where / "up/work/upgrade/hello^1.1"
    same("upgrade-record.md", told, (record / "record.json").read_text())
    same("upgrade-record.md: files", sorted(re.findall(r"`(0\.\w+|record\.json)`", text.partition("## Worked")[2])),
         sorted(file.name for file in record.iterdir()))
    left = re.findall(r"^    ((?:[0-9a-f]{2} )+) +/", (DOCS / "formats/made-directories.md").read_text(), re.M)
    same("made-directories.md: left", bytes.fromhex("".join(left)),
         (where / "up/work/made/left").read_bytes())


def check_formats(where, faults):
    def same(name, told, found):
        if told != found:
            faults.append(f"{name}: told {told!r}, found {found!r}")

    state = where / "s"
    shell(f"kmctl --state {state} config get product_dir", where)
    text = (DOCS / "formats/settings.md").read_text().partition("## Worked example")[2]
    told = re.search(r"((?:^    [\[a-z].*\n)+)\n    0000", text, re.M).group(1)
    told = "".join(line[4:] + "\n" for line in told.splitlines())
    told = told.replace("=/tmp/s", f"={state}").replace("=tmp/s", f"={str(state)[1:]}")
    same("settings.md", told, (state / "znpis.ini").read_text())

    shell("kmctl --state st --root image install hello.spb -D prefix=/srv", where)
    work = where / "st/work"
    for page, file in (("made-directories.md", "made"), ("path-lists.md", "paths")):
        same(page, dump_of(DOCS / "formats" / page), (work / file / "hello^1.0").read_bytes())
    check_intent(where, same)
    check_upgrade(where, same)
    head = dump_of(DOCS / "formats/package-log.md")[:0x77]
    log = (where / "st/log/hello^1.0.log").read_bytes()
    same("package-log.md", head.replace(b'greet^1"', b'hello^1.0"'), log[:len(head) + 2])

    shell("touch -h -d '2024-02-29 12:30:58 UTC' tree/*/*; chmod 755 tree/bin/hello;"
          "kmctl build tree --name mini --version 1 --to /opt/mini --stored -o mini.spb", where)
    with zipfile.ZipFile(where / "mini.spb") as archive:
        names, tree = archive.namelist(), archive.read("SoftwarePackage")
    same("package-file.md", ["SoftwarePackage", "d/00000001", "d/00000002"], names)
    file = (where / "mini.spb").read_bytes()
    start = file.index(b"PK\x03\x04", 4)
    same("package-file.md", dump_of(DOCS / "formats/package-file.md")[:64], file[start:start + 64])
    path = b"/opt/mini/bin/hello"
    told = bytes.fromhex("00c904000001ed")
    same("package-file.md", told, tree[tree.index(path) + len(path):][:len(told)])
    for offset, short in re.findall(r"^\| ([0-9A-F]+) \| `([0-9A-F]{2} [0-9A-F]{2})`",
                                    (DOCS / "formats/package-file.md").read_text(), re.M):
        at = int(offset, 16)
        same(f"package-file.md: {offset}", bytes.fromhex(short), tree[at:at + 2])


def main():
    program = pathlib.Path(sys.argv[1]).resolve()
    os.umask(0o022)
    faults = []
    with tempfile.TemporaryDirectory() as name:
        where = pathlib.Path(name)
        path = f"{wrap(program, where)}:{os.environ['PATH']}"
        os.environ.update(PATH=path, LC_ALL="C.UTF-8", TZ="UTC")
        check_guide(where, faults)
        check_json(where, faults)
        check_definitions(where, faults)
        check_formats(where, faults)
    for fault in faults:
        print(fault)
    print(f"{len(faults)} fault(s)")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
