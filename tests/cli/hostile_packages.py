"""Package files of strangers: whatever stands in one, the answer is exit 6 in one clear line, no
crash, bounded memory and time, and nothing changed."""
import hashlib
import io
import os
import random
import resource
import struct
import zipfile
import zlib

import support
from support import KmctlCase, bytes_of, picture, put

MARK = b"km package, sha256 "


def limited():
    """Bounded in memory, where the sanitizers' shadow does not forbid it."""
    if os.environ.get("KM_SANITIZED") != "1":
        resource.setrlimit(resource.RLIMIT_AS, (1 << 29, 1 << 29))
    resource.setrlimit(resource.RLIMIT_CPU, (30, 30))


def without_digest(data):
    """The same zip with an empty comment: only the checksums of the entries are left."""
    at = data.rindex(b"PK\5\6")
    return data[: at + 20] + b"\0\0"


def with_digest(data):
    """The same zip with a right digest, as somebody with bad intent would write it."""
    data = without_digest(data)
    data = data[:-2] + struct.pack("<H", len(MARK) + 64) + MARK
    return data + hashlib.sha256(data).hexdigest().encode()


def repacked(data, change, method=zipfile.ZIP_DEFLATED):
    """A good zip whose tree is changed by a function of its bytes."""
    out = io.BytesIO()
    with zipfile.ZipFile(io.BytesIO(data)) as old, zipfile.ZipFile(out, "w", method) as new:
        for one in old.namelist():
            content = old.read(one)
            new.writestr(one, change(content) if one == "SoftwarePackage" else content)
    return out.getvalue()


class HostileCase(KmctlCase):
    def setUp(self):
        super().setUp()
        files = {"a": "first\n" * 50, "b": os.urandom(300), "s/c": "x" * 4000, "l": ("a",)}
        self.file = self.build(files, "good", "1.0", "/opt/$(d)", "--set", "d=good")
        self.good = bytes_of(self.file)
        # A package that stands, so that there is something to spoil.
        self.km("install", self.build({"kept": "1"}, "kept"))
        self.before = picture(self.root), self.state_picture()

    def refused(self, data, note, why=""):
        path = self.path("bad.spb")
        put(path, data)
        ended = self.km("install", path, code=None, preexec_fn=limited, timeout=60)
        self.assertEqual(ended.code, 6, (note, ended))
        self.assertEqual(ended.out, "", note)
        self.assertEqual(ended.err.count("\n"), 1, (note, ended))
        self.assertIn(path, ended.err, note)
        self.assertIn(why, ended.err, note)
        self.assert_same(self.before[0], picture(self.root), note)
        self.assert_same(self.before[1], self.state_picture(), note)


