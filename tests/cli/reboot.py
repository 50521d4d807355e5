"""Packages that ask for a reboot: each operation stops where they say, and goes on behind it."""
import itertools
import os
import shutil
import struct

import support
from support import KmctlCase, differences, picture, put, text_of

DEFINITION = """kmspd 1.0 package { name = rb version = 1
  add_file { path = /a/one source = one }
  restart { during_install = %(install)s during_remove = %(remove)s
            during_undo = %(undo)s during_commit = %(commit)s }
  add_file { path = /a/two source = two } }"""

# A program and a file on each side; it ends with the next word of its list of codes.
PROGRAMS = """kmspd 1.0 package { name = %(name)s version = 1
  add_file { path = %(area)s/%(name)s.one source = one }
  %(program)s
  add_file { path = %(area)s/%(name)s.two source = two }
  restart { timeout = %(timeout)s force_restart = %(force)s } }"""
TABLE = ("11:restart_now, 12:restart_now_again, 13:restart, 14:restart_again, 15:in_restart")
SCRIPT = """#!/bin/sh
echo "$KM_OPERATION $KM_RERUN" >> %(log)s
code=$(head -n 1 "$1")
sed -i 1d "$1"
exit ${code:-0}
"""


def program_block(script, codes):
    """A program that reads how to end from the file `codes`, in every operation."""
    runs = "".join("%s_path = %s %s_arguments = %s " % (what, script, what, codes)
                   for what in ("install", "remove", "undo", "commit"))
    return 'user_program { %s exit_codes = "%s" }' % (runs, TABLE)


class RebootCase(KmctlCase):
    boots = 0

    def boot(self):
        self.boots += 1
        put(self.path("boot"), "boot %d\n" % self.boots)
        os.environ["KMCTL_BOOT_ID_FILE"] = self.path("boot")

    def setUp(self):
        super().setUp()
        self.addCleanup(os.environ.pop, "KMCTL_BOOT_ID_FILE", None)
        self.addCleanup(os.environ.pop, "KMCTL_UTMP_FILE", None)
        os.environ["KMCTL_UTMP_FILE"] = self.path("utmp")  # nobody

    def start_anew(self):
        for one in (self.root, self.state):
            shutil.rmtree(one, ignore_errors=True)
        os.mkdir(self.root)
        self.boot()

    def program(self, *codes, name="pr", timeout=-1, force="n"):
        """A package whose program ends with these codes, one a run, then with 0."""
        script, log = self.path("script"), self.path("runs")
        support.make_tree(self.dir, {"script": SCRIPT % {"log": log}, name + ".codes": ""})
        os.chmod(script, 0o755)
        self.codes(name, *codes)
        if os.path.exists(log):
            os.remove(log)
        words = {"area": self.path("area"), "name": name, "timeout": timeout, "force": force,
                 "program": program_block(script, self.path(name + ".codes"))}
        support.make_tree(self.path("sources"), {"one": "1", "two": "2", "p.spd": PROGRAMS % words})
        output = self.path(name + ".spb")
        self.km("build", self.path("sources", "p.spd"), "-o", output)
        return output

    def codes(self, name, *codes):
        put(self.path(name + ".codes"), "".join("%d\n" % code for code in codes))

    def runs(self):
        if not os.path.exists(self.path("runs")):
            return []
        return text_of(self.path("runs")).split("\n")[:-1]

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


class Reboot(RebootCase):
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


class ProgramCase(RebootCase):
    """Programs run in this machine's own root."""

    def command(self, *words):
        return [support.KMCTL, "--state", self.state, *words]

    def start_anew(self):
        shutil.rmtree(self.path("area"), ignore_errors=True)
        super().start_anew()

    def there(self):
        area = self.path("area")
        return sorted(os.listdir(area)) if os.path.isdir(area) else []

    def through(self, code, *words):
        """Runs what ends with a code once, and boots until nothing waits; how often the program ran,
        and what stood while it waited."""
        self.codes("pr", code)
        before = len(self.runs())
        ended = self.km(*words, "--reboot-exit-code", code=4)
        self.assertIn("reboot", ended.out)
        waiting = self.there()
        self.assertEqual(self.km("resume", "--boot").out, "No operation was cut; nothing was to do\n")
        self.boot()
        self.km("resume", "--boot", "--reboot-exit-code")
        self.assertEqual(self.km("check").code, 0)
        self.assertFalse(os.path.exists(os.path.join(self.state, "work", "reboot", "pr^1")))
        return len(self.runs()) - before, waiting


