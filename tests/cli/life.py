"""The life of a package behind its install: prepare and commit, undo, upgrade, verify and repair;
states, words and trees at every step."""
import glob
import os
import threading
import time

import support
from support import KmctlCase, picture, put

FIRST = {"d/common": "one\n", "d/same": "same\n", "d/sub/onlyold": "old\n", "d/l": ("common",)}
SECOND = {"d/common": "two\n", "d/same": "same\n", "d/new/f": "new\n", "d/l": ("same",)}


class Life(KmctlCase):
    def setUp(self):
        super().setUp()
        self.one = self.build(FIRST, "p", "1")
        self.two = self.build(SECOND, "p", "2")

    def play(self, *steps):
        """Steps (words, exit code, letters by version or None, what the words hold)."""
        for words, code, letters, *texts in steps:
            words = words.format(one=self.one, two=self.two).split()
            ended = self.km(*words, code=code)
            for text in texts:
                self.assertIn(text, ended.out + ended.err, words)
            if letters is not None:
                listed = self.km_json("list")["packages"]
                self.assertEqual(" ".join(one["version"] + one["state"] for one in listed), letters,
                                 words)

    def edit(self, path="/opt/p/d/common", text="mine\n"):
        put(self.at(path), text, "a")

    def tree(self):
        """The root's own time apart: whatever is put into it changes that."""
        return {path: one for path, one in picture(self.root).items() if path != b"."}

    def assert_clean(self):
        """Nothing is left of a package but its log."""
        self.assertEqual(glob.glob(os.path.join(self.state, "work", "*", "p^*")), [])
        self.assertEqual(glob.glob(os.path.join(self.state, "backup", "UP*")), [])
        self.assertEqual(self.leftovers(), [])
        self.km("check")

    def test_an_edit_that_size_and_time_do_not_tell_is_found_by_an_upgrade(self):
        self.play(("install {one}", 0, "1IC---"))
        path = self.at("/opt/p/d/same")
        times = os.stat(path)
        put(path, "mine\n")
        os.utime(path, ns=(times.st_atime_ns, times.st_mtime_ns))
        self.play(("upgrade {two}", 0, "2ICU--", "kept in /opt/p/d/same.kmsave"),
                  ("verify p", 0, "2ICU--"))
        with open(path + ".kmsave") as kept:
            self.assertEqual(kept.read(), "mine\n")

    def test_a_prepared_undo_of_an_upgrade_brings_the_older_version_back(self):
        self.play(("install {one}", 0, "1IC---"))
        self.edit()
        before = self.tree()
        self.play(
            ("upgrade {two}", 0, "2ICU--", "kept in /opt/p/d/common.kmsave"),
            ("undo --prepare p", 0, "2ICR--", "prepared for its undo", "'kmctl commit'"),
            ("accept p", 5, "2ICR--", "nothing drops it", "'kmctl commit p^2'"),
            ("rollback p", 5, "2ICR--", "nothing drops it"),
            ("undo p", 5, "2ICR--", "'kmctl commit p^2'"),
            ("commit -n p", 0, "2ICR--", "bring back /opt/p/d/sub/onlyold", "remove /opt/p/d/new"),
            ("commit p", 0, "1IC---", "p^2 is undone", "Installed again: p^1"))
        self.assert_same(before, self.tree())
        self.play(("verify p", 100, "1IC--E"), ("remove p --force", 0, ""))

    def test_what_a_commit_says(self):
        before = self.tree()
        self.play(
            ("install {one} --transactional", 0, "1IP---", "prepared"),
            ("commit p", 0, "1IC---", "p^1 is installed"),
            ("remove p --transactional", 0, "1RP---", "prepared for its removal"),
            ("commit p", 0, "", "p^1 is removed"),
            ("install {one} --transactional --undo-at-commit", 0, "1IPP--"),
            ("commit p", 0, "1ICU--", "'kmctl undo' takes it back"),
            ("accept p", 0, "1IC---"),
            ("remove p --transactional --undoable", 0, "1RPU--"),
            ("commit p", 0, "1RCU--", "removed; 'kmctl undo' brings it back"),
            ("undo p --prepare", 0, "1RCR--", "prepared for its undo"),
            ("commit p", 0, "1IC---", "undone: it is installed again"),
            ("verify p", 0, "1IC---"),
            ("remove p --undoable", 0, "1RCU--"),
            ("undo p", 0, "1IC---", "installed again"),
            ("remove p", 0, ""))
        self.assert_same(before, self.tree())
        self.assert_clean()

    def test_a_file_that_a_user_edited(self):
        committed = ("'kmctl repair p^1'", "'kmctl remove --force p^1'")
        self.play(("install {one}", 0, "1IC---"))
        self.edit()
        self.play(
            ("verify p", 100, "1IC--E", "/opt/p/d/common: content", *committed),
            ("status p", 0, None, "what stands differs", *committed),
            ("remove p", 5, "1IC--E", *committed), ("remove p -n", 5, "1IC--E", *committed),
            ("accept p", 5, "1IC--E", *committed),
            ("upgrade {one}", 5, "1IC--E", *committed),
            ("upgrade {one} --force", 5, "1IC--E", *committed),
            # The newer version takes its place all the same, and undo brings this state back.
            ("upgrade {two} -n", 0, "1IC--E", "keep beside /opt/p/d/common"),
            ("upgrade {two}", 0, "2ICU--", "common.kmsave"), ("undo p", 0, "1IC--E"),
            ("repair p", 0, "1IC---", "1 object)"), ("repair p", 0, "1IC---", "nothing was to do"))
        self.edit()
        self.play(("verify p", 100, "1IC--E"), ("remove --force p", 0, "", "and stays"))
        self.assertEqual(self.read("/opt/p/d/common"), b"one\nmine\n")

    def test_a_file_that_a_user_edited_while_an_undo_is_possible(self):
        words = ("'kmctl undo p^1'", "install --force FILE")
        before = self.tree()
        self.play(("install {one} --undoable", 0, "1ICU--"))
        self.edit()
        told = self.km("verify", "p", code=100)
        self.assertNotIn("repair", told.err)
        self.play(("verify p", 100, "1ICU-E", *words), ("repair p", 5, "1ICU-E", *words),
                  ("accept p", 5, "1ICU-E", *words), ("undo p -n", 0, "1ICU-E"))
        os.truncate(self.at("/opt/p/d/common"), len("one\n"))
        self.play(("verify p", 0, "1ICU--"), ("accept p -n", 0, "1ICU--"))
        self.edit()
        self.play(("verify p", 100, "1ICU-E"), ("undo p", 0, ""))
        self.assert_same(before, self.tree())
        self.play(("install {one} --undoable", 0, "1ICU--"), ("undo p --prepare", 0, "1ICR--"))
        self.edit()
        self.play(("verify p", 100, "1ICR-E", "'kmctl commit p^1'"), ("commit p", 5, "1ICR-E"))
        os.truncate(self.at("/opt/p/d/common"), len("one\n"))
        self.play(("verify p", 0, "1ICR--"), ("commit p", 0, ""))
        self.assert_same(before, self.tree())

    def test_a_dry_run_is_refused_where_the_run_is(self):
        self.play(("install {one} --undoable", 0, "1ICU--"),
                  ("remove p -n", 5, "1ICU--", "'kmctl accept p^1'"),
                  ("remove p -n --intelligent", 0, "1ICU--"),
                  ("commit p -n", 5, "1ICU--"), ("rollback p -n", 5, "1ICU--"),
                  ("accept p", 0, "1IC---"), ("undo p -n", 5, "1IC---", "no backup"),
                  ("commit p", 5, "1IC---", "Nothing is prepared"),
                  ("install {two} --transactional", 0, "1IC--- 2IP---"),
                  ("upgrade {two} -n", 5, "1IC--- 2IP---", "'kmctl commit p^2'"))

    def test_plans_and_logs_say_what_is_so(self):
        self.play(("install {one}", 0, "1IC---"))
        told = self.km_json("upgrade", "-n", self.two)
        self.assertEqual({one["path"]: one["action"] for one in told["plan"]},
                         {"/opt/p/d/common": "replace", "/opt/p/d/l": "replace",
                          "/opt/p/d/new": "add", "/opt/p/d/new/f": "add",
                          "/opt/p/d/sub": "remove", "/opt/p/d/sub/onlyold": "remove"})
        self.assertEqual((told["package"]["name"], told["package"]["version"]), ("p", "2"))
        self.km("install", self.build({"d/common": "one\n"}, "q", "1"))
        told = self.km_json("remove", "-n", "p")
        plan = {one["path"]: one["action"] for one in told["plan"]}
        self.km_json("remove", "p")
        for path, action in plan.items():
            self.assertEqual(os.path.lexists(self.at(path)), action == "keep", path)
        self.assertEqual(plan["/opt/p/d/common"], "keep")
        self.assertIn("held", [one["id"] for one in told["messages"]])
        # The log of what is gone is found without its version, the latest first.
        self.assertIn('"p^1"', self.km("log", "p").out)
        self.play(("install {two}", 0, None), ("remove p", 0, None))
        self.assertIn('"p^2"', self.km("log", "p").out)
        self.assertEqual([one["package"] for one in self.km_json("history", "p")["operations"]],
                         ["p^2", "p^2"])
        self.km("log", "nothing", code=3)

    def test_a_repair_uses_what_the_install_did(self):
        """Values of -D and of the user's file; the very file, or one with the same data."""
        source = self.build({"a": "1", "b": "2"}, "v", "1", "$(base)/$(leaf)", "--set",
                            "base=/default", "--set", "leaf=x")
        os.makedirs(self.state, exist_ok=True)
        put(os.path.join(self.state, "znpis.var"), "leaf = mine\n")
        self.km("install", source, "-D", "base=/srv")
        os.unlink(os.path.join(self.state, "znpis.var"))
        before = self.tree()
        moved = self.path("moved.spb")
        os.rename(source, moved)
        other = self.build({"a": "other", "b": "2"}, "v", "1", "/srv/mine")
        for file, code, text in ((None, 1, "not the file that was installed"),
                                 (self.one, 2, "p^1"), ("/none", 3, "/none"), (moved, 0, "1 object)")):
            self.edit("/srv/mine/a")
            damaged = self.tree()
            ended = self.km("repair", "v", *(["--from", file] if file else []), code=code)
            self.assertIn(text, ended.out + ended.err)
            os.utime(self.at("/srv/mine"), ns=(0, before[b"srv/mine"][4]))
            self.assert_same(before if code == 0 else damaged, self.tree(), file)
        os.unlink(other)
        self.assertIn("--from", (self.edit("/srv/mine/b"), self.km("repair", "v", code=3))[1].err)
        self.km("remove", "v")  # a repair makes no user's change fair game
        self.assertEqual(self.read("/srv/mine/b"), b"2mine\n")

    def test_shared_files_keep_their_counts(self):
        """`check` compares the counts with the profiles behind every step."""
        def build(name, version, files):
            return self.build(files, name, version, "/opt/s", "--shared", "lib/*")

        a1, a2 = build("a", "1", {"lib/c": "1"}), build("a", "2", {"bin/x": "2"})
        b, b2 = build("b", "1", {"lib/c": "b"}), build("b", "2", {"lib/c": "b2"})
        for words, content in (
                (["install", a1], b"1"), (["install", b, "--undoable"], b"b"), (["undo", "b"], b"1"),
                (["install", b, "--transactional", "--undo-at-commit"], b"1"), (["commit", "b"], b"b"),
                (["undo", "b", "--prepare"], b"b"), (["commit", "b"], b"1"), (["install", b], b"b"),
                (["upgrade", a2], b"b"), (["undo", "a"], b"b"), (["upgrade", a2], b"b"),
                (["accept", "a"], b"b"), (["upgrade", b2], b"b2"), (["undo", "b"], b"b"),
                (["remove", "b", "--undoable"], None), (["undo", "b"], b"b"),
                (["remove", "b", "--transactional"], b"b"), (["rollback", "b"], b"b"),
                (["remove", "a"], b"b"), (["remove", "b"], None)):
            self.km(*words)
            self.km("check")
            self.assertEqual(self.read("/opt/s/lib/c") if content else None, content, words)
            self.assertEqual(os.path.exists(self.at("/opt/s/lib/c")), bool(content), words)
        self.assertEqual(os.listdir(self.root), [])

    def test_a_delta_is_prepared_and_committed(self):
        delta = self.path("delta.spb")
        self.km("delta", self.one, self.two, "-o", delta)
        self.play(("install {one}", 0, "1IC---"))
        before = self.tree()
        self.play((f"install {delta} --transactional --undo-at-commit", 0, "1IC--- 2IPP--"),
                  ("rollback p^2", 0, "1IC---"))
        self.assert_same({path: one for path, one in before.items() if one[0] != 0o040000},
                         {path: one for path, one in self.tree().items() if one[0] != 0o040000})
        self.play((f"install {delta} --transactional --undo-at-commit", 0, "1IC--- 2IPP--"),
                  ("commit p^2", 0, "1IC--- 2ICU--"), ("verify p^2", 0, None),
                  ("accept p^2", 0, "1IC--- 2IC---"))
        for path in ("d/common", "d/same", "d/new/f"):
            self.assertEqual(self.read("/opt/p/" + path).decode(), SECOND[path])
        # The file of the whole version mends what the delta left out.
        self.edit("/opt/p/d/same")
        self.play((f"repair p^2 --from {delta}", 1, None, "d/same"),
                  ("repair p^2 --from {two}", 0, None), ("verify p^2", 0, None))
        self.edit("/opt/p/d/common")
        os.unlink(self.one)
        self.play(("upgrade {two} --force", 0, None, "nothing was to do"))

    def test_a_backup_needs_a_directory(self):
        self.km("config", "set", "backup_dir", "")
        before = self.tree()
        self.play(("install {one} --undoable", 1, "", "backup_dir is empty"),
                  ("install {one} --preferably-undoable", 0, "1IC---"), ("remove p", 0, ""))
        self.assert_same(before, self.tree())