class Damaged(HostileCase):
    def test_cut_anywhere(self):
        length = len(self.good)
        for at in sorted({0, 1, 4, 29, 30, 45, 46, 60, length - 1, length - 64, length - 84}
                         | set(range(0, length, length // 12))):
            self.refused(self.good[:at], "cut at %d" % at)

    def test_cut_without_digest(self):
        data = without_digest(self.good)
        for at in range(0, len(data), len(data) // 8):
            self.refused(data[:at], "cut at %d" % at)

    def test_something_behind_the_end(self):
        self.refused(self.good + b"x", "one byte more")
        self.refused(self.good + self.good, "twice")

    def test_flipped_bits(self):
        choice = random.Random(7)
        for at in sorted(choice.sample(range(len(self.good)), 30)):
            bad = bytearray(self.good)
            bad[at] ^= 1 << choice.randrange(8)
            self.refused(bytes(bad), "bit of byte %d flipped" % at)


class Crafted(HostileCase):
    def test_no_package_at_all(self):
        self.refused(b"", "empty")
        self.refused(b"\0" * 100000, "zeros")
        self.refused(b"#!/bin/sh\n" * 100, "text")
        self.refused(b"PK\5\6" + b"\0" * 18, "an empty zip")
        other = io.BytesIO()
        with zipfile.ZipFile(other, "w") as zip_:
            zip_.writestr("readme.txt", "hello")
        self.refused(other.getvalue(), "another zip")
        self.refused(with_digest(other.getvalue()), "another zip with a digest")
        os.mkdir(self.path("directory"))
        self.assertEqual(self.km("install", self.path("directory"), code=None).code, 6)
        os.mkfifo(self.path("pipe"))
        self.assertEqual(self.km("install", self.path("pipe"), code=None).code, 6)
        self.km("install", "/dev/zero", code=6)
        self.km("install", self.path("no such file"), code=3)

    def test_another_signature(self):
        for seal in (with_digest, without_digest):
            for new in (b"Ombrel Software Package v9.9 - SPB", b"X" * 34, b"\0" * 34):
                data = repacked(self.good, lambda tree: tree[:6] + new + tree[40:])
                self.refused(seal(data), new, "signature")

    def test_a_class_that_is_not_here(self):
        for old, new in ((b"KmAddFile", b"KmBadFile"), (b"KmAddLink", b"../evil/x"),
                         (b"com.ombrel.sd.cmObjects.KmFile", b"com.ombrel.sd.cmObjects.system")):
            with zipfile.ZipFile(self.file) as zip_:
                self.assertIn(old, zip_.read("SoftwarePackage"))
            self.refused(with_digest(repacked(self.good, lambda tree: tree.replace(old, new))), new)

    def test_lengths_that_lie(self):
        with zipfile.ZipFile(self.file) as zip_:
            length = len(zip_.read("SoftwarePackage"))
        for at in range(0, length - 4, max(1, length // 25)):
            def lie(tree):
                return tree[:at] + b"\x7f\xff\xff\xff" + tree[at + 4:]

            path = self.path("bad.spb")
            put(path, with_digest(repacked(self.good, lie)))
            ended = self.km("install", "-n", path, code=None, preexec_fn=limited, timeout=60)
            # A lie may also fall into a text, and make another, sound package.
            self.assertIn(ended.code, (0, 1, 6), (at, ended))
            self.assert_same(self.before[0], picture(self.root), at)

    def test_counts_and_texts_without_end(self):
        with zipfile.ZipFile(self.file) as zip_:
            tree = zip_.read("SoftwarePackage")
        text = tree.index(b"\0\4good")
        for note, bad in (
            ("a text of 2 GiB", tree[:text] + b"\xff\xff\x7f\xff\xff\xff" + tree[text + 2:]),
            ("zeros", tree[:60] + bytes(200_000_000)),
            ("ones", tree[:60] + b"\xff" * 200_000_000),
            ("texts", tree[:60] + b"\0\4good" * 30_000_000),
        ):
            self.refused(with_digest(repacked(self.good, lambda _: bad)), note)

    def test_a_directory_that_lies(self):
        """Fields that nobody needs may hold anything; a good file comes of it, or none."""
        data = without_digest(self.good)
        end = data.rindex(b"PK\5\6")
        entry = struct.unpack("<I", data[end + 16 : end + 20])[0]
        needed = {("end", 12), ("end", 16), ("entry", 16), ("entry", 24), ("entry", 28),
                  ("entry", 30), ("entry", 32), ("local", 8), ("local", 26), ("local", 28)}
        fields = {"end": (end, (4, 6, 8, 10, 12, 16)), "local": (0, (4, 6, 8, 10, 14, 18, 22, 26, 28)),
                  "entry": (entry, (4, 6, 8, 10, 12, 16, 20, 24, 28, 30, 32, 34, 42))}
        wide = {("end", 12), ("end", 16), ("local", 10), ("local", 14), ("local", 18), ("local", 22),
                ("entry", 12), ("entry", 16), ("entry", 20), ("entry", 24), ("entry", 42)}
        for name, (at, offsets) in fields.items():
            for offset in offsets:
                width = 4 if (name, offset) in wide else 2
                bad = bytearray(data)
                bad[at + offset : at + offset + width] = b"\xff" * width
                if (name, offset) in needed:
                    self.refused(bytes(bad), (name, offset))
                    continue
                path = self.path("bad.spb")
                put(path, bad)
                self.assertIn(self.km("show", path, code=None).code, (0, 6), (name, offset))

    def test_names_of_packages_that_lead_elsewhere(self):
        def renamed(tree):
            return tree.replace(b"good", b"../x")

        self.refused(with_digest(repacked(self.good, renamed)), "a path as a name")

    def test_the_good_one_still_goes(self):
        self.km("install", self.file)
        self.assertEqual(self.read("/opt/good/a"), b"first\n" * 50)
        path = self.path("plain.spb")
        put(path, without_digest(self.good))
        self.km("remove", "good")
        self.km("install", path)


if __name__ == "__main__":
    support.main()
