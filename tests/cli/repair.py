"""A damaged state: nothing is changed until somebody asks for it, and what was lost is told."""
import os
import shutil

import support
from support import KmctlCase, bytes_of, picture, put


class Repair(KmctlCase):
    def setUp(self):
        super().setUp()
        self.package = self.build({"a": "1", "lib/c": "2"}, "p", "1.0", "/opt/p", "--shared", "lib/*")
        self.km("install", self.package)
        self.catalog = os.path.join(self.state, "catalog", "packages.pht")

    def spoil(self, change):
        data = bytes_of(self.catalog)
        put(self.catalog, change(data))

    def test_a_damaged_catalog(self):
        kept = os.path.join(self.dir, "kept")
        shutil.copytree(self.state, kept, copy_function=shutil.copy2)
        for note, change in (("cut", lambda d: d[:300]), ("cut early", lambda d: d[:5]),
                             ("zeros", lambda d: bytes(len(d))), ("text", lambda d: b"hello" * 100),
                             ("lengths", lambda d: d[:12] + b"\x7f\xff\xff\xff" * 20 + d[92:])):
            self.spoil(change)
            before = picture(self.root), self.state_picture()
            damaged = bytes_of(self.catalog)
            for words in (["list"], ["install", self.package], ["remove", "p"], ["check"]):
                ended = self.km(*words, code=1)
                self.assertIn("check --repair", ended.err, (note, words))
            self.assert_same(before[0], picture(self.root), note)
            self.assert_same(before[1], self.state_picture(), note)
            told = self.km_json("check", "--repair")
            texts = [one["text"] for one in told["messages"] if one["severity"] == "warning"]
            self.assertTrue(any("p^1.0" in text for text in texts), (note, told))
            self.assertEqual(bytes_of(self.catalog + ".damaged"), damaged, note)
            self.assertEqual(self.km_json("list")["packages"], [], note)
            # What the words advise makes the package known, and removable, again.
            self.km("install", self.package, "--force")
            self.km("check")
            self.assert_same(before[0], picture(self.root), note)
            self.km("remove", "p")
            self.assertEqual(os.listdir(self.root), [], note)
            shutil.rmtree(self.state)
            shutil.copytree(kept, self.state, copy_function=shutil.copy2)
            self.km("install", self.package, "--force")

    def test_a_repair_of_what_is_whole_changes_nothing(self):
        before = picture(self.root), self.state_picture()
        self.km("check", "--repair")
        self.assert_same(before[0], picture(self.root))
        self.assert_same(before[1], self.state_picture())

    def test_a_damaged_profile(self):
        work = os.path.join(self.state, "work")
        profile = os.path.join(work, next(n for n in os.listdir(work) if n.startswith("PP")))
        whole = bytes_of(profile)
        before = picture(self.root)
        for spoilt in (whole[:-100], whole[:200], whole[:300] + b"????" + whole[304:], b""):
            put(profile, spoilt)
            ended = self.km("remove", "p", code=1)
            self.assertIn(profile, ended.err)
            self.assert_same(before, picture(self.root))
            # It had not begun: nothing waits to be gone on with.
            self.assertEqual(os.listdir(os.path.join(work, "intent")), [])
        self.km("install", self.package, "--force")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])

    def test_damaged_counts(self):
        table = os.path.join(self.state, "catalog", "rct.tme")
        backup = os.path.join(self.state, "catalog", "rctbak.tme")
        other = self.build({"lib/c": "2"}, "q", "1.0", "/opt/p", "--shared", "lib/*")
        self.km("install", other)
        shutil.copy(table, backup)
        put(table, b"nothing of a table")
        self.km("remove", "q")  # the backup serves
        self.assertEqual(self.read("/opt/p/lib/c"), b"2")
        self.km("install", other)
        for name in (table, backup):
            put(name, b"nothing of a table")
        ended = self.km("remove", "p", code=1)
        self.assertIn("check --repair", ended.err)
        self.km("check", "--repair")
        self.km("remove", "p")
        self.assertEqual(self.read("/opt/p/lib/c"), b"2")  # q has it, too
        self.km("remove", "q")
        self.assertEqual(os.listdir(self.root), [])

    def test_a_profile_that_is_gone(self):
        os.unlink(self.km_json("status", "p")["profile"])
        self.assertIn("profile", self.km("check", code=1).err)
        self.assertIn("--force", self.km("remove", "p", code=1).err)
        self.km("install", self.package, "--force")
        self.km("check")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])


if __name__ == "__main__":
    support.main()