class Programs(ProgramCase):
    def test_every_result_in_every_mode(self):
        both, first = ["pr.one", "pr.two"], ["pr.one"]
        # code: how often the program runs, what stands before the reboot of an install and a remove
        for code, runs, installing, removing in (
                (11, 1, first, first), (12, 2, first, first), (13, 1, both, []), (14, 2, both, []),
                (15, 1, both, [])):
            for mode in ("", "--undoable", "--transactional"):
                with self.subTest(code=code, mode=mode):
                    self.start_anew()
                    package = self.program()
                    begin = ["install", package, *([mode] if mode else [])]
                    if mode == "--transactional":
                        self.km(*begin)
                        self.assertEqual(self.there(), [])
                        begin = ["commit", "pr"]
                    self.assertEqual(self.through(code, *begin), (runs, installing))
                    self.assertEqual(self.there(), both)
                    self.assertEqual(self.letters("pr"), "ICU--" if mode == "--undoable" else "IC---")
                    self.km("verify", "pr")
                    end = "undo" if mode == "--undoable" else "remove"
                    self.assertEqual(self.through(code, end, "pr"), (runs, removing))
                    self.assertEqual(self.there(), [])
                    self.assertEqual(self.km_json("list")["packages"], [])

    def test_a_program_asks_again_behind_each_boot(self):
        self.boot()
        package = self.program(14, 12, 14)
        self.km("install", package, "--reboot-exit-code", code=4)
        for code in (4, 4, 0):
            self.boot()
            self.km("resume", "--boot", "--reboot-exit-code", code=code)
        self.assertEqual(len(self.runs()), 4)
        self.assertEqual(self.there(), ["pr.one", "pr.two"])

    def test_the_order_is_that_of_the_boot_list(self):
        self.boot()
        for name in ("m", "z", "a"):
            self.km("install", self.program(13, name=name))
        self.boot()
        told = self.km("resume", "--boot").out
        self.assertEqual(told, "".join("%s^1 is installed\n" % name for name in "mza"))
        self.assertEqual(self.km_json("resume", "--boot")["outcome"], "nothing")

    def test_one_that_fails_holds_no_other_up(self):
        self.boot()
        for name in ("m", "z", "a"):
            self.km("install", self.program(12, name=name))
        self.codes("z", 1)
        self.boot()
        told = self.km("resume", "--boot", code=1)
        self.assertIn("m^1 is installed", told.out)
        self.assertIn("a^1 is installed", told.out)
        self.assertIn("z^1 failed", told.err)

    def test_a_kill_behind_the_boot(self):
        """The run that goes on is killed at calls of its own; the next one ends it."""
        self.start_anew()
        package = self.program()
        for at in itertools.count(1, 11):
            self.start_anew()
            self.codes("pr", 12)
            self.km("install", package)
            self.boot()
            if self.killed(at, "resume", "--boot") != 137:
                break
            self.km("resume", "--boot")
            self.assertEqual(self.there(), ["pr.one", "pr.two"], at)
            self.assertEqual(self.letters("pr"), "IC---", at)
            self.km("remove", "pr")
        self.assertGreater(at, 40)


