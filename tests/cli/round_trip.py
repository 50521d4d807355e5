"""What goes in comes out: every kind of name, right, time and link, and nothing stays behind."""
import os
import pathlib
import subprocess
import zipfile

import support
from support import KmctlCase, make_tree, picture, put, text_of


def hard_tree(top):
    """All that is hard to carry."""
    make_tree(top, {
        "plain": "hello\n", "zero": "", "with blank and 'quotes' \"too\"": "b",
        "ünïcødé/日本/😀": "u", "new\nline": "n", "back\\slash;semi:colon,*?[x]": "s",
        "$HOME ${x} %d": "not a variable", "-dash": "d", "#{a=}\t\x01\x7f": "c", "n" * 255: "long", "ü" * 127: "long in bytes",
        "/".join(["d%02d" % i for i in range(40)]) + "/deep": "deep", "empty/": None,
        "empty of none/": None, "ro/in": "q", "ro/below/in": "q", "secret/in": "x",
        "link": ("plain",), "dangling": ("/no/such place",), "dirlink": ("ro",),
        "strange\nlink": ("a\nb ü",), "longlink": ("t" * 4000,),
    })
    raw = os.fsencode(top)
    for name in (b"latin\xe9", b"bad\xff\xfe\xc3", b"\xed\xa0\x80surrogate", b"\xf0\x9f"):
        put(os.path.join(raw, name), name)
    os.symlink(b"to\xff\xfe", os.path.join(raw, b"rawlink"))
    put(os.path.join(top, "binary"), bytes(range(256)) * 1000)
    for name, mode in (("plain", 0o644), ("zero", 0o600), ("-dash", 0o4755), ("binary", 0o2711)):
        os.chmod(os.path.join(top, name), mode)
    os.chmod(os.path.join(top, "with blank and 'quotes' \"too\""), 0o400)
    times = ("plain", 946684799_123456789), ("zero", -631152000_000000000), ("binary", 1)
    for name, ns in times + (("-dash", 4102444800_999999999),):
        os.utime(os.path.join(top, name), ns=(0, ns))
    os.utime(os.path.join(top, "link"), ns=(0, 1_500_000_000), follow_symlinks=False)
    os.chmod(os.path.join(top, "empty"), 0o1777)
    os.chmod(os.path.join(top, "empty of none"), 0o700)
    os.chmod(os.path.join(top, "ro/below"), 0o555)
    os.chmod(os.path.join(top, "ro"), 0o555)
    os.utime(os.path.join(top, "ro"), ns=(0, 5_000_000_007))
    os.chmod(os.path.join(top, "secret"), 0o500)
    if os.geteuid() == 0:  # others could not even pack it
        os.chmod(os.path.join(top, "secret/in"), 0)
        os.chmod(os.path.join(top, "secret"), 0)
        os.chown(os.path.join(top, "plain"), 12, 34)
        os.lchown(os.path.join(top, "dangling"), 56, 78)
    os.utime(top, ns=(0, 777_000_000_123))
    return top


