"""Exit codes that a script can trust, and the words beside them."""
import os
import subprocess

import support
from support import KmctlCase, make_tree, picture, put


class ExitCodes(KmctlCase):
    def test_wrong_usage_is_2_and_touches_nothing(self):
        wrong = [
            [], ["nonsense"], ["install"], ["install", "a", "b"], ["remove"], ["status"], ["log"],
            ["show"], ["config"], ["config", "get"], ["config", "set", "x"], ["build"],
            ["build", "."], ["list", "--wait", "x"], ["list", "--wait", "-2"], ["list", "--no-such"],
            ["list", "--color", "red"], ["list", "--progress", "perhaps"], ["list", "--trace", "9"],
            ["show", "x", "--tree", "--files"], ["install", "x", "-D"], ["config", "set", "a=b", "c"],
            ["config", "set", "a", "b\nc"],
        ]
        for words in wrong:
            ended = self.km(*words, code=2)
            self.assertEqual(ended.out, "", words)
            self.assertTrue(ended.err.startswith("error: "), (words, ended))
            self.assertEqual(ended.err.count("\n"), 1, (words, ended))

    def test_names_and_versions_that_no_package_can_have(self):
        source = make_tree(self.path("src"), {"a": "1"})

        def build(name="p", version="1", to="/opt", *more):
            ended = self.km("build", source, "--name", name, "--version", version, "--to", to, "-o",
                            self.path("x.spb"), *more, code=2)
            self.assertEqual(ended.err.count("\n"), 1, ended)
            self.assertFalse(os.path.exists(self.path("x.spb")))

        for name in ("", "a b", "a/b", "..", ".x", "-x", "a^b", "a*", "n" * 129, "a\nb", "a$(b)"):
            build(name=name)
        for version in ("", "1 0", "1/0", ".1", "1.", "1..0", "1^0", "v" * 65, "1\t0"):
            build(version=version)
        for to in ("", "opt", "./opt", "/opt/../etc", ".."):
            build(to=to)
        build("p", "1", "/opt", "--set", "novalue")
        build("p", "1", "/opt", "--set", "=x")

    def test_build_of_what_cannot_be_packed(self):
        def build(source, code):
            ended = self.km("build", source, "--name", "p", "--version", "1", "--to", "/opt", "-o",
                            self.path("x.spb"), code=code)
            self.assertFalse(os.path.exists(self.path("x.spb")))
            self.assertFalse(os.path.exists(self.path("x.spb.new")))
            return ended

        build(self.path("no such"), 3)
        put(self.path("file"))
        build(self.path("file"), 1)
        make_tree(self.path("variable"), {"a$(b)": "x"})
        self.assertIn("a$(b)", build(self.path("variable"), 1).err)
        os.mkdir(self.path("special"))
        os.mkfifo(self.path("special", "pipe"))
        self.assertIn("pipe", build(self.path("special"), 1).err)
        source = make_tree(self.path("src"), {"a": "1"})
        ended = self.km("build", source, "--name", "p", "--version", "1", "--to", "/opt", "-o",
                        self.path("no", "such", "x.spb"), code=1)
        self.assertIn("No such file", ended.err)
        self.km("build", source, "--name", "p", "--version", "1", "--to", "/opt", "-o",
                self.path("special"), code=1)

    def test_build_into_the_tree_that_is_packed(self):
        source = make_tree(self.path("src"), {"a": "1"})
        for _ in range(2):
            self.km("build", source, "--name", "p", "--version", "1", "--to", "/opt", "-o",
                    os.path.join(source, "x.spb"), code=None)
        self.assertEqual([n for n in os.listdir(source) if n.endswith(".new")], [])

    def test_not_found_is_3(self):
        for words in (["remove", "p"], ["status", "p"], ["log", "p"], ["show", "p"],
                      ["remove", "p^1.0"], ["install", "no.spb"], ["show", "./no.spb"],
                      ["config", "get", "no_such_setting"], ["remove", "../../etc"],
                      ["log", "../../../../etc/passwd"], ["status", ""]):
            ended = self.km(*words, code=3)
            self.assertEqual(ended.out, "", words)
            self.assertEqual(ended.err.count("\n"), 1, (words, ended))

    def test_a_package_in_error_is_refused_with_5(self):
        package = self.build({"a": "1", "b": "2", "c": "3"})
        self.into_error(package)
        before = picture(self.root)
        for words in (["install", package], ["remove", "p"], ["install", "-n", package],
                      ["remove", "-n", "p"]):
            told = self.km_json(*words, code=5)
            self.assertEqual(told["outcome"], "refused", words)
            self.assertIn("--force", told["messages"][-1]["text"], words)
            self.assert_same(before, picture(self.root), words)
        self.km("status", "p")
        self.km("install", package, "--force")
        self.assertEqual(self.letters("p")[2], "-", self.letters("p"))
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])

    def test_a_package_in_error_is_taken_away_by_force(self):
        package = self.build({"a": "1", "b": "2", "c": "3"})
        self.into_error(package)
        self.km("remove", "p", "--force")
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.leftovers(), [])
        self.assertEqual(self.km_json("list")["packages"], [])

    def into_error(self, package):
        """An install in which one write fails: the package stands in error, half in place."""
        for at in range(24, 200, 3):
            ended = self.faulty(["once", at, 5], "install", package)
            listed = self.km_json("list")["packages"]
            if listed and "E" in listed[0]["state"]:
                self.assertEqual(ended.code, 1, ended)
                return
            if listed:
                self.km("remove", "p", "--force", code=None)
        self.fail("no fault led to an error")

    def test_root_that_does_not_exist(self):
        self.root = self.path("no such root")
        self.assertIn(self.root, self.km("list", code=1).err)
        self.root = self.path("file")
        put(self.root)
        self.assertIn(self.root, self.km("list", code=1).err)
        self.assertFalse(os.path.exists(self.state))

    def test_a_state_that_cannot_be(self):
        put(self.path("file"))
        self.state = self.path("file", "below")
        for words in (["list"], ["config", "set", "a", "b"]):
            self.assertIn(self.state, self.km(*words, code=None).err, words)
        self.state = "/proc/nothing"
        package = self.build({"a": "1"})
        ended = self.km("install", package, code=1)
        self.assertIn("/proc/nothing", ended.err)
        self.assertEqual(os.listdir(self.root), [])

    def test_without_a_state_it_lies_below_the_root(self):
        package = self.build({"a": "1"})
        base = [support.KMCTL, "--root", self.root]
        self.assertEqual(self.call(base + ["install", package]).code, 0)
        self.assertEqual(os.listdir(self.at("/var/lib")), ["kmcore"])
        self.assertIn("p", self.call(base + ["list"]).out)
        self.assertEqual(self.call(base + ["remove", "p"]).code, 0)
        self.assertFalse(os.path.exists(self.at("/opt")))

    def test_quiet_and_verbose(self):
        package = self.build({"a": "1"})
        ended = self.km("-q", "install", package)
        self.assertEqual((ended.out, ended.err), ("", ""))
        self.assertIn("p", self.km("-q", "list").out)
        self.assertIn("\x1b[31m", self.km("--color=always", "status", "x", code=3).err)
        self.assertNotIn("\x1b", self.km("--color=never", "status", "x", code=3).err)
        ended = self.km("remove", "p", "--progress=yes")
        self.assertIn("100%", ended.err)

    def test_dry_run_changes_nothing(self):
        package = self.build({"a": "1", "b": "2", "d/": None})
        for start in ("without a state", "with a state"):
            told = self.km_json("install", "-n", package)
            self.assertEqual({one["action"] for one in told["plan"]}, {"add"}, start)
            self.assertEqual(os.listdir(self.root), [])
            self.assertEqual(os.path.exists(self.state), start == "with a state")
            self.km("config", "list")
        self.km("install", package)
        put(self.at("/opt/p/a"), "mine")
        before = picture(self.root), self.state_picture()
        told = self.km_json("remove", "--dry-run", "p")
        plan = {one["path"]: one["action"] for one in told["plan"]}
        self.assertEqual(plan["/opt/p/a"], "keep")
        self.assertEqual(plan["/opt/p/b"], "remove")
        self.km("install", "--dry-run", "--force", package)
        self.assert_same(before[0], picture(self.root))
        self.assert_same(before[1], self.state_picture())
        blocked = self.build({"x/y": "1"}, "q", "1.0", "/opt/p/a")
        self.assertIn("/opt/p/a", self.km("install", "-n", blocked, code=1).err)

    def test_queries_of_a_fresh_state_make_nothing(self):
        for words in (["list"], ["variables"], ["check"]):
            self.km(*words)
        for words in (["status", "p"], ["log", "p"], ["show", "p"]):
            self.km(*words, code=3)
        self.assertFalse(os.path.exists(self.state))

    def test_settings(self):
        self.assertEqual(self.km("config", "get", "product_dir").out.strip(), self.state)
        self.km("config", "set", "my_setting", "a value = with [signs]; ünï")
        self.assertEqual(self.km("config", "get", "my_setting").out,
                         "a value = with [signs]; ünï\n")
        self.km("config", "set", "my_setting", "")
        settings = self.km_json("config", "list")["settings"]
        self.assertIn({"section": "#MOBILE", "key": "my_setting", "value": ""}, settings)
        self.assertIn("product_dir=", self.km("config", "list").out)

    def test_output_that_cannot_be_written_is_no_success(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run(self.command("variables"), stdout=full, stderr=subprocess.PIPE,
                                  env=self.environment())
        self.assertEqual(done.returncode, 1)

    def test_names_that_would_give_orders_to_a_terminal(self):
        package = self.build({"\x1b[31mred\x07": "1"})
        self.assertNotIn("\x1b", self.km("install", "--progress=yes", package).err.replace("\x1b[K", ""))
        make_tree(self.at("/opt/p"), {"x": "1"})
        self.assertNotIn("\x1b", self.km("remove", "p").err)


if __name__ == "__main__":
    support.main()
