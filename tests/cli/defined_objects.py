"""What packages of text definitions put in place, and how the parts of one package get on."""
import os

import support
from support import KmctlCase, differences, picture

HEAD = 'kmspd 1.0\npackage {\n  name = p\n  version = "$(v)"\n  default_variables { v = 1.0 }\n%s\n}\n'


class DefinedObjects(KmctlCase):
    def defined(self, body, version="1.0", files=None, code=0):
        """A package file of a definition."""
        support.make_tree(self.dir, {"p.spd": HEAD % body, **(files or {})})
        out = self.path("p-%s.spb" % version)
        self.km("build", "p.spd", "-o", out, "--set", "v=" + version, code=code)
        return out

    def write(self, path, text):
        support.make_tree(self.root, {path.lstrip("/"): text})


class TextsInOwnFiles(DefinedObjects):
    FILES = """
      add_file { path = /etc/app.conf source = conf mode = 0644 }
      add_kept_file { path = /etc/kept.conf source = conf mode = 0644 }
      add_ini_item { path = /etc/app.conf section = s key = k value = v }
    """
    LINES = """
      add_line { path = /etc/app.conf text = extra }
      add_token { path = /etc/app.conf name = PATH token = /x }
      add_line { path = /etc/kept.conf text = extra }
    """

    def versions(self):
        first = self.defined(self.FILES + self.LINES, "1.0", {"conf": "a=1\n"})
        second = self.defined(self.FILES + self.LINES, "2.0", {"conf": "a=1\nb=2\n"})
        return first, second, self.defined(self.FILES, "3.0")

    def test_they_are_no_difference_and_a_repair_keeps_them(self):
        self.km("install", self.versions()[0])
        whole = self.read("/etc/app.conf")
        self.assertEqual(whole, b"a=1\n[s]\nk=v\nextra\nPATH=/x\n")
        self.km("verify", "p")
        for changed in (b"a=1\n[s]\nk=v\nPATH=/x\n", b"a=2\n[s]\nk=v\nextra\nPATH=/x\n", None):
            with self.subTest(changed=changed):
                if changed is None:
                    os.unlink(self.at("/etc/app.conf"))
                else:
                    self.write("/etc/app.conf", changed)
                self.km("verify", "p", code=100)
                self.km("repair", "p")
                self.assertEqual(sorted(self.read("/etc/app.conf").split()), sorted(whole.split()))
                self.km("verify", "p")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])

    def test_through_upgrades_and_their_undo(self):
        first, second, third = self.versions()
        self.km("install", first)
        for package, lines in ((second, b"extra\n"), (third, b"")):
            before = picture(self.root, times=False)
            self.assertNotIn("kmnew", self.km("upgrade", package).err)
            self.km("verify", "p")
            self.assertEqual(self.read("/etc/kept.conf"), b"a=1\nb=2\n" + lines)
            self.km("undo", "p")
            self.assertEqual(differences(before, picture(self.root, times=False)), [])
            self.km("verify", "p")
            self.km("upgrade", package)
            self.km("accept", "p")
        self.assertEqual(sorted(os.listdir(self.at("/etc"))), ["app.conf", "kept.conf"])
        self.km("remove", "p", "--undoable")
        self.assertEqual(os.listdir(self.root), [])
        self.km("undo", "p")
        self.km("verify", "p")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])


if __name__ == "__main__":
    support.main()
