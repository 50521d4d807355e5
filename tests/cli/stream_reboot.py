"""A package straight from a server whose program asks for a reboot in the middle of the stream."""
import os
import random
import tempfile
import shutil

import support
from support import bytes_of
import web
from reboot import ProgramCase, program_block

SIZE, COUNT = 150000, 6   # of the files before the program, and of those behind it
DISTANCE = 400000          # bytes between two places that are kept
READ_AHEAD = 1 << 16
LINE = 4 << 20             # what the buffers of a connection may hold
QUICK = ("--retry-wait", "0")
FILE = "  add_file { path = %s/%s source = %s }\n"


class StreamThroughReboot(ProgramCase):
    @classmethod
    def setUpClass(cls):
        cls.top = tempfile.mkdtemp(prefix="kmwww.")
        os.chmod(cls.top, 0o755)
        cls.addClassCleanup(shutil.rmtree, cls.top)
        cls.nginx = web.Nginx(cls.top)
        cls.addClassCleanup(cls.nginx.close)

    def environment(self, traced=False):
        return {name: value for name, value in super().environment(traced).items()
                if not name.lower().endswith("_proxy")}

    def serve(self, **ways):
        one = web.Proxy(self.nginx.port, web.Faults(**ways))
        self.addCleanup(one.close)
        return one

    def streamed(self):
        """Files, the program, files, at an address."""
        self.program()  # its script, codes and log
        noise, files = random.Random(3), {}
        names = ["%s%d" % (part, i) for part in "ab" for i in range(COUNT)]
        for name in names:
            files[name] = noise.randbytes(SIZE)
        lines = [FILE % (self.path("area"), name, name) for name in names]
        lines.insert(COUNT, program_block(self.path("script"), self.path("pr.codes")) + "\n")
        files["p.spd"] = "kmspd 1.0\npackage {\n  name = pr\n  version = 1\n%s}\n" % "".join(lines)
        support.make_tree(self.path("stream"), files)
        self.km("build", self.path("stream", "p.spd"), "-o", self.top + "/p.spb")
        self.files, self.size = files, os.path.getsize(self.top + "/p.spb")
        self.km("config", "set", "checkpoint_buffer_size", str(DISTANCE))

    def ends_right(self, mode, proxy, again):
        self.assertEqual(self.letters("pr"), "ICU--" if mode == "--undoable" else "IC---")
        for name, content in self.files.items():
            if name != "p.spd":
                self.assertEqual(bytes_of(self.path("area", name)), content, name)
        self.assertEqual(len(self.there()), 2 * COUNT)
        self.assertLessEqual(proxy.sent, self.size + again)
        self.assertLessEqual(proxy.most_often(), 2)
        self.km("verify", "pr")
        self.assertEqual(self.km("check").code, 0)
        self.assertEqual(os.listdir(os.path.join(self.state, "work", "source")), [])
        self.km("undo" if mode == "--undoable" else "remove", "pr")
        self.assertEqual(self.there(), [])

    def test_every_result(self):
        both = ("", "--undoable", "--transactional")
        for code, runs, modes in ((11, 1, both[:2]), (12, 2, both), (13, 1, both), (14, 2, both[:1]),
                                  (15, 1, both[:1])):
            for mode in modes:
                with self.subTest(code=code, mode=mode):
                    self.start_anew()
                    self.streamed()
                    proxy = self.serve()
                    begin = ["install", proxy.address("p.spb"), *([mode] if mode else [])]
                    if mode == "--transactional":  # what the stream brought lies ready then
                        self.km(*begin)
                        self.assertEqual(self.there(), [])
                        begin = ["commit", "pr"]
                    self.codes("pr", code)
                    self.assertIn("reboot", self.km(*begin, "--reboot-exit-code", code=4).out)
                    # Asked for at once, the rest of the stream comes behind the boot.
                    left = code in (11, 12) and mode != "--transactional"
                    self.assertEqual(len(self.there()), COUNT if code in (11, 12) else 2 * COUNT)
                    asked = proxy.requests
                    self.boot()
                    self.km("resume", "--boot", "--reboot-exit-code")
                    self.assertEqual((len(self.runs()), proxy.requests), (runs, asked + left))
                    if left:
                        self.assertGreater(int(proxy.ranges[-1][6:-1]), SIZE * COUNT)
                    self.ends_right(mode, proxy, LINE if left else 0)

    def test_lines_that_break_before_and_behind_the_boot(self):
        for mode in ("", "--undoable"):
            with self.subTest(mode=mode):
                self.start_anew()
                self.streamed()
                self.km("config", "set", "net_reconnects", "0")
                self.codes("pr", 12)
                proxy = self.serve(cut_every=700000)
                self.km("install", *([mode] if mode else []), *QUICK, proxy.address("p.spb"))
                self.boot()
                proxy.faults = web.Faults(drop=100)  # the network is not there yet
                self.km("resume", "--boot", "--retries", "1", *QUICK, code=10)
                self.assertEqual(len(self.there()), COUNT)
                proxy.faults = web.Faults(cut_every=700000)
                self.km("resume", "--boot", *QUICK)
                self.assertEqual(len(self.runs()), 2)
                again = proxy.requests * (SIZE + READ_AHEAD) + LINE
                self.ends_right(mode, proxy, again)

    def test_a_kill_behind_the_boot(self):
        """The run that goes on is killed at calls of its own; the next goes on at a kept place."""
        self.start_anew()
        self.streamed()
        for at in range(1, 4000, 61):
            self.start_anew()
            proxy = self.serve()
            self.km("config", "set", "checkpoint_buffer_size", str(DISTANCE))
            self.codes("pr", 12)
            self.km("install", proxy.address("p.spb"))
            self.boot()
            if self.killed(at, "resume", "--boot") != 137:
                break
            self.km("resume", "--boot")
            self.assertEqual(len(self.there()), 2 * COUNT, at)
            self.assertEqual(self.letters("pr"), "IC---", at)
            self.assertLessEqual(proxy.most_often(), 3)  # a boot and a kill
        self.assertGreater(at, 120)


if __name__ == "__main__":
    support.main()