class RebootCommand(ProgramCase):
    """The machine is rebooted by a command of the settings; here one that writes what it was given."""

    def setUp(self):
        super().setUp()
        support.make_tree(self.dir, {"reboot": '#!/bin/sh\necho "$1 $KM_REBOOT_FORCE $KM_REBOOT_PACKAGES"'
                                               ' >> %s\n' % self.path("rebooted")})
        os.chmod(self.path("reboot"), 0o755)
        self.boot()

    def asked(self):
        if not os.path.exists(self.path("rebooted")):
            return []
        lines = text_of(self.path("rebooted")).splitlines()
        os.remove(self.path("rebooted"))
        return lines

    def turn_on(self):
        self.km("config", "set", "reboot_command", self.path("reboot") + " 'for us'")

    def somebody_logs_in(self):
        with open(self.path("utmp"), "wb") as file:
            file.write(struct.pack("hi32s4s32s256shhiii4i20x", 7, os.getpid(), b"tty1", b"1",
                                   b"alice", b"", 0, 0, 0, 0, 0, 0, 0, 0, 0))

    def test_off_unless_set(self):
        self.km("install", self.program(13))
        self.assertEqual(self.asked(), [])

    def test_what_asks_and_what_does_not(self):
        for code, lines in ((11, 1), (12, 1), (13, 1), (14, 1), (15, 0), (0, 0)):
            with self.subTest(code=code):
                self.start_anew()
                self.turn_on()
                ended = self.km("install", self.program(code))
                self.assertEqual(self.asked(), ["for us 0 pr^1"] * lines)
                self.assertEqual("rebooted now" in ended.err, lines == 1, ended)
                self.km("list")
                self.assertEqual(self.asked(), [])
                self.boot()
                self.km("resume", "--boot")
                self.assertEqual(self.asked(), [])

    def test_time_and_force_of_the_boot_list(self):
        cases = ((-1, "n", ""), (1000, "n", ""), (0, "n", "0"), (1000, "y", "1"))
        for timeout, force, wanted in cases:
            with self.subTest(timeout=timeout, force=force):
                self.start_anew()
                self.turn_on()
                self.somebody_logs_in()
                ended = self.km("install", self.program(13, timeout=timeout, force=force))
                self.assertEqual(self.asked(), ["for us %s pr^1" % wanted] if wanted else [])
                self.assertEqual("alice" in ended.err, not wanted, ended)
                os.remove(self.path("utmp"))
                self.km("resume")
                self.assertEqual(len(self.asked()), 1)

    def test_one_that_never_ends_is_held(self):
        self.turn_on()
        self.km("config", "set", "reboot_limit", "2")
        self.km("install", self.program(12, 12, 12, 12))
        self.assertEqual(len(self.asked()), 1)
        for lines in (1, 0, 0):
            self.boot()
            ended = self.km("resume", "--boot")
            self.assertEqual(len(self.asked()), lines)
        self.assertIn("by hand", ended.err)

    def test_one_reboot_for_all_or_one_for_each(self):
        for one, wanted in (("y", ["for us 0 a^1, z^1"]), ("n", ["for us 0 z^1"])):
            with self.subTest(one=one):
                self.start_anew()
                self.km("config", "set", "resinit_one_reboot", one)
                for name in "za":
                    self.km("install", self.program(12, 12, name=name))
                self.turn_on()
                self.boot()
                self.km("resume", "--boot")
                self.assertEqual(self.asked(), wanted)

    def test_a_command_that_fails_is_told(self):
        for command, why in (("/nowhere/reboot", "127"), ("sh -c 'exit 3'", "3"), ("'open", "")):
            with self.subTest(command=command):
                self.start_anew()
                self.km("config", "set", "reboot_command", command)
                ended = self.km("install", self.program(13), code=1 if why else 0)
                self.assertIn("ended with %s." % why if why else "no command", ended.err)
                self.assertEqual(self.letters("pr")[0], "I")
        self.start_anew()
        self.km("config", "set", "reboot_command", "sh -c 'echo noise; exit 3'")
        told = self.km_json("install", self.program(13), code=1)
        self.assertEqual((told["outcome"], told["messages"][-1]["id"]), ("failed", "reboot_failed"))
        self.assertEqual(told["package"]["state"][3], "B")
        self.assertIn("reboot_failed", text_of(os.path.join(self.state, "log/kmctl.log")))

    def test_the_machine_goes_down_while_the_command_runs(self):
        self.km("config", "set", "reboot_command",
                "sh -c 'exec >/dev/null 2>&1; kill -TERM $PPID; sleep 4; exit 7'")
        told = self.km_json("install", self.program(13))
        self.assertEqual(told["outcome"], "pending")


if __name__ == "__main__":
    support.main()