class RoundTrip(KmctlCase):
    def round_trip(self, source, to, *options):
        package = self.build(source, "trip", "1.0", to, *options)
        before = picture(self.root)
        self.km("install", package)
        here = self.at(to) if to != "/" else self.root
        self.assert_same(picture(source), picture(here), "installed")
        self.km("check")
        self.km("remove", "trip")
        # A directory's time tells that something came and went; nothing else may.
        self.assert_same(picture(self.root, times=False), {
            path: one[:4] + one[5:] for path, one in before.items()
        }, "removed")
        self.assertEqual(self.leftovers(), [])

    def test_everything_that_is_hard_to_carry(self):
        self.round_trip(hard_tree(self.path("src")), "/opt/hard")

    def test_stored(self):
        self.round_trip(hard_tree(self.path("src")), "/opt/hard", "--stored")

    def test_directories_made_for_the_parents_go_and_those_of_others_stay(self):
        os.makedirs(self.at("/srv/kept/here"))
        source = make_tree(self.path("src"), {"a": "1", "kept/b": "2"})
        self.round_trip(source, "/srv/kept/here/and/new/ones")

    def test_into_the_root_itself(self):
        package = self.build({"etc/one": "1", "two": "2"}, to="/")
        os.mkdir(self.at("/etc"))
        os.chmod(self.root, 0o755)
        before = picture(self.root, times=False)
        self.km("install", package)
        self.assertEqual(self.read("/etc/one"), b"1")
        self.km("remove", "p")
        self.assert_same(before, picture(self.root, times=False))

    def test_links_in_the_root_do_not_lead_out_of_it(self):
        outside = make_tree(self.path("outside"), {"file": "mine"})
        os.symlink(outside, self.at("/opt"))
        os.symlink("../../../../../../.." + outside, self.at("/srv"))
        for to in ("/opt/sub", "/srv/sub"):
            self.km("install", self.build({"file": "theirs"}, to=to), code=None)
            self.km("remove", "p", "--force", code=None)
        self.assertEqual(os.listdir(outside), ["file"])
        self.assertEqual(text_of(os.path.join(outside, "file")), "mine")

    def test_other_programs_read_the_package(self):
        source = hard_tree(self.path("src"))
        package = self.build(source)
        with zipfile.ZipFile(package) as zip_:
            self.assertIsNone(zip_.testzip())
            names = zip_.namelist()
            contents = {zip_.read(name) for name in names[1:]}
            self.assertEqual(names[0], "SoftwarePackage")
        files = [os.path.join(here, name) for here, _, names in os.walk(os.fsencode(source))
                 for name in names if not os.path.islink(os.path.join(here, name))]
        self.assertEqual(len(names) - 1, len(files))
        self.assertEqual(contents, {pathlib.Path(os.fsdecode(path)).read_bytes() for path in files})
        for tool in (["unzip", "-tq"], ["zipinfo", "-v"]):
            try:
                done = subprocess.run(tool + [package], stdout=subprocess.PIPE)
            except FileNotFoundError:
                continue
            self.assertEqual(done.returncode, 0, done.stdout)

    def test_show_and_list_tell_what_there_is(self):
        package = self.build({"a": "12345", "l": ("a",), "s/b": "1"}, "p", "2.5", "/opt/p",
                             "--title", "Tïtle", "--set", "who=me", "--shared", "s/*")
        shown = {one["path"]: one for one in self.km_json("show", package, "--files")["files"]}
        self.assertEqual(set(shown), {"/opt/p" + x for x in ("", "/a", "/l", "/s", "/s/b")})
        self.assertEqual(shown["/opt/p/a"]["size"], 5)
        self.assertEqual(shown["/opt/p/l"]["target"], "a")
        self.assertEqual([p for p, one in shown.items() if one["shared"]], ["/opt/p/s/b"])
        self.assertIn("Tïtle", self.km("show", package).out)
        self.assertIn("who", self.km("show", package, "--variables").out)
        self.assertIn("KmAddFile", self.km("show", package, "--tree").out)
        self.km("install", package)
        for part in ("--files", "--tree", "--variables"):
            self.assertEqual(self.km("show", "p^2.5", part).code, 0)
        self.assertIn("p", self.km("list", "p*").out)
        self.assertEqual(self.km("list", "q*").out, "")
        self.assertIn("/opt/p/a", self.km("log", "p").out)

    def test_variables_in_the_destination(self):
        package = self.build({"a": "1"}, "p", "1.0", "/opt/$(where)/x", "--set", "where=default")
        self.km("install", package)
        self.assertEqual(self.read("/opt/default/x/a"), b"1")
        self.km("remove", "p")
        self.km("install", package, "-D", "where=given here")
        self.assertEqual(self.read("/opt/given here/x/a"), b"1")
        self.km("remove", "p")
        self.assertEqual(os.listdir(self.root), [])
        # A value that leads nowhere good is refused; nothing is put outside.
        for value in ("../../../../out", "", "."):
            self.km("install", package, "-D", "where=" + value, code=None)
            self.km("remove", "p", "--force", code=None)
            self.assertEqual(sorted(os.listdir(self.dir)),
                             sorted(set(os.listdir(self.dir)) - {"out"}))
        undefined = self.build({"a": "1"}, "u", "1.0", "/opt/$(no_such)/x")
        ended = self.km("install", undefined, code=1)
        self.assertIn("no_such", ended.err)
        self.assertEqual(self.km_json("list")["packages"], [])


class ChangedByTheUser(KmctlCase):
    def test_files_of_the_user_stay(self):
        self.km("install", self.build({"a": "1", "sub/b": "2"}))
        put(self.at("/opt/p/sub/mine"), "mine")
        ended = self.km("remove", "p")
        left = [b".", b"opt", b"opt/p", b"opt/p/sub", b"opt/p/sub/mine"]
        self.assertEqual(sorted(picture(self.root)), left, ended)
        self.assertIn("/opt/p/sub", ended.err)

    def test_a_directory_in_the_place_of_a_file_is_told_and_nothing_is_lost(self):
        package = self.build({"a": "1", "b": "2"})
        make_tree(self.at("/opt/p"), {"a/precious": "x"})
        before = picture(self.root)
        ended = self.km("install", package, code=1)
        self.assertIn("/opt/p/a", ended.err)
        self.assert_same(before, picture(self.root))
        self.assertEqual(self.km_json("list")["packages"], [])

    def test_a_file_in_the_place_of_a_directory_is_told(self):
        package = self.build({"a/b": "1"})
        make_tree(self.at("/opt/p"), {"a": "x"})
        before = picture(self.root)
        ended = self.km("install", package, code=1)
        self.assertIn("/opt/p/a", ended.err)
        self.assert_same(before, picture(self.root))


if __name__ == "__main__":
    support.main()