class ManyFiles(KmctlCase):
    """Enough of them that a second thread reads some of them ahead."""

    FILES = ["d%d/f%03d" % (i // 60, i) for i in range(360)]

    def setUp(self):
        super().setUp()
        self.one = self.build({name: "content of " + name for name in self.FILES}, "p", "1")
        self.two = self.build({name: ("CONTENT" if i % 2 else "content") + " of " + name
                               for i, name in enumerate(self.FILES)}, "p", "2")
        self.km("install", self.one)
        time.sleep(3.1)  # what changed a moment ago is always read again

    def spoil(self, name):
        """Only the bytes tell: size and time of modification stay."""
        path = self.at("/opt/p/" + name)
        about = os.stat(path)
        with open(path, "r+b") as file:
            file.write(b"C")
        os.utime(path, ns=(about.st_atime_ns, about.st_mtime_ns))

    def test_verify_finds_each_difference_and_repair_mends_it(self):
        whole = self.picture_of_files()
        chosen = [self.FILES[i] for i in (0, 62, 63, 64, 65, 180, 358, 359)]
        for name in chosen:
            self.spoil(name)
        time.sleep(3.1)
        for _ in range(5):  # the two threads meet elsewhere each time
            told = self.km("verify", "p", code=100).out
            for name in self.FILES:
                self.assertEqual("/opt/p/%s: content" % name in told, name in chosen, name)
        self.km("repair", "p")
        self.km("verify", "p")
        self.assert_same(whole, self.picture_of_files())

    def test_what_stands_in_the_place_of_a_file_is_no_file(self):
        for name, make in ((self.FILES[70], os.mkdir), (self.FILES[340], os.mkfifo),
                           (self.FILES[355], lambda path: os.symlink("f000", path))):
            os.unlink(self.at("/opt/p/" + name))
            make(self.at("/opt/p/" + name))
        fifo = self.at("/opt/p/" + self.FILES[340])
        writer = threading.Thread(target=lambda: os.close(os.open(fifo, os.O_WRONLY)))
        writer.start()
        told = self.km("verify", "p", code=100).out
        time.sleep(0.2)
        still_waits = writer.is_alive()  # nobody opened what is no file
        os.close(os.open(fifo, os.O_RDONLY | os.O_NONBLOCK))
        writer.join(10)
        self.assertEqual(told.count("/opt/p/"), 3, told)
        self.assertTrue(still_waits)

    def test_upgrade_and_undo_take_what_was_read_ahead_for_what_it_is(self):
        for name in self.FILES[10:350:20]:
            self.spoil(name)
        before = self.picture_of_files()
        time.sleep(3.1)
        self.km("upgrade", self.two)
        for i, name in enumerate(self.FILES):
            text = ("CONTENT" if i % 2 else "content") + " of " + name
            self.assertEqual(self.read("/opt/p/" + name), text.encode(), name)
        self.km("undo", "p")
        self.assert_same(before, self.picture_of_files())

    def picture_of_files(self):
        """A directory tells when something in it was put anew."""
        return {path: one for path, one in picture(self.at("/opt/p")).items() if b"/" in path}


if __name__ == "__main__":
    support.main()
