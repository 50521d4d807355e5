"""With --json standard output is one object, whatever the command came to."""
import json
import os

import support
from support import KmctlCase, put


class Json(KmctlCase):
    def test_every_command_gives_one_object_with_its_members(self):
        package = self.build({"a": "1", "l": ("a",)}, "p", "1.0", "/opt/p", "--set", "v=1")
        os.mkdir(self.path("empty"))
        told = self.km_json("build", self.path("empty"), "--name", "e", "--version", "1", "--to", "/e",
                            "-o", self.path("e.spb"))
        self.assertEqual((told["command"], told["outcome"]), ("build", "done"))
        self.assertEqual((told["files"], told["package"]["name"]), (0, "e"))
        cases = """show P: attributes package, show P --files: files package, show P --tree: tree package,
            show P --variables: variables package, install -n P: plan package, install P: package,
            install P: nothing package, list: packages, list no*: packages, status p: package, log p: log,
            show p: attributes package, config list: settings, config get product_dir: value,
            config set k v: value, variables: variables, check: packages, check --repair: packages,
            remove -n p: plan package, remove p: package"""
        for case in cases.split(","):
            words, members = case.split(":")
            words = [package if word == "P" else word for word in words.split()]
            outcome, *members = members.split() if "nothing" in members else ["done", *members.split()]
            told = self.km_json(*words)
            self.assertEqual(told["outcome"], outcome, words)
            self.assertEqual(told["command"], words[0])
            for member in members:
                self.assertIn(member, told, words)
            if "package" in members:
                self.assertEqual(set(told["package"]), {"name", "version", "state", "result"}, words)
                self.assertEqual(told["package"]["name"], "p")

    def test_failures_are_objects_too(self):
        put(self.path("bad.spb"), "no package")
        for words, code in ((["nonsense"], 2), (["install"], 2), ([], 2), (["status", "p"], 3),
                            (["remove", "p"], 3), (["install", "bad.spb"], 6), (["show", "bad.spb"], 6),
                            (["install", "none.spb"], 3), (["config", "get", "none"], 3)):
            told = self.km_json(*words, code=code)
            self.assertEqual(told["outcome"], "failed", words)
            self.assertEqual([one["severity"] for one in told["messages"]], ["error"], words)
            self.assertTrue(told["messages"][0]["text"], words)

    def test_a_failed_install_tells_the_package(self):
        package = self.build({"a/b": "1"})
        support.make_tree(self.at("/opt/p"), {"a": "in the way"})
        told = self.km_json("install", package, code=1)
        self.assertEqual(told["package"]["name"], "p")
        self.assertIn("/opt/p/a", json.dumps(told["messages"]))

    def test_names_that_are_no_text(self):
        source = self.path("src")
        os.mkdir(source)
        for name in (b"bad\xff\xfe", b'quote"back\\slash\n\x01', "ünï".encode()):
            put(os.path.join(os.fsencode(source), name))
        package = self.build(source)
        for words in (["show", package, "--files"], ["show", package, "--tree"],
                      ["install", package], ["log", "p"], ["remove", "-n", "p"], ["remove", "p"]):
            ended = self.km("--json", *words)
            json.loads(ended.out.encode("utf-8", "surrogateescape").decode("utf-8", "strict"))

    def test_words_for_people_stay_off_standard_output(self):
        ended = self.km("--json", "-v", "install", self.build({"a": "1"}), "--progress=yes")
        json.loads(ended.out)
        self.assertEqual(ended.out.count("\n}"), 1)


if __name__ == "__main__":
    support.main()
