"""Packages of an ordinary user, below the home directory."""
import os
import shutil
import unittest

import support
from support import KmctlCase, differences, picture, put, text_of

NOBODY = 65534
DEFINITION = """kmspd 1.0 package { name = d version = 1
  generic_container { condition = '"$(which)" == "other"'
    add_file { path = $(home_path)/.d/skipped source = tree/a is_per_user = y } }
  add_file { path = $(home_path)/.d/a source = tree/a is_per_user = y }
  add_file { path = %s source = tree/b %s } }"""


@unittest.skipUnless(os.geteuid() == 0, "runs as root, and as somebody else")
class UserScope(KmctlCase):
    def setUp(self):
        super().setUp()
        os.chmod(self.dir, 0o755)
        self.home = self.path("home")
        os.mkdir(self.home)
        put(os.path.join(self.home, "mine"), "mine")
        os.chown(self.home, NOBODY, NOBODY)
        self.empty = picture(self.home)
        support.make_tree(self.path("tree"), {"a": "a", "b": "b", "sub/c": "c" * 1000})

    def command(self, *words):
        return [support.KMCTL, "--user", *words]

    def environment(self, traced=False):
        env = super().environment(traced)
        env["HOME"] = self.home
        env["XDG_STATE_HOME"] = self.home + "/state"
        env.pop("ZNPIS_PRODUCT_DIR", None)
        return env

    def call(self, words, **more):
        return super().call(words, preexec_fn=support.become_nobody, cwd="/", **more)

    def tool(self, version="1", to="$(home_path)/.local/tool", *more):
        out = self.path("tool-%s.spb" % version)
        # built by root: its objects are root's
        KmctlCase.call(self, [support.KMCTL, "build", self.path("tree"), "--name", "tool", "--version",
                              version, "--to", to, "--per-user", "-o", out, *more])
        self.assertTrue(os.path.exists(out))
        return out

    def stands(self, name):
        return os.path.exists(os.path.join(self.home, name))

    def left(self):
        shutil.rmtree(os.path.join(self.home, "state"))
        return differences({k: v[:1] + v[2:4] for k, v in self.empty.items()},
                           {k: v[:1] + v[2:4] for k, v in picture(self.home).items()})

    def test_the_life_of_a_package(self):
        package = self.tool()
        for mode in ("", "--undoable", "--transactional"):
            with self.subTest(mode=mode):
                self.km("install", package, *([mode] if mode else []))
                if mode == "--transactional":
                    self.assertFalse(self.stands(".local/tool/a"))
                    self.km("commit", "tool")
                self.assertTrue(self.stands(".local/tool/sub/c"))
                self.assertTrue(self.stands("state/kmcore/znpis.ini"))
                self.assertEqual(os.lstat(self.home + "/.local/tool/a").st_uid, NOBODY)
                self.km("verify", "tool")
                self.assertEqual(len(self.km_json("history", "tool")["operations"]) > 0, True)
                self.km("undo" if mode == "--undoable" else "remove", "tool")
                self.assertFalse(self.stands(".local/tool/a"))
        self.km("install", package)
        self.km("upgrade", self.tool("2"))
        self.km("accept", "tool")
        os.remove(self.home + "/.local/tool/a")
        self.km("verify", "tool", code=100)
        self.km("repair", "tool")
        self.assertTrue(self.stands(".local/tool/a"))
        self.km("remove", "tool")
        self.assertEqual(self.km("check").code, 0)
        self.assertEqual(self.left(), [])

    def test_conditions_keep_the_data_in_step(self):
        put(self.path("p.spd"), DEFINITION % ("$(home_path)/.d/b", "is_per_user = y"))
        KmctlCase.call(self, [support.KMCTL, "build", self.path("p.spd"), "--base", self.dir, "-o",
                              self.path("d.spb")])
        for source in (self.path("d.spb"), "file://" + self.path("d.spb")):
            self.km("install", source, "-D", "which=this")
            for name in "ab":
                self.assertEqual(text_of(self.home + "/.d/" + name), name)
            self.assertFalse(self.stands(".d/skipped"))
            self.km("remove", "d")
            self.assertFalse(self.stands(".d"))

    def test_what_is_not_for_users_is_refused(self):
        outside = self.path("elsewhere")
        for path, scope, why in ((outside, "is_per_user = y", "not below"),
                                 ("$(home_path)/../elsewhere", "is_per_user = y", "not below"),
                                 ("$(home_path)x/b", "is_per_user = y", "not below"),
                                 ("$(home_path)/.d/b", "", "machine")):
            with self.subTest(path=path, scope=scope):
                put(self.path("p.spd"), DEFINITION % (path, scope))
                KmctlCase.call(self, [support.KMCTL, "build", self.path("p.spd"), "--base", self.dir,
                                      "-o", self.path("d.spb")])
                ended = self.km("install", self.path("d.spb"), code=5)
                self.assertIn(why, ended.err)
                self.assertEqual(self.km_json("list")["packages"], [])
                self.assertFalse(self.stands(".d"))
        self.km("--root", self.root, "list", code=2)


if __name__ == "__main__":
    support.main()
