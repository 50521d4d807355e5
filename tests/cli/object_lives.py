"""Every kind of object of a definition through every life of a package: a table of kinds, a table of
lives, and after every step a look at the tree, byte for byte."""
import collections
import os
import shutil

import support
from support import KmctlCase, bytes_of, differences, picture

# first, second: the blocks of two versions; paths are below $(r), a directory of the kind's own, and
# SHARED stands where a kind can be shared. Trees of that directory: what stands there before, behind
# an install, and behind a removal.
Kind = collections.namedtuple("Kind", "first second before there after")


def kind(first, there, before=None, second=None, after=None):
    before = before or {}
    return Kind(first, first if second is None else second, before, there,
                before if after is None else after)


LINES = "a 1\nb\na 2\nc\n"


def line(position, there):
    more = "" if position in ("first", "last") else 'pattern = "a*"'
    block = "add_line { path = $(r)/t text = new position = %s %s SHARED }" % (position, more)
    return kind(block, {"t": there}, {"t": LINES}, block.replace("new", "newer"))


def token(position, there):
    more = "" if position in ("first", "last") else 'reference = "a*"'
    block = "add_token { path = $(r)/t name = P token = n position = %s %s SHARED }" % (position, more)
    words = "x=1\n P = \"%s\" # it\nlast"
    return kind(block, {"t": words % there}, {"t": words % "a1:b:a2"}, block.replace("= n", "= nn"))


def ini(more, there, before=None, second=None):
    block = "add_ini_item { path = $(r)/t key = k value = v %s SHARED }" % more
    return kind(block, {"t": there}, before, second or block.replace("= v", "= w"))


PROGRAM = """user_program { caption = it environment = "WHAT='a b'" working_directory = $(r)
    exit_codes = "0:success, 3-5:warning" install_timeout = 20
    install_path = /bin/sh install_arguments = '-c "echo it ran; echo $WHAT > $1; exit 4" sh $(r)/f'
    remove_path = /bin/sh remove_arguments = '-c "rm -f f"'
    undo_path = /bin/rm undo_arguments = "-f $(r)/f"
    verify_path = /usr/bin/test verify_arguments = "-f $(r)/f" %s }"""
COMMIT = "commit_path = /bin/sh commit_arguments = '-c \"echo $WHAT > f\"'"

