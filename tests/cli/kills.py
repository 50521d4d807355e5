"""Killed at any disk-changing call of an install or a remove: the same command again comes to a
good end, and nothing is left over."""
import os

import support
from support import KmctlCase, picture


class Kills(KmctlCase):
    files = {"a": "first\n", "b": "second\n" * 900, "lib/c": "third\n", "l": ("a",), "lib/t/": None}

    def killed(self, at, *words):
        return self.call([support.FAULTS, "kill", str(at), *self.command(*words)], traced=True).code

    def calls_of(self, *words):
        ended = self.call([support.FAULTS, "count", *self.command(*words)], traced=True)
        self.assertEqual(ended.code, 0, ended)
        return int(ended.err.split()[-1])

    def start(self):
        self.package = self.build(self.files, "p", "1.0", "/opt/in/p", "--shared", "lib/*")
        neighbour = self.build({"lib/c": "third\n"}, "q", "1.0", "/opt/in/p", "--shared", "lib/*")
        os.mkdir(self.at("/opt"))
        self.km("install", neighbour)
        self.without = picture(self.root, times=False)

    def try_each(self, number, of):
        self.start()
        installs = self.calls_of("install", self.package)
        good = picture(self.root, times=False)
        removes = self.calls_of("remove", "p")
        self.assert_same(self.without, picture(self.root, times=False))
        for at in range(1 + number, max(installs, removes) + 1, of):
            if at <= installs:
                self.assertEqual(self.killed(at, "install", self.package), 137, at)
                self.km("list")
                again = self.km("install", self.package, code=None)
                self.assertEqual(again.code, 0, (at, again))
                self.assert_same(good, picture(self.root, times=False), "install killed at %d" % at)
                self.assertEqual(self.leftovers(), [], "install killed at %d" % at)
            else:
                self.km("install", self.package)
            if at > removes:
                self.km("remove", "p")
                continue
            self.assertEqual(self.killed(at, "remove", "p"), 137, at)
            self.km("list")
            again = self.km("remove", "p", code=None)
            # 3: the kill fell behind the last change of the catalog.
            self.assertIn(again.code, (0, 3), (at, again))
            self.assert_same(self.without, picture(self.root, times=False), "remove killed at %d" % at)
            self.assertEqual(self.leftovers(), [], "remove killed at %d" % at)
            self.assertEqual(self.notes(), ["q^1.0"], "remove killed at %d" % at)
        self.km("remove", "q")
        self.assertEqual(os.listdir(self.root), ["opt"])
        self.assertEqual(os.listdir(self.at("/opt")), [])

    def test_by_force_a_cut_upgrade_begins_anew_and_can_be_undone(self):
        one = self.build(self.files, "p", "1.0", "/opt/in/p")
        two = self.build(dict(self.files, a="newer\n"), "p", "2.0", "/opt/in/p")
        self.km("install", one)
        old = picture(self.at("/opt/in/p"))
        calls = self.calls_of("upgrade", two)
        new = picture(self.at("/opt/in/p"))
        self.km("undo", "p")
        for at in (calls // 3, calls // 2, calls * 3 // 4):
            self.assertEqual(self.killed(at, "upgrade", two), 137, at)
            told = self.km_json("upgrade", "--force", two)
            self.assertIn("taken back; it begins anew", str(told["messages"]), at)
            self.assert_same(new, picture(self.at("/opt/in/p")), at)
            self.assertEqual(self.letters("p"), "ICU--", at)
            self.km("undo", "p")
            self.assert_same(old, picture(self.at("/opt/in/p")), at)
            self.assertEqual(self.km_json("list")["packages"][0]["version"], "1.0", at)
            self.assertEqual(self.leftovers(), [], at)
        self.km("check")

    def notes(self):
        return os.listdir(os.path.join(self.state, "work/made"))


def add_shares(case, count):
    """One test per share of the calls, so that they run beside each other."""
    for number in range(count):
        def test(self, number=number):
            self.try_each(number, count)

        setattr(case, "test_every_call_%d" % number, test)


add_shares(Kills, int(os.environ.get("KM_SHARES", "8")))

if __name__ == "__main__":
    support.main()
