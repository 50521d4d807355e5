"""Files that packages share, versions beside each other, and doing a thing twice."""
import os

import support
from support import KmctlCase, picture


class Sharing(KmctlCase):
    def shared(self, name, own, version="1.0"):
        return self.build({"lib/common": "common", "own-" + name: own}, name, version, "/opt/suite",
                          "--shared", "lib/*")

    def test_an_upgrade_leaves_what_another_package_holds(self):
        both = {"lib/common": "common", "own": "1"}
        self.km("install", self.build(both, "one", "1.0", "/opt/suite"))
        self.km("install", self.build({"lib/common": "common"}, "two", "1.0", "/opt/suite"))
        self.km("upgrade", self.build({"own": "2"}, "one", "1.1", "/opt/suite"))
        self.assertEqual(self.read("/opt/suite/lib/common"), b"common")
        self.km("verify", "two")
        self.km("undo", "one")
        self.assertEqual(self.read("/opt/suite/own"), b"1")
        self.km("verify", "one")

    def test_two_versions_of_a_name(self):
        old, new = self.shared("one", "1", "1.0"), self.shared("one", "2", "1.1")
        self.km("install", old)
        self.km("install", new)
        self.assertEqual([one["version"] for one in self.km_json("list")["packages"]],
                         ["1.0", "1.1"])
        ended = self.km("remove", "one", code=2)
        self.assertIn("one^1.0", ended.err)
        self.assertIn("one^1.1", ended.err)
        self.assertEqual(self.km("status", "one", code=2).out, "")
        self.km("remove", "one^1.0")
        self.assertEqual(self.read("/opt/suite/lib/common"), b"common")
        self.km("remove", "one")
        self.assertEqual(os.listdir(self.root), [])

    def test_versions_of_equal_worth_are_told_apart(self):
        self.km("install", self.build({"a": "1"}, "v", "1.0", "/opt/a"))
        self.km("install", self.build({"a": "1"}, "v", "1.00", "/opt/b"))
        self.km("remove", "v^1.00")
        self.assertTrue(os.path.exists(self.at("/opt/a/a")))
        self.assertFalse(os.path.exists(self.at("/opt/b")))

    def test_a_directory_of_two_packages_stays_until_the_last(self):
        self.km("install", self.build({"a": "1"}, "one", "1.0", "/opt/both"))
        self.km("install", self.build({"b": "1"}, "two", "1.0", "/opt/both"))
        self.km("remove", "one")
        self.assertEqual(os.listdir(self.at("/opt/both")), ["b"])
        self.km("remove", "two")
        self.assertEqual(os.listdir(self.root), [])
        self.assertFalse(os.path.exists(os.path.join(self.state, "work/made/left")))


class Twice(KmctlCase):
    def test_a_second_install_is_nothing_to_do(self):
        package = self.build({"a": "1"})
        self.km("install", package)
        before = picture(self.root), self.state_picture()
        told = self.km_json("install", package)
        self.assertEqual((told["outcome"], told["package"]["name"]), ("nothing", "p"))
        self.assertIn("already", self.km("install", package).out)
        self.assert_same(before[0], picture(self.root))
        self.assert_same(before[1], self.state_picture())

    def test_force_brings_back_what_is_missing(self):
        package = self.build({"a": "1", "s/b": "2", "l": ("a",)})
        self.km("install", package)
        before = picture(self.root, times=False)
        os.unlink(self.at("/opt/p/a"))
        os.unlink(self.at("/opt/p/l"))
        os.chmod(self.at("/opt/p/s/b"), 0o400)
        self.km("install", package, "--force")
        self.assert_same(before, picture(self.root, times=False))
        self.assertEqual(self.leftovers(), [])
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])

    def test_another_content_under_the_same_name_needs_force(self):
        self.km("install", self.build({"a": "1", "gone": "x"}))
        other = self.build({"a": "22", "new": "y"})
        os.utime(self.at("/opt/p/a"), ns=(0, 0))
        self.assertEqual(self.km_json("install", other)["outcome"], "nothing")
        self.km("install", other, "--force")
        self.assertEqual(self.read("/opt/p/a"), b"22")
        self.assertEqual(self.read("/opt/p/new"), b"y")


if __name__ == "__main__":
    support.main()
