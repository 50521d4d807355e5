"""The disk fills, a right is missing, a call fails: the words name path and reason, the catalog
tells the truth, and the next attempt works."""
import errno
import os
import resource
import signal
import subprocess
import unittest

import support
from support import KmctlCase, picture


class Faults(KmctlCase):
    files = {"a": "first\n", "b": "second\n" * 900, "s/c": "third\n", "l": ("a",), "s/t/": None}

    def faulty(self, how, at, error, *words):
        words = [support.FAULTS, how, str(at), str(error), *self.command(*words)]
        return self.call(words, traced=True)

    def calls_of(self, *words):
        ended = self.call([support.FAULTS, "count", *self.command(*words)], traced=True)
        self.assertEqual(ended.code, 0, ended)
        return int(ended.err.split()[-1])

    def is_true(self, note):
        """The catalog never says "installed" of what is not; what it does not know was told."""
        listed = self.km_json("list")["packages"]
        if not listed:
            if sorted(picture(self.root)) != [b"."]:
                self.assertRegex(note[1].err, "catalog does not know|run the same command again", note)
            return
        state = listed[0]["state"]
        if listed[0]["state_text"].startswith("installed") and "E" not in state:
            self.assertEqual(self.read("/opt/p/a"), b"first\n", note)
            self.assertEqual(self.read("/opt/p/s/c"), b"third\n", note)
            self.assertTrue(os.path.islink(self.at("/opt/p/l")), note)

    def advised(self, command, ended, note):
        """What a person does who reads the words: the same again, or with --force."""
        again = self.km(*command, code=None)
        if again.code == 5:
            self.assertIn("--force", again.err, note)
            again = self.km(*command, "--force", code=None)
        self.assertEqual(again.code, 0, (note, ended, again))

    def try_each(self, share):
        package = self.build(self.files)
        calls = self.calls_of("install", package)
        good = picture(self.root, times=False)
        self.km("remove", "p")
        clean = picture(self.root)
        number, of = share
        for how, error in (("once", errno.EIO), ("fail", errno.ENOSPC)):
            for at in range(1 + number, calls + 1, of):
                note = "install, %s %s at %d" % (how, errno.errorcode[error], at)
                ended = self.faulty(how, at, error, "install", package)
                self.assertIn(ended.code, (0, 1, 10), (note, ended))
                if ended.code:
                    self.assertIn("error: ", ended.err, note)
                    self.is_true((note, ended))
                    self.advised(["install", package], ended, note)
                self.assert_same(good, picture(self.root, times=False), (note, ended))
                self.km("resume")  # sweeps a file whose own removal was what failed
                self.assertEqual(self.leftovers(), [], (note, ended))
                self.remove_with_fault(how, at, error, clean, note)

    def remove_with_fault(self, how, at, error, clean, note):
        ended = self.faulty(how, at, error, "remove", "p")
        note = (note, "then remove", ended)
        self.assertIn(ended.code, (0, 1, 10), note)
        if ended.code:
            self.assertIn("error: ", ended.err, note)
            if self.km_json("list")["packages"]:
                self.advised(["remove", "p"], ended, note)
        self.assertEqual(sorted(picture(self.root)), sorted(clean), note)
        self.assertEqual(self.km_json("list")["packages"], [], note)
        self.km("remove", "nothing", code=3)  # sweeps a profile that could not be taken away
        self.assertEqual(self.leftovers(), [], note)


def add_shares(case, count):
    """One test per share of the calls, so that they run beside each other."""
    for number in range(count):
        def test(self, number=number):
            self.try_each((number, count))

        setattr(case, "test_every_call_fails_%d" % number, test)


add_shares(Faults, int(os.environ.get("KM_SHARES", "8")))


class Reasons(KmctlCase):
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

    @unittest.skipUnless(os.geteuid() == 0, "mounts a small file system")
    def test_a_full_disk(self):
        package = self.build({"a": "1", "big": os.urandom(3_000_000)})
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m", "none", self.root],
                                 stderr=subprocess.DEVNULL)
        if mounted.returncode:
            self.skipTest("may not mount")
        self.addCleanup(subprocess.run, ["umount", self.root])
        ended = self.km("install", package, code=1)
        self.assertIn("room", ended.err)
        self.assertIn("/opt", ended.err.replace("in /:", "in /opt"))
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.km_json("list")["packages"], [])
        subprocess.run(["mount", "-o", "remount,size=8m", self.root], check=True)
        self.km("install", package)
        self.km("remove", "p")

    @unittest.skipUnless(os.geteuid() == 0, "mounts a small file system")
    def test_a_disk_that_a_backup_would_fill(self):
        """Root and state share it: what an undo needs must fit beside the files."""
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8m", "none", self.root],
                                 stderr=subprocess.DEVNULL)
        if mounted.returncode:
            self.skipTest("may not mount")
        self.addCleanup(subprocess.run, ["umount", self.root])
        self.state = os.path.join(self.root, "state")
        old = self.build({"a": os.urandom(2_000_000)}, "p")
        new = self.build({"a": os.urandom(2_500_000), "b": os.urandom(1_500_000)}, "p", "2.0")
        self.km("install", old)
        before = picture(self.at("/opt"))
        # 6 MB are free: 2 grow, 2 stand beside for a moment, and 2 are the backup.
        subprocess.run(["mount", "-o", "remount,size=7m", self.root], check=True)
        for words in (["preview", new, "--undoable"], ["install", new, "--undoable", "-n"],
                      ["install", new, "--undoable"]):
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

    @unittest.skipUnless(os.geteuid() == 0, "mounts a file system")
    def test_a_target_that_is_read_only(self):
        package = self.build({"a": "1"})
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "ro", "none", self.root],
                                 stderr=subprocess.DEVNULL)
        if mounted.returncode:
            self.skipTest("may not mount")
        self.addCleanup(subprocess.run, ["umount", self.root])
        ended = self.km("install", package, code=1)
        self.assertIn("Read-only file system", ended.err)
        self.assertEqual(self.km_json("list")["packages"], [])

    def as_nobody(self):
        """As an ordinary user: the scratch directory is handed to one where root runs this."""
        if os.geteuid() != 0:
            return {}
        for here, names, files in os.walk(self.dir):
            for name in [".", *names, *files]:
                os.lchown(os.path.join(here, name), 65534, 65534)

        def drop():
            os.setgroups([])
            os.setgid(65534)
            os.setuid(65534)

        return {"preexec_fn": drop}

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
