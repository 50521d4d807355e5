"""What is large: the machine's headers, a file of 300 MB, 20,000 files."""
import os
import random
import subprocess
import unittest

import support
from support import KmctlCase, make_tree, picture


class Large(KmctlCase):
    def round_trip(self, source, *options):
        out = self.path("large.spb")
        self.km("build", source, "--name", "large", "--version", "1.0", "--to", "/opt/large", "-o", out,
                *options, timeout=600)
        self.install_in_bounded_memory(out)
        self.assert_same(picture(source), picture(self.at("/opt/large")))
        self.assertEqual(self.km_json("install", out, timeout=600)["outcome"], "nothing")
        self.km("remove", "large", timeout=600)
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.leftovers(), [])

    def install_in_bounded_memory(self, package):
        with open(self.path("told"), "wb") as told:
            process = subprocess.Popen(self.command("install", package), stdout=told, stderr=told,
                                       env=self.environment(), cwd=self.dir)
            _, status, used = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        with open(self.path("told")) as told:
            self.assertEqual(process.returncode, 0, told.read())
        if os.environ.get("KM_SANITIZED") != "1":
            self.assertLess(used.ru_maxrss, 64 << 10, "KiB at most while it installs")

    @unittest.skipUnless(os.path.isdir("/usr/include"), "no headers here")
    def test_the_headers_of_this_machine(self):
        copy = self.path("include")
        subprocess.run(["cp", "-a", "/usr/include", copy], check=True)
        self.round_trip(copy)

    def test_300_megabytes(self):
        source = make_tree(self.path("src"), {"small": "1"})
        block = random.Random(1).randbytes(1 << 20)
        with open(os.path.join(source, "big"), "wb") as file:
            for i in range(300):
                file.write(block[i:] + block[:i])
        self.round_trip(source)

    def test_20000_files(self):
        source = self.path("src")
        for i in range(200):
            make_tree(source, {"d%03d/f%03d" % (i, k): "%d %d" % (i, k) for k in range(100)})
        self.round_trip(source)


if __name__ == "__main__":
    support.main()