KINDS = {
    "directory": kind("add_directory { path = $(r)/d/e mode = 0750 SHARED }", {"d/e/": None},
                      second="add_directory { path = $(r)/d/e mode = 0700 SHARED }"),
    "file": kind("add_file { path = $(r)/d/f source = one mode = 0640 SHARED }", {"d/f": "1\n"},
                 second="add_file { path = $(r)/d/f source = two mode = 0600 SHARED }"),
    "file over another": kind("add_file { path = $(r)/f source = one SHARED }", {"f": "1\n"},
                              {"f": "before\n"}, after={}),
    "file that replaces nothing": kind(
        "add_file { path = $(r)/f source = one replace_if_existing = n }", {"f": "before\n"},
        {"f": "before\n"}),
    "file that goes": kind("add_file { path = $(r)/f source = one SHARED }", {"f": "1\n"}, second=""),
    "file that comes": kind("", {}, second="add_file { path = $(r)/f source = two }"),
    "link": kind("add_link { path = $(r)/d/l target = one SHARED }", {"d/l": ("one",)},
                 second="add_link { path = $(r)/d/l target = two SHARED }"),
    "hard link": kind("add_file { path = $(r)/f source = one SHARED }"
                      "add_hard_link { path = $(r)/h target = $(r)/f SHARED }",
                      {"f": "1\n", "h": "1\n"},
                      second="add_file { path = $(r)/f source = two SHARED }"
                      "add_hard_link { path = $(r)/h target = $(r)/f SHARED }"),
    "hard link over another": kind("add_file { path = $(r)/f source = one }"
                                   "add_hard_link { path = $(r)/h target = $(r)/f }",
                                   {"f": "1\n", "h": "1\n"}, {"h": "before\n"}, after={}),
    "kept file": kind("add_kept_file { path = $(r)/f source = one mode = 0600 SHARED }", {"f": "1\n"},
                      second="add_kept_file { path = $(r)/f source = two mode = 0600 SHARED }"),
    "kept file over another": kind("add_kept_file { path = $(r)/f source = one mode = 0600 }",
                                   {"f": "mine\n", "f.kmnew": "1\n"}, {"f": "mine\n"}),
    "group": kind("generic_container { condition = '$(v) > 0' caption = group"
                  " add_file { path = $(r)/f source = one SHARED }"
                  " generic_container { add_container { path = $(r)/d"
                  " add_file { path = f source = two } } } }", {"f": "1\n", "d/f": "2\n"}),
    "group that is passed over": kind("generic_container { condition = '$(v) > 5' caption = other"
                                      " add_file { path = $(r)/f source = one } }", {}),
    "container": kind("add_container { path = $(r)/d mode = 0750 SHARED"
                      " generic_container { add_file { path = f source = one SHARED } }"
                      " add_container { path = e add_link { path = l target = ../f }"
                      " add_line { path = t text = new create = y } }"
                      " add_hard_link { path = h target = $(r)/d/f } }",
                      {"d/f": "1\n", "d/h": "1\n", "d/e/l": ("../f",), "d/e/t": "new\n"}),
    "line last": line("last", LINES + "new\n"),
    "line first": line("first", "new\n" + LINES),
    "line before first": line("before_first", "new\n" + LINES),
    "line before last": line("before_last", "a 1\nb\nnew\na 2\nc\n"),
    "line after first": line("after_first", "a 1\nnew\nb\na 2\nc\n"),
    "line after last": line("after_last", "a 1\nb\na 2\nnew\nc\n"),
    "line in a new file": kind("add_line { path = $(r)/d/t text = new create = y SHARED }",
                               {"d/t": "new\n"}),
    "line that stands": kind("add_line { path = $(r)/t text = b SHARED }", {"t": LINES}, {"t": LINES}),
    "line without an end": kind("add_line { path = $(r)/t text = c }", {"t": b"a\r\nb\r\nc"},
                                {"t": b"a\r\nb"}),
    "token last": token("last", "a1:b:a2:n"),
    "token first": token("first", "n:a1:b:a2"),
    "token before first": token("before_first", "n:a1:b:a2"),
    "token before last": token("before_last", "a1:b:n:a2"),
    "token after first": token("after_first", "a1:n:b:a2"),
    "token after last": token("after_last", "a1:b:a2:n"),
    "token in a new command": kind('add_token { path = $(r)/t name = P token = n separator = " " }',
                                   {"t": "a=1\nP=n\n"}, {"t": "a=1\n"}),
    "item in a new file": ini("section = s create = y", "[s]\nk=v\n"),
    "item in a new section": ini("section = s", "[a]\nk = 1\n[s]\nk = v\n", {"t": "[a]\nk = 1\n"}),
    "item without a section": ini("", "k=v\n[a]\nk=1\n", {"t": "[a]\nk=1\n"}),
    "item for another": ini("section = s", "; x\n[s]\n k = v ; old\n", {"t": "; x\n[s]\n k = 1 ; old\n"}),
    "item that replaces nothing": ini("section = s replace_if_existing = n", "[s]\nk = 1\n",
                                      {"t": "[s]\nk = 1\n"}),
    "removed directory": kind("remove_directory { path = $(r)/d }", {}, {"d/": None}, after={}),
    "removed file": kind("remove_file { path = $(r)/f }", {}, {"f": "before\n"}, after={}),
    "removed link": kind("remove_link { path = $(r)/l target = x }", {}, {"l": ("x",)}, after={}),
    "removed hard link": kind("remove_hard_link { path = $(r)/h target = $(r)/f }", {"f": "1\n"},
                              {"f": "1\n", "h": ["f"]}, after={"f": "1\n"}),
    "removed kept file of a user": kind("remove_kept_file { path = $(r)/f }", {"f": "1\n"},
                                        {"f": "1\n"}),
    "removed container": kind("remove_container { path = $(r)/d remove_file { path = f } }", {},
                              {"d/f": "1\n"}, after={}),
    "removed line": kind('remove_line { path = $(r)/t pattern = "b*" }', {"t": "a 1\na 2\nc\n"},
                         {"t": LINES}, after={"t": "a 1\na 2\nc\n"}),
    "removed token": kind("remove_token { path = $(r)/t name = P token = b }", {"t": "P=a:c\n"},
                          {"t": "P=a:b:c\n"}, after={"t": "P=a:c\n"}),
    "removed item": kind("remove_ini_item { path = $(r)/t section = s key = b }",
                         {"t": "[s]\na=1\nc=3\n"}, {"t": "[s]\na=1\nb=2\nc=3\n"},
                         after={"t": "[s]\na=1\nc=3\n"}),
    "program": kind(PROGRAM % COMMIT, {"f": "a b\n"}),
    "program without a commit": kind(PROGRAM % "", {"f": "a b\n"}),
}


