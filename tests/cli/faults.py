"""The disk fills, a right is missing, a call fails: the words name path and reason, the catalog
tells the truth, and the next attempt works."""
import errno
import os
import resource
import signal
import subprocess

import support
from support import KmctlCase, picture


FILES = {"a": "first\n", "b": "second\n" * 900, "s/c": "third\n", "l": ("a",), "s/t/": None}


class Reasons(KmctlCase):
    def mount(self, options):
        """A file system of its own for the root."""
        words = ["mount", "-t", "tmpfs", "-o", options, "none", self.root]
        if os.geteuid() or subprocess.run(words, stderr=subprocess.DEVNULL).returncode:
            self.skipTest("may not mount")
        self.addCleanup(subprocess.run, ["umount", self.root])

    def test_a_file_that_may_not_grow(self):
        package = self.build({"a": "1", "big": os.urandom(3_000_000)})

        def small():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (1_000_000, 1_000_000))

        ended = self.km("install", package, code=1, preexec_fn=small)
        self.assertIn("/opt/p/big", ended.err.replace(".big.km~", "big"))
        self.assertIn(os.strerror(errno.EFBIG), ended.err)
        self.assertIn("E", self.letters("p"))
        self.assertFalse(os.path.exists(self.at("/opt/p/big")))
        self.km("install", package, "--force")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.leftovers(), [])

    def test_a_full_disk(self):
        package = self.build({"a": "1", "big": os.urandom(3_000_000)})
        self.mount("size=2m")
        ended = self.km("install", package, code=1)
        self.assertIn("room", ended.err)
        self.assertIn("/opt", ended.err.replace("in /:", "in /opt"))
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.km_json("list")["packages"], [])
        subprocess.run(["mount", "-o", "remount,size=8m", self.root], check=True)
        self.km("install", package)
        self.km("remove", "p")

    def test_a_disk_that_a_backup_would_fill(self):
        """Root and state share it: what an undo needs must fit beside the files."""
        self.mount("size=8m")
        self.state = os.path.join(self.root, "state")
        old = self.build({"a": os.urandom(2_000_000)}, "p")
        new = self.build({"a": os.urandom(2_500_000), "b": os.urandom(1_500_000)}, "p", "2.0")
        self.km("install", old)
        before = picture(self.at("/opt"))
        # 6 MB are free: 2 grow, 2 stand beside for a moment, and 2 are the backup.
        subprocess.run(["mount", "-o", "remount,size=7m", self.root], check=True)
        for words in (["preview", new, "--undoable"], ["install", new, "--undoable", "-n"],
                      ["install", new, "--undoable"], ["upgrade", new, "-n"], ["upgrade", new]):
            ended = self.km(*words, code=1)
            self.assertRegex(ended.err, r"room .* in /.*: [0-9.]+ MiB \([0-9.]+ MiB of it for the "
                                        r"backup\) needed, [0-9.]+ MiB free")
        self.assert_same(before, picture(self.at("/opt")))
        room, = self.km_json("preview", new, "--undoable", code=1)["room"]
        self.assertGreater(room["needed"], room["free"])
        self.assertGreater(room["backup"], 2_000_000)
        self.km("preview", new)
        self.km("install", new, "--preferably-undoable")
        self.assertEqual(self.letters("p^2.0"), "IC---")
        # What is prepared has its room, so that a commit needs none.
        self.km("remove", "p^2.0")
        self.km("remove", "p^1.0", "--force", code=None)
        big = self.build({"big": os.urandom(4_000_000)}, "q")
        self.km("install", big, "--transactional")
        self.km("commit", "q")

    def test_a_dry_run_tells_what_the_run_would(self):
        self.mount("size=12m")
        self.state = os.path.join(self.root, "state")
        self.km("install", self.build({"a": os.urandom(3_000_000)}, "p"))
        self.km("upgrade", self.build({"a": "small"}, "p", "2.0"))
        subprocess.run(["mount", "-o", "remount,size=5m", self.root], check=True)
        for prepare, words in (((), ["undo", "p"]), ((), ["remove", "p", "--undoable"]),
                               (("remove", "--transactional", "--undo-at-commit"), ["commit", "p"])):
            if words[0] == "remove":
                subprocess.run(["mount", "-o", "remount,size=12m", self.root], check=True)
                self.km("undo", "p")
                subprocess.run(["mount", "-o", "remount,size=5m", self.root], check=True)
            if prepare:
                self.km(*prepare, "p")
            dry, run = self.km(*words, "-n", code=1), self.km(*words, code=1)
            self.assertEqual(dry.err.splitlines()[0], run.err.splitlines()[0])
            self.assertRegex(dry.err, "room(.*\n)+.*%s of p.* would fail" % words[0])
        subprocess.run(["mount", "-o", "remount,size=12m", self.root], check=True)
        self.km("commit", "p")

    def test_a_target_that_is_read_only(self):
        package = self.build({"a": "1"})
        self.mount("ro")
        ended = self.km("install", package, code=1)
        self.assertIn("Read-only file system", ended.err)
        self.assertEqual(self.km_json("list")["packages"], [])

    def test_by_force_a_cut_upgrade_begins_anew_and_can_be_undone(self):
        one = self.build(FILES, "p", "1.0", "/opt/in/p")
        two = self.build(dict(FILES, a="newer\n"), "p", "2.0", "/opt/in/p")
        self.km("install", one)
        old = picture(self.at("/opt/in/p"))
        calls = self.calls_of("upgrade", two)
        new = picture(self.at("/opt/in/p"))
        self.km("undo", "p")
        for at in (calls // 3, calls // 2, calls * 3 // 4):
            self.assertEqual(self.killed(at, "upgrade", two), 137, at)
            told = self.km_json("upgrade", "--force", two)
            self.assertIn("taken back; it begins anew", str(told["messages"]), at)
            self.assert_same(new, picture(self.at("/opt/in/p")), at)
            self.assertEqual(self.letters("p"), "ICU--", at)
            self.km("undo", "p")
            self.assert_same(old, picture(self.at("/opt/in/p")), at)
            self.assertEqual(self.km_json("list")["packages"][0]["version"], "1.0", at)
            self.assertEqual(self.leftovers(), [], at)
        self.km("check")

    def test_an_ordinary_user(self):
        source = support.make_tree(self.path("src"), {"ro/in": "1", "ro/below/x": "2", "w": "3",
                                                      "l": ("w",), "s/secret": "4"})
        for name, mode in (("ro/below", 0o555), ("ro", 0o500), ("w", 0o400), ("s/secret", 0)):
            os.chmod(os.path.join(source, name), mode)
        if os.geteuid():
            os.chmod(os.path.join(source, "s/secret"), 0o400)  # or it could not be packed
        package = self.build(source)
        wanted = {p: (o[0], o[1]) + o[4:] for p, o in picture(source).items()}
        user = self.as_nobody()
        self.km("install", package, **user)
        got = {p: (o[0], o[1]) + o[4:] for p, o in picture(self.at("/opt/p")).items()}
        self.assert_same(wanted, got)
        self.km("install", package, "--force", **user)
        self.km("list", **user)
        self.km("remove", "p", **user)
        self.assertEqual(os.listdir(self.root), [])

    def test_a_right_that_is_missing(self):
        package = self.build({"a": "1", "locked/b": "2", "z": "3"})
        os.makedirs(self.at("/opt/p/locked"))
        user = self.as_nobody()
        if os.geteuid() == 0:
            os.chown(self.at("/opt/p/locked"), 0, 0)
        else:
            self.skipTest("needs a second user")
        ended = self.km("install", package, code=1, **user)
        self.assertIn("/opt/p/locked", ended.err)
        self.assertIn("Permission denied", ended.err)
        self.assertEqual(os.listdir(self.at("/opt/p")), ["locked"])
        self.assertEqual(self.km_json("list", **user)["packages"], [])
        os.chown(self.at("/opt/p/locked"), 65534, 65534)
        self.km("install", package, **user)

    def test_a_state_of_somebody_else(self):
        if os.geteuid():
            self.skipTest("needs a second user")
        package = self.build({"a": "1"})
        self.km("install", package)
        user = self.as_nobody()
        for here, names, files in os.walk(self.state):
            for name in [".", *names, *files]:
                os.lchown(os.path.join(here, name), 0, 0)
        before = picture(self.state)
        for words in (["list"], ["status", "p"], ["check"], ["remove", "p"], ["config", "set", "a", "b"]):
            ended = self.km(*words, code=1, **user)
            self.assertIn(self.state, ended.err)
            self.assertIn("Permission denied", ended.err)
            self.assertEqual(ended.err.count("\n"), 1, ended)
        self.assert_same(before, picture(self.state))


if __name__ == "__main__":
    support.main()
