"""The log of all runs: what it says, and that no trouble with it is a trouble of the command."""
import os
import re
import resource

import support
from support import KmctlCase, put

LINE = re.compile(r"[A-Z][a-z]{2} [0-9]{2} [0-9:]{8} ([123]) kmctl [0-9]+ (.*)")


class LogFile(KmctlCase):
    def setUp(self):
        super().setUp()
        self.package = self.build({"a": "first\n", "s/b": "second\n"})
        self.log = os.path.join(self.state, "log", "kmctl.log")

    def lines(self, name="kmctl.log"):
        with open(os.path.join(self.state, "log", name)) as file:
            return [LINE.fullmatch(line).groups() for line in file.read().splitlines()
                    if line and not line.startswith("-- ")]

    def test_beginning_end_and_trouble_of_every_change(self):
        self.km("install", self.package)
        self.km("list")
        self.km("config", "get", "trace_level")
        self.km("install", self.package, "-n")
        self.km("remove", "none\nNov 21 12:00:00 1 kmctl 1 a line of nobody", code=3)
        lines = self.lines()
        self.assertEqual(lines[:2], [("3", "install %s begins" % self.package),
                                     ("3", "install %s ended: done, exit code 0, p^1.0 %s"
                                      % (self.package, self.letters("p")))])
        self.assertRegex(lines[2][1], "^remove none Nov .* begins$")
        self.assertEqual((lines[3][0], len(lines)), ("1", 5), lines)
        self.assertRegex(lines[4][1], "ended: failed, exit code 3$")

    def test_a_worker_that_dies_is_told(self):
        big = self.build({"big": os.urandom(300_000)}, "big")

        def limit():  # the worker is ended by SIGXFSZ
            resource.setrlimit(resource.RLIMIT_FSIZE, (200_000, 200_000))

        self.km("install", big, code=10, preexec_fn=limit)
        self.assertIn(("1", "install %s: internal error, the worker ended early" % big), self.lines())
        self.assertRegex(self.lines()[-1][1], "ended: pending, exit code 10$")

    def without_log(self):
        """Nothing fails, and nothing is said of the log."""
        for words in (["install", self.package], ["remove", "p"]):
            told = self.km_json(*words)
            self.assertEqual(told["outcome"], "done")
            self.assertNotIn("kmctl.log", str(told))
        self.assertEqual(self.km("install", self.package).err, "")

    def test_no_place_for_it(self):
        os.makedirs(self.log)
        self.without_log()

    def test_a_full_disk(self):
        os.makedirs(os.path.dirname(self.log))
        os.symlink("/dev/full", self.log)
        self.without_log()

    def test_no_right(self):
        self.km("install", self.package)
        before = self.lines()
        os.chmod(self.log, 0)
        user = self.as_nobody()
        if user:
            os.chown(self.log, 0, 0)
            os.chmod(os.path.dirname(self.log), 0o555)
        self.assertEqual(self.km("remove", "p", "--force", **user).err, "")
        os.chmod(self.log, 0o600)
        self.assertEqual(self.lines(), before)

    def test_the_limit(self):
        os.makedirs(os.path.dirname(self.log))
        put(self.log, "x" * 999_999 + "\n" + "y" * 10)
        self.km("install", self.package)
        self.assertTrue(os.path.getsize(self.log) < 1000)
        with open(self.log) as file:
            self.assertEqual(file.readline(), "-- Log size has reached limit (1000000) - The existing "
                             "log file has been backed up as %s --\n" % self.log.replace(".log", ".bk"))
        self.assertEqual(len(self.lines()), 2)


if __name__ == "__main__":
    support.main()