# Commands by life, and which tree stands behind each: "before", "there", "after", or the one that
# stood behind the step of that number. "one" and "two" are files of the versions.
LIVES = {
    "plain": ["install one: there", "verify p: there", "install one: there",
              "install one --force: there", "verify p: there", "remove p: after"],
    "undone": ["install one --undoable: there", "verify p: there", "undo p: before",
               "install one --undoable: there", "accept p: there", "verify p: there",
               "remove p: after"],
    "removal undone": ["install one: there", "remove p --undoable: after", "undo p: there",
                       "verify p: there", "remove p: after"],
    "committed": ["install one --transactional: before", "commit p: there", "verify p: there",
                  "remove p --transactional: there", "commit p: after"],
    "committed and undone": ["install one --transactional --undoable: before", "commit p: there",
                             "verify p: there", "undo p: before"],
    "committed with a late backup": ["install one --transactional --undo-at-commit: before",
                                     "commit p: there", "undo p: before"],
    "rolled back": ["install one --transactional --undoable: before", "rollback p: before",
                    "install one --transactional: before", "rollback p: before", "install one: there",
                    "remove p --transactional --undoable: there", "rollback p: there",
                    "verify p: there", "remove p: after"],
    "upgraded": ["install one: there", "upgrade two: 2", "verify p: 2", "undo p: there",
                 "verify p: there", "upgrade two: 2", "accept p: 2", "verify p: 2",
                 "remove p: after"],
    "undo prepared": ["install one --undoable: there", "undo p --prepare: there", "commit p: before"],
}

