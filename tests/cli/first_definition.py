"""From a tree to its first definition, to a package, to the machine; and what lint says on the way."""
import json
import os

import support
from round_trip import hard_tree
from support import KmctlCase, picture, put


class FirstDefinition(KmctlCase):
    def tree(self):
        """What is hard to name, but for what is not UTF-8."""
        top = self.path("my tree")
        os.mkdir(top)
        hard_tree(top)
        raw = os.fsencode(top)
        os.unlink(os.path.join(raw, b"rawlink"))
        for name in os.listdir(raw):
            try:
                name.decode()
            except UnicodeDecodeError:
                os.unlink(os.path.join(raw, name))
        # A definition gives a link no owner of its own.
        os.lchown(os.path.join(top, "dangling"), os.geteuid(), os.getegid())
        return top

    def test_what_is_described_is_what_is_installed(self):
        top = self.tree()
        self.km("init", top, "--prefix", "/opt/x y", "-o", "d.spd")
        self.km("lint", "d.spd")
        self.km("build", "d.spd", "-o", "d.spb")
        os.mkdir(self.path("away"))
        self.km("init", top, "--prefix", "/opt/x y", "-o", "away/d.spd")
        self.km("build", "away/d.spd", "--base", top, "-o", "other.spb")
        self.km("install", "d.spb")
        # Links and directories have the time of their making.
        self.assert_same(picture(top, False), picture(self.at("/opt/x y"), False))
        self.km("remove", "my-tree")
        self.assertEqual(os.listdir(self.root), [])

    def test_names_that_no_definition_can_hold(self):
        top = self.path("t")
        for name in (b"a$(b)", b"latin\xe9", b"\xed\xa0\x80"):
            os.mkdir(top)
            put(os.path.join(os.fsencode(top), name))
            told = self.km_json("init", top, code=1)
            self.assertEqual([one["id"] for one in told["messages"]], ["name"])
            self.assertFalse(os.path.exists(self.path("t.spd")))
            os.unlink(os.path.join(os.fsencode(top), name))
            os.rmdir(top)

    def test_lint(self):
        def lint(body, code):
            put(self.path("l.spd"), "kmspd 1.0\npackage {\nname = p version = 1\n%s\n}\n" % body)
            told = json.loads(self.km("--json", "lint", "l.spd", code=code).out)
            return [(one["severity"], one["place"]) for one in told["messages"]]

        self.assertEqual(lint("add_file { path = /f source = none }", 100), [("warning", "l.spd:4:31")])
        support.make_tree(self.path("tree"), {"there": "x"})
        put(self.path("b.spd"), "kmspd 1.0 package { name = p version = 1 "
            "add_file { path = /f source = there } }")
        self.km("lint", "b.spd", code=100)
        self.km("lint", "b.spd", "--base", self.path("tree"))
        self.assertEqual(lint("titel = x\nadd_file { }", 100),
                         [("error", "l.spd:4:1"), ("error", "l.spd:5:1")])
        self.assertEqual(lint("title = $(x)\nremove_file { path = /f }", 100),
                         [("warning", "l.spd:4:9"), ("warning", "l.spd:5:1")])
        self.km("lint", "none.spd", code=2)


if __name__ == "__main__":
    support.main()
