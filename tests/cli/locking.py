"""Two at once: one works, the other waits, or says who holds the lock and ends with 10."""
import os
import subprocess
import time

import support
from support import KmctlCase


class Locking(KmctlCase):
    def test_many_at_once(self):
        packages = [self.build({"f%d" % i: "x%d" % i, "lib/common": "c"}, "p%d" % i, "1.0", "/opt/all",
                               "--shared", "lib/*") for i in range(6)]

        def all_of(commands):
            running = [subprocess.Popen(self.command(*words, "--wait", "-1"), stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, env=self.environment(), cwd=self.dir)
                       for words in commands]
            for one in running:
                out, err = one.communicate(timeout=100)
                self.assertEqual(one.returncode, 0, (out, err))

        all_of([["install", package] for package in packages])
        self.assertEqual(len(self.km_json("list")["packages"]), 6)
        all_of([["remove", "p%d" % i] for i in range(6)])
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.leftovers(), [])

    def stopped_install(self):
        """An install that was stopped (as by Ctrl-Z) while it holds the lock."""
        package = self.build({"f%d" % i: os.urandom(20000) for i in range(100)}, "slow")
        self.km("install", self.build({"x": "1"}, "there", "1.0", "/opt/there"))
        process = subprocess.Popen(self.command("install", package), stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, env=self.environment(), cwd=self.dir,
                                   start_new_session=True)
        while not os.path.isdir(self.at("/opt/slow")) and not os.path.isdir(self.at("/opt/p")):
            self.assertIsNone(process.poll())
            time.sleep(0.002)
        os.killpg(process.pid, 19)
        return process

    def test_who_holds_the_lock(self):
        holder = self.stopped_install()
        try:
            other = self.build({"x": "1"}, "other")
            start = time.monotonic()
            told = self.km_json("install", other, "--wait", "1", code=10)
            self.assertGreaterEqual(time.monotonic() - start, 0.9)
            self.assertEqual((told["outcome"], told["messages"][0]["id"]), ("pending", "busy"))
            text = told["messages"][0]["text"]
            self.assertIn("kmctl", text)
            self.assertIn("since", text)
            self.assertRegex(text, r"process \d+")
            self.km("remove", "slow", "--wait", "0", code=10)
            # Readers do not wait, and tell of the package that stands.
            for words, text in (("list", "there"), ("status there", "IC---"), ("show there", "there"),
                                ("show there --files", "/opt/there/x"), ("history there", "install"),
                                ("log there", "add /opt/there/x"), ("explain there", "passed"),
                                ("who-uses /opt/there/x", "there^1.0"), ("check", "in use by process"),
                                ("config get product_dir", "state")):
                ended = self.km(*words.split(), "--wait", "0")
                self.assertIn(text, ended.out + ended.err, words)
            # A verify may change a state: it is a writer.
            self.assertIn("in use by process", self.km("verify", "there", "--wait", "0", code=10).err)
        finally:
            os.killpg(holder.pid, 18)
        self.assertEqual(holder.wait(60), 0)
        self.km("install", other)

    def test_a_lock_of_the_dead_holds_nobody(self):
        holder = self.stopped_install()
        os.killpg(holder.pid, 9)
        holder.wait(60)
        self.km("install", self.path("slow-1.0.spb"), "--wait", "0", code=None)
        self.assertEqual(self.letters("slow")[2], "-")
        self.km("remove", "slow", "--wait", "0")
        self.assertEqual(os.listdir(self.at("/opt")), ["there"])
        self.assertEqual(self.leftovers(), [])

    def test_a_worker_that_is_killed_alone_is_told(self):
        holder = self.stopped_install()
        child = int(subprocess.run(["pgrep", "-P", str(holder.pid)], stdout=subprocess.PIPE).stdout
                    .split()[0])
        os.kill(child, 9)
        os.killpg(holder.pid, 18)
        self.assertEqual(holder.wait(60), 10)


if __name__ == "__main__":
    support.main()