# What people do to the package's objects between an install and the next command: the kind, the
# path, what they write ("": it goes), and what stands there behind a repair, a removal, an undo of
# the install and the undo of an upgrade. None: nothing; SAME: what they wrote.
SAME = "same"
CHANGES = (
    ("directory", "d/e/mine", "x\n", SAME, SAME, SAME, SAME),
    ("file", "d/f", "x\n", "1\n", SAME, None, SAME),
    ("file over another", "f", "x\n", "1\n", SAME, "before\n", SAME),
    ("file that goes", "f", "x\n", "1\n", SAME, None, SAME),
    ("link", "d/l", "", ("one",), None, None, None),
    ("hard link", "h", "", "1\n", None, None, None),
    ("kept file", "f", "x\n", SAME, SAME, SAME, SAME),
    ("group", "d/f", "", "2\n", None, None, None),
    ("container", "d/e/l", "", ("../f",), None, None, None),
    ("line last", "t", LINES + "x\n", LINES + "x\nnew\n", SAME, SAME, SAME),
    ("line first", "t", "new\nx\n" + LINES, SAME, "x\n" + LINES, "x\n" + LINES, SAME),
    ("line in a new file", "d/t", "new\nx\n", SAME, "x\n", "x\n", SAME),
    ("token last", "t", 'P = "x:n"\n', SAME, 'P = "x"\n', 'P = "x"\n', SAME),
    ("token first", "t", 'P = "x"\n', 'P = "n:x"\n', SAME, SAME, SAME),
    ("item in a new section", "t", "[s]\nk = x\n", "[s]\nk = v\n", SAME, SAME, SAME),
    ("item in a new file", "t", "[s]\nk=v\nl=x\n", SAME, "[s]\nl=x\n", "[s]\nl=x\n", SAME),
    ("item for another", "t", "x\n[s]\n k = v ; old\n", SAME, "x\n[s]\n k = 1 ; old\n",
     "x\n[s]\n k = 1 ; old\n", SAME),
    ("program", "f", "", "a b\n", None, None, "a b\n"),
)


def blocks(version, kinds, shared=False):
    """What a definition holds of all these kinds."""
    made = []
    for name in kinds:
        block = KINDS[name].first if version == 1 else KINDS[name].second
        block = block.replace("$(r)", "$(top)/" + name.replace(" ", "_"))
        made.append(block.replace("SHARED", "is_shared = y" if shared else ""))
    return "\n".join(made)


def tree_of(kinds, which):
    """A tree of the table as `make_tree` takes it, with a directory for each kind."""
    tree = {}
    for name in kinds:
        top = name.replace(" ", "_")
        tree[top + "/"] = None
        tree.update({top + "/" + path: content for path, content in getattr(KINDS[name], which).items()})
    return tree


def is_staged(name):
    """What a prepare laid beside its place."""
    return ".km~" in name and name.endswith("s")


def contents(top):
    """What is to be compared with a tree of the table, where nobody tells of rights."""
    found = {}
    for here, names, files in os.walk(top):
        for name in names + [one for one in files if not is_staged(one)]:
            path = os.path.join(here, name)
            relative = os.path.relpath(path, top)
            if os.path.islink(path):
                found[relative] = (os.readlink(path),)
            elif name in names:
                found[relative] = None
            else:
                found[relative] = bytes_of(path)
    return found


