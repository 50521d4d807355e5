"""What packages of text definitions put in place, and how the parts of one package get on."""
import os

import support
from support import KmctlCase, differences, picture, put, text_of

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


class Variables(DefinedObjects):
    BODY = """
      add_line { path = /etc/r text = "r $(role)" create = y }
      add_file { path = /etc/s source = conf condition = '$(role) == "server"' }
      add_file { path = /etc/v source = conf condition = '$(v) == 2' }
    """

    def versions(self):
        body = self.BODY.replace("add_line", "default_variables { v = %s role = client } add_line")
        head = HEAD.replace("  default_variables { v = 1.0 }\n", "").replace("$(v)", "%s")
        made = []
        for version in ("1", "2"):
            support.make_tree(self.dir, {"p.spd": head % (version, body % version), "conf": "c\n"})
            made.append(self.path("p%s.spb" % version))
            self.km("build", "p.spd", "-o", made[-1])
        return made

    def test_each_version_has_its_own(self):
        first, second = self.versions()
        self.km("install", first)
        self.assertEqual(os.listdir(self.at("/etc")), ["r"])
        self.km("upgrade", second)
        self.assertEqual(sorted(os.listdir(self.at("/etc"))), ["r", "v"])
        self.assertIn("v=2 ", self.km("show", "p^2", "--variables").out)
        self.km("undo", "p")
        self.assertIn("v=1 ", self.km("show", "p^1", "--variables").out)

    def test_faults_of_their_file(self):
        package = self.versions()[0]
        file = os.path.join(self.state, "znpis.var")
        os.makedirs(self.state)
        put(file, "role = x\n".encode("utf-16-le"))
        self.assertIn(file + ":1:1: error: The text looks like UTF-16. Save it as UTF-8.",
                      self.km("install", package, code=6).err)
        for text, place in ((b"role = x\ncut", ":2:1"), ("role = \u00e4".encode("latin-1"), ":1:8"),
                            ("a = 1\n".encode("utf-16"), ":1:1"), (b"a = b\0c", ":1:6"),
                            (b"a = " + b"x" * (10 << 20), ":1:1"), (b"x" * (10 << 20), ":1:1"),
                            (b"#\na = $(b)\n b = 1$(c)\nc=$(a)", ":2:1")):
            put(file, text)
            self.assertIn(file + place, self.km("install", package, code=6).err)
        put(file, "# mine\n\nrole = server\nother = $(role)/$(role)\n")
        self.km("install", package)
        self.assertEqual(self.read("/etc/r"), b"r server\n")

    def test_a_repair_has_those_of_the_install(self):
        self.km("install", self.versions()[0], "-D", "role=server")
        for path in ("/etc/s", "/etc/r"):
            os.unlink(self.at(path))
        self.km("repair", "p")
        self.assertEqual((self.read("/etc/s"), self.read("/etc/r")), (b"c\n", b"r server\n"))
        self.assertIn("role=server ", self.km("show", "p", "--variables").out)
        self.km("verify", "p")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])


class FilesAndDirectories(DefinedObjects):
    def test_what_lay_beside_a_kept_file_comes_back(self):
        body = "add_kept_file { path = /etc/p.conf source = conf mode = 0644 }"
        versions = [self.defined(body, v, {"conf": "v%s\n" % v}) for v in "123"]
        self.km("install", versions[0])
        self.write("/etc/p.conf", "mine\n")
        self.km("upgrade", versions[1])
        self.km("accept", "p")
        before = picture(self.root, times=False)
        for words in (("upgrade", versions[2]), ("remove", "p", "--undoable")):
            self.km(*words)
            self.assertNotEqual(differences(before, picture(self.root, times=False)), [])
            self.km("undo", "p")
            self.assertEqual(differences(before, picture(self.root, times=False)), [], words)
        self.assertEqual(self.read("/etc/p.conf.kmnew"), b"v2\n")

    def test_a_kept_file_is_removed_where_a_version_brought_it(self):
        adds = self.defined("add_kept_file { path = /etc/p.conf source = conf }", "1", {"conf": "one\n"})
        removes = self.defined("remove_kept_file { path = /etc/p.conf }", "2")
        for text, left in (("one\n", False), ("mine\n", True)):
            self.km("install", adds)
            self.write("/etc/p.conf", text)
            self.km("install", removes, "--undoable")
            self.assertEqual(os.path.exists(self.at("/etc/p.conf")), left)
            self.km("undo", "p^2")
            self.assertEqual(self.read("/etc/p.conf").decode(), text)
            self.km("remove", "p^1")

    def test_missing_parents_are_made_and_go_again(self):
        package = self.defined("""
          add_file { path = /x/y/f source = conf }
          add_line { path = /l/m/g text = t create = y }
          add_ini_item { path = /i/j/k section = s key = a value = b create = y }
          add_token { path = /t/m/g name = P token = t create = y }
          add_link { path = /n/o/l target = /x }
        """, "1", {"conf": "a\n"})
        self.km("install", package, "--undoable")
        self.km("verify", "p")
        self.km("undo", "p")
        self.assertEqual(os.listdir(self.root), [])
        self.km("install", package)
        os.mkdir(self.at("/l/mine"))
        self.km("remove", "p")
        self.assertEqual(sorted(picture(self.root)), [b".", b"l", b"l/mine"])

    def test_containers(self):
        package = self.defined("""
          add_container { path = /opt/d mode = 0750
            add_file { path = f source = conf }
            add_container { path = in add_link { path = l target = f } } }
          remove_container { path = /old remove_file { path = a } remove_link { path = b target = a } }
        """, "1", {"conf": "a\n"})
        support.make_tree(self.root, {"old/a": "x", "old/b": ("a",)})
        before = picture(self.root, times=False)
        self.km("export", package, "-o", "e.spd", "--files", "data")
        self.km("build", "e.spd", "-o", "e.spb")
        self.assertEqual(self.km("show", "--tree", package).out, self.km("show", "--tree", "e.spb").out)
        self.km("install", "e.spb", "--undoable")
        self.km("verify", "p")
        there = [b".", b"opt", b"opt/d", b"opt/d/f", b"opt/d/in", b"opt/d/in/l"]
        self.assertEqual(sorted(picture(self.root)), there)
        self.assertEqual(os.stat(self.at("/opt/d")).st_mode & 0o777, 0o750)
        self.km("undo", "p")
        self.assertEqual(differences(before, picture(self.root, times=False)), [])


