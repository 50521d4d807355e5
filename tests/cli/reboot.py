"""Packages that ask for a reboot: each operation stops where they say, and goes on behind it."""
import itertools
import os
import shutil

import support
from support import KmctlCase, differences, picture

DEFINITION = """kmspd 1.0
package {
  name = rb
  version = 1
  add_file { path = /a/one source = one }
  restart { during_install = %(install)s during_remove = %(remove)s
            during_undo = %(undo)s during_commit = %(commit)s }
  add_file { path = /a/two source = two }
}
"""


class Reboot(KmctlCase):
    boots = 0

    def boot(self):
        self.boots += 1
        with open(self.path("boot"), "w") as file:
            file.write("boot %d\n" % self.boots)
        os.environ["KMCTL_BOOT_ID_FILE"] = self.path("boot")

    def start_anew(self):
        for one in (self.root, self.state):
            shutil.rmtree(one, ignore_errors=True)
        os.mkdir(self.root)
        self.boot()

    def built(self, **when):
        wanted = dict.fromkeys(("install", "remove", "undo", "commit"), "none")
        wanted.update(when)
        support.make_tree(self.path("sources"), {"one": "1", "two": "2", "d.spd": DEFINITION % wanted})
        output = self.path("rb.spb")
        self.km("build", self.path("sources", "d.spd"), "-o", output)
        return output

    def stopped(self, *words):
        """Runs what stops for a reboot; without one nothing goes on, with one it does."""
        ended = self.km(*words, "--reboot-exit-code", code=4)
        self.assertIn("resume", ended.out)
        before = picture(self.root)
        self.km("resume")
        self.assertEqual(differences(before, picture(self.root)), [])
        self.assertEqual(self.km("check").code, 0)
        self.boot()
        self.km("resume")
        self.assertEqual(self.km("check").code, 0)

    def there(self):
        base = self.at("/a")
        return sorted(os.listdir(base)) if os.path.isdir(base) else []

    def test_every_operation_goes_on(self):
        for option, mode in itertools.product(("after", "immediately"), ("", "--undoable")):
            with self.subTest(option=option, mode=mode):
                self.start_anew()
                package = self.built(install=option, remove=option, undo=option)
                words = [mode] if mode else []
                self.stopped("install", package, *words)
                self.assertEqual(self.there(), ["one", "two"])
                self.km("verify", "rb")
                if mode:
                    self.stopped("undo", "rb")
                else:
                    self.stopped("remove", "rb")
                self.assertEqual(self.there(), [])
                self.assertEqual(self.km_json("list")["packages"], [])

    def test_what_comes_before_the_reboot_and_what_behind(self):
        for option, standing in (("after", ["one", "two"]), ("immediately", ["one"])):
            with self.subTest(option=option):
                self.boot()
                package = self.built(install=option)
                self.km("install", package, "--reboot-exit-code", code=4)
                self.assertEqual(self.there(), standing)
                self.assertIn("reboot", self.km("remove", "rb", code=5).err)
                self.boot()
                self.km("resume", "rb")
                self.km("remove", "rb")

    def test_a_commit_goes_on(self):
        self.boot()
        package = self.built(commit="after")
        self.km("install", package, "--transactional")
        self.assertEqual(self.there(), [])
        self.stopped("commit", "rb")
        self.assertEqual(self.there(), ["one", "two"])
        self.km("verify", "rb")

    def test_a_note_that_cannot_be_written_is_told(self):
        self.boot()
        package = self.built(install="after")
        os.makedirs(os.path.join(self.state, "work"))
        open(os.path.join(self.state, "work", "reboot"), "w").close()
        ended = self.km("install", package, "--reboot-exit-code", code=4)
        self.assertIn("could not be noted", ended.err)

    def test_a_lost_note_lets_it_wait(self):
        self.boot()
        self.km("install", self.built(install="after"), "--reboot-exit-code", code=4)
        note = os.path.join(self.state, "work", "reboot", "rb^1")
        self.assertTrue(os.path.exists(note))
        open(note, "w").close()
        self.boot()
        self.assertIn("reboot", self.km("resume").err)


if __name__ == "__main__":
    support.main()