class Lives(KmctlCase):
    kinds = [one for one in KINDS if one in os.environ.get("KM_KINDS", ",".join(KINDS)).split(",")]

    def setUp(self):
        super().setUp()
        support.make_tree(self.dir, {"one": "1\n", "two": "2\n"})
        self.files = {"one": self.defined(1), "two": self.defined(2)}

    def command(self, *words):  # programs run in the root of the machine
        return [support.KMCTL, "--state", self.state, *words]

    def defined(self, version, name="p", shared=False):
        """A package file of all kinds."""
        head = "kmspd 1.0 package { name = %s version = %d default_variables { v = %d top = %s }\n"
        text = head % (name, version, version, self.root) + blocks(version, self.kinds, shared) + "}"
        support.make_tree(self.dir, {"d.spd": text})
        out = self.path("%s-%d.spb" % (name, version))
        self.km("build", "d.spd", "-o", out)
        return out

    def lay(self, which, top):
        for path, content in sorted(tree_of(self.kinds, which).items()):
            if isinstance(content, list):
                os.link(os.path.join(top, os.path.dirname(path), content[0]), os.path.join(top, path))
            else:
                support.make_tree(top, {path: content})

    def stage(self):
        """What stands before, fresh; what stands in the trees of the table."""
        shutil.rmtree(self.root)
        shutil.rmtree(self.state, ignore_errors=True)
        os.mkdir(self.root)
        self.lay("before", self.root)
        told = {}
        for which in ("before", "there", "after"):
            top = os.path.join(self.dir, which)
            if not os.path.exists(top):
                self.lay(which, top)
            told[which] = contents(top)
        return told

    def test_lives(self):
        pictures = {}  # with rights: what the first life has shown
        for life in LIVES:
            with self.subTest(life=life):
                self.live(life, pictures)

    def live(self, life, pictures):
        told = self.stage()
        pictures["before"] = picture(self.root, times=False)
        for number, step in enumerate(LIVES[life]):
            words, tree = step.split(": ")
            ended = self.km(*[self.files.get(word, word) for word in words.split()])
            at = "step %d: %s\n%s" % (number, words, ended)
            if tree in told:
                self.assertEqual(differences(told[tree], contents(self.root)), [], at)
            now = {path: one for path, one in picture(self.root, times=False).items()
                   if not is_staged(os.fsdecode(path))}
            self.assertEqual(differences(pictures.setdefault(tree, now), now), [], at)
        self.assertEqual(self.leftovers(), [])
        self.assertEqual(self.km_json("list")["packages"], [])

    def changed(self):
        """An installed package, whose objects were changed by people."""
        for kind_, path, content, *_ in CHANGES:
            if kind_ in self.kinds:
                full = os.path.join(self.root, kind_.replace(" ", "_"), path)
                if content:
                    support.make_tree("/", {full: content})
                else:
                    os.unlink(full)

    def look_for(self, column):
        found = contents(self.root)
        for kind_, path, content, *left in CHANGES:
            if kind_ in self.kinds:
                wanted = content if left[column] is SAME else left[column]
                wanted = wanted.encode() if isinstance(wanted, str) else wanted
                with self.subTest(kind=kind_, column=column):
                    self.assertEqual(found.get(os.path.join(kind_.replace(" ", "_"), path)), wanted)

    def test_changes_of_people(self):
        courses = (["install one", "CHANGE", "verify p: 100", "repair p", "verify p", "LOOK 0"],
                   ["install one", "CHANGE", "remove p", "LOOK 1"],
                   ["install one --undoable", "CHANGE", "undo p", "LOOK 2"],
                   ["install one", "CHANGE", "upgrade two", "undo p", "LOOK 3"])
        for course in courses:
            self.stage()
            for step in course:
                words, _, code = step.partition(": ")
                words = [self.files.get(word, word) for word in words.split()]
                if words[0] == "LOOK":
                    self.look_for(int(words[1]))
                elif words[0] == "CHANGE":
                    self.changed()
                else:
                    self.km(*words, code=int(code or 0))

    def test_sharing(self):
        self.kinds = [one for one in self.kinds if "SHARED" in KINDS[one].first]
        told = self.stage()
        first, second = self.defined(1, "p", True), self.defined(1, "q", True)
        for words, tree in ((("install", first), "there"), (("install", second), "there"),
                            (("verify", "p"), "there"), (("remove", "p"), "there"),
                            (("verify", "q"), "there"), (("install", first, "--undoable"), "there"),
                            (("undo", "p"), "there"), (("verify", "q"), "there"),
                            (("remove", "q"), "after")):
            ended = self.km(*words)
            self.assertEqual(differences(told[tree], contents(self.root)), [], (words, ended))

    def test_the_value_of_one_package_over_that_of_another(self):
        self.kinds = ["item for another"]
        told, one, other = self.stage(), self.defined(1, "p"), self.defined(2, "q")
        for words, code, tree in ((("install", one), 0, "there"), (("install", other, "--undoable"), 0, ""),
                                  (("verify", "p"), 100, ""), (("undo", "q"), 0, "there"),
                                  (("verify", "p"), 0, "there"), (("install", other), 0, ""),
                                  (("remove", "q"), 0, "there"), (("remove", "p"), 0, "before")):
            self.km(*words, code=code)
            if tree:
                self.assertEqual(differences(told[tree], contents(self.root)), [], words)


if __name__ == "__main__":
    support.main()