class ProgramsOfThePackage(DefinedObjects):
    def program(self, caption, more=""):
        """A script of the package, which writes what it is told into "log"."""
        words = ["caption = %s" % caption]
        for part in ("install", "remove", "undo"):
            words += ["%s_path = bin/run.sh" % part, '%s_arguments = "%s $(v)"' % (part, caption)]
        return """user_program { %s %s corequisite_files {
          add_file { path = bin/run.sh source = run.sh mode = 0755 }
          add_file { path = word source = word } } }""" % (" ".join(words), more)

    def made(self, version, *programs):
        script = ("#!/bin/sh\n[ $KM_PHASE$KM_RERUN = commit0 ] || exit 9\n"
                  "echo $1 $2 $KM_OPERATION $KM_ACTION $KM_PACKAGE $(cat $KM_FILES/word) >> %s\n")
        return self.defined("\n".join(programs), version,
                            {"run.sh": script % self.path("log"), "word": "w" + version})

    def command(self, *words):  # without a root of its own, which a shell would have to be in
        return [support.KMCTL, "--state", self.state, *words]

    def told(self):
        """What ran since the last call; in the end nothing may be left."""
        if not os.path.exists(self.path("log")):
            return []
        lines = text_of(self.path("log")).splitlines()
        os.unlink(self.path("log"))
        return lines

    def files(self):
        top = os.path.join(self.state, "work", "corequisites")
        return sorted(name for name in (os.listdir(top) if os.path.isdir(top) else []))

    def test_a_script_of_the_package_lives_as_long_as_the_package(self):
        package = self.made("1", self.program("one"))
        self.km("install", package, "--undoable")
        self.assertEqual(self.told(), ["one 1 install install p^1 w1"])
        self.km("undo", "p")
        self.assertEqual(self.told(), ["one 1 undo install p^1 w1"])
        self.assertEqual(self.files(), [])
        self.km("install", package, "--transactional")
        self.assertEqual((self.told(), self.files()), ([], ["p^1"]))
        self.km("commit", "p")
        self.assertEqual(self.told(), ["one 1 commit install p^1 w1"])
        self.km("remove", "p", "--undoable")
        self.km("undo", "p")
        self.km("remove", "p")
        self.assertEqual(self.told(), ["one 1 remove remove p^1 w1", "one 1 undo install p^1 w1",
                                       "one 1 remove remove p^1 w1"])
        self.assertEqual(self.files(), [])

    def test_an_upgrade_runs_the_remove_programs_of_what_goes(self):
        gone = "add_file { path = %s source = word }" % self.path("gone")
        own = "remove_file { path = %s }" % self.path("own")
        first = self.made("1", self.program("both"), self.program("only"), gone)
        second = self.made("2", self.program("both"), own)
        self.km("install", first)
        self.told()
        self.assertIn("run bin/run.sh only 1 (only)", self.km("upgrade", second, "-n").out)
        self.km("upgrade", second)
        upgraded = ["both 2 install install p^2 w2", "only 1 remove remove p^1 w1"]
        self.assertEqual(self.told(), upgraded)
        for package, text in (("p", "installed"), (second, "file")):
            self.km("export", package, "-o", text)
        blocks = [[line for line in text_of(self.path(text)).splitlines() if line.endswith("{")]
                  for text in ("installed", "file")]
        self.assertEqual(*blocks)
        self.assertIn("  remove_file {", blocks[0])
        self.km("undo", "p")
        undone = ["only 1 undo install p^1 w1", "both 2 undo install p^2 w2",
                  "both 1 undo install p^1 w1"]
        self.assertEqual(self.told(), undone)
        self.assertEqual(self.files(), ["p^1"])
        self.km("upgrade", second)
        self.assertEqual((self.told(), self.files()), (upgraded, ["p^1", "p^2"]))
        self.km("accept", "p")
        self.assertEqual(self.files(), ["p^2"])
        self.km("remove", "p")
        self.assertEqual((self.told(), self.files()), (["both 2 remove remove p^2 w2"], []))

    def test_what_a_definition_must_not_say(self):
        for block in ("install_path = run.sh",
                      "install_path = run.sh corequisite_files { add_file { path = ../run.sh } }",
                      "install_path = a corequisite_files { add_file { path = a } add_file { path = a } }",
                      "corequisite_files { add_file { path = /a } }"):
            self.defined("user_program { %s }" % block, code=6)


if __name__ == "__main__":
    support.main()
