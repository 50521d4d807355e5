"""Reports of operations: each channel holds each report once, whatever was killed, failed or hung on
the way: [I-28]."""
import fcntl
import json
import os
import shutil
import socket
import sqlite3
import subprocess
import unittest

import support
from support import KmctlCase, bytes_of, put, text_of


class ReportCase(KmctlCase):
    """A state with the channels file, db and notice, below "out"."""

    def setUp(self):
        super().setUp()
        self.out = self.path("out")
        self.set_up()

    def set_up(self, **more):
        settings = {"file": self.path("out/reports"), "file_format": "json",
                    "db": self.path("out/reports.db"), "notice": "yes", **more}
        self.set(**settings)

    def set(self, **settings):
        """Settings of reports, "" takes one away. As an editor changes them: a call for each is slow."""
        path = os.path.join(self.state, "znpis.ini")
        if not os.path.exists(path):
            self.km("config", "set", "report_timeout", "10")
        with open(path) as file:
            lines = [line for line in file.read().splitlines()
                     if line.split("=")[0] not in ["report_" + key for key in settings]]
        at = lines.index("[#MOBILE]") + 1
        lines[at:at] = ["report_%s=%s" % one for one in settings.items() if one[1] != ""]
        put(path, "\n".join(lines) + "\n")

    def work(self, *parts):
        return os.path.join(self.state, "work", *parts)

    def messages(self):
        """Names below the message directory, but for files that a kill left before they were written."""
        top = self.work("message")
        names = sorted(os.listdir(top)) if os.path.isdir(top) else []
        return [name for name in names
                if not name.startswith(".") and os.lstat(os.path.join(top, name)).st_size > 0]

    def in_file(self):
        """Lines of the file and its copies, as objects; a torn line is no JSON."""
        found = []
        for name in os.listdir(self.out) if os.path.isdir(self.out) else []:
            if name.startswith("reports") and "db" not in name:
                text = text_of(os.path.join(self.out, name))
                self.assertTrue(text == "" or text.endswith("\n"), text)
                found += [json.loads(line) for line in text.splitlines()]
        return found

    def in_db(self):
        if not os.path.exists(self.path("out/reports.db")):
            return []
        base = sqlite3.connect(self.path("out/reports.db"))
        rows = base.execute("select id, operation, name, result from reports").fetchall()
        base.close()
        return [dict(zip(("id", "operation", "name", "result"), row)) for row in rows]

    def notices(self):
        return [one["id"] for one in self.km_json("notices")["notices"]]

    def in_notices(self):
        """As `notices`, without a process of its own."""
        top = self.work("notice")
        return [name for name in (os.listdir(top) if os.path.isdir(top) else [])
                if name != "cleared" and not name.startswith(".")]

    def told(self):
        """(operation, package, result) of all reports; every channel has each once."""
        lines, rows, notices = self.in_file(), self.in_db(), self.in_notices()
        ids = sorted(one["id"] for one in lines)
        self.assertEqual(len(set(ids)), len(ids), lines)
        self.assertEqual(ids, sorted(one["id"] for one in rows))
        self.assertEqual(ids, sorted(notices))
        return sorted((one["operation"], one["name"], one["result"]) for one in lines)

    def forget(self):
        """Channels as at the start."""
        shutil.rmtree(self.out, ignore_errors=True)
        shutil.rmtree(self.work("notice"), ignore_errors=True)

    def block(self):
        """No channel can take anything."""
        self.forget()
        os.makedirs(self.path("out/reports/in the way"))
        os.makedirs(self.path("out/reports.db"))
        shutil.rmtree(self.work("notice"), ignore_errors=True)
        put(self.work("notice"))

    def unblock(self):
        shutil.rmtree(self.out, ignore_errors=True)
        if os.path.isfile(self.work("notice")):
            os.remove(self.work("notice"))


DONE = "done, exit code 0"


class Course(ReportCase):
    def test_every_operation_reports_once(self):
        one = self.build({"a": "1\n"}, "p", "1.0")
        two = self.build({"a": "2\n"}, "p", "2.0")
        wanted = []
        for words, name in (
            (("install", one, "--undoable"), "p"), (("verify", "p"), "p"), (("undo", "p"), "p"),
            (("install", one, "--transactional"), "p"), (("rollback", "p"), "p"),
            (("install", one, "--transactional"), "p"), (("commit", "p"), "p"),
            (("upgrade", two), "p"), (("accept", "p"), "p"),
        ):
            self.km(*words)
            wanted.append((words[0], name, DONE))
        os.remove(self.at("/opt/p/a"))
        self.km("repair", "p")
        self.km("remove", "p")
        self.km("remove", "p", code=3)
        wanted += [("repair", "p", DONE), ("remove", "p", DONE), ("remove", "p", "failed, exit code 3")]
        self.assertEqual(self.told(), sorted(wanted))
        self.assertEqual(self.messages(), [])
        # What changes nothing has no report.
        self.km("install", one, "--dry-run")
        self.km("list")
        self.km("resume")
        self.km("report", "deliver")
        self.assertEqual(len(self.told()), len(wanted))

    def test_what_was_wanted_and_found_stands_in_the_report(self):
        package = self.build({"a": "1\n"}, "p", "1.0")
        self.km("--report-as", "5.77", "install", package, "--undoable", "--force")
        self.km("install", package)  # nothing was to do: no report
        line, = self.in_file()
        self.assertEqual((line["distribution_id"], line["mode"], line["state"], line["version"]),
                         ("5.77", "undoable force", self.letters("p"), "1.0"))
        self.assertEqual(line["endpoint_name"], socket.gethostname())
        self.assertRegex(line["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")
        self.assertIn("p^1.0 is installed", line["message"])

    def test_without_a_channel_nothing_piles_up(self):
        self.set(file="", db="", notice="")
        self.km("install", self.build({"a": "1\n"}))
        self.assertFalse(os.path.exists(self.work("message")))
        self.assertEqual(self.km_json("report", "deliver")["outcome"], "nothing")

    def test_a_template_and_rotation(self):
        package = self.build({"a": "1\n"})
        self.km("install", package)
        self.forget()
        self.set_up(file_format="template", file_template=r"%operation_type%:%name%\n-",
                    file_max_size=30, file_copies=2)
        for _ in range(3):
            self.km("remove", "p")
            self.km("install", package)
        texts = {}
        for name in os.listdir(self.out):
            if "db" not in name:
                texts[name] = text_of(os.path.join(self.out, name))
        self.assertEqual(texts, {"reports": "remove:p\n-\ninstall:p\n-\n",
                                 "reports.1": "remove:p\n-\ninstall:p\n-\n",
                                 "reports.2": "remove:p\n-\ninstall:p\n-\n"})


class Channels(ReportCase):
    """What does not work is told, changes no outcome, and comes back."""

    def setUp(self):
        super().setUp()
        self.package = self.build({"a": "1\n"})
        self.set_up(timeout=6)

    def fails(self, channel):
        ended = self.km("install", self.package)
        self.assertEqual(ended.err.count("warning:"), 1, ended)
        self.assertIn(channel + ": ", ended.err)
        self.set(timeout=1)  # for what hangs
        told = self.km_json("report", "deliver", code=1)
        self.assertEqual((told["left"], list(told["channels"])[0:1]), (1, [channel]))
        self.assertEqual([one["pending"] for one in self.km_json("report", "list")["reports"]],
                         [[channel]])

    def comes_back(self):
        self.set(timeout=6)
        self.assertEqual(self.km_json("report", "deliver")["delivered"], 1)
        self.assertEqual(self.told(), [("install", "p", DONE)])
        self.assertEqual(self.messages(), [])

    def test_a_file_that_cannot_be_written(self):
        os.makedirs(self.path("out/reports/x"))
        self.fails("file")
        shutil.rmtree(self.path("out/reports"))
        self.comes_back()

    def test_a_file_that_another_holds_or_a_pipe(self):
        os.makedirs(self.out)
        with open(self.path("out/reports"), "w") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.fails("file")
        os.remove(self.path("out/reports"))
        os.mkfifo(self.path("out/reports"))
        self.assertEqual(self.km_json("report", "deliver", code=1)["left"], 1)
        os.remove(self.path("out/reports"))
        self.comes_back()

    def test_a_database_that_is_locked(self):
        os.makedirs(self.out)
        base = sqlite3.connect(self.path("out/reports.db"), isolation_level=None)
        base.execute("pragma journal_mode = wal")
        base.execute("begin immediate")
        self.fails("db")
        base.execute("rollback")
        base.close()
        self.comes_back()

    def test_a_database_that_is_none_or_newer(self):
        os.makedirs(self.out)
        put(self.path("out/reports.db"), b"no database " * 1000)
        self.fails("db")
        os.remove(self.path("out/reports.db"))
        base = sqlite3.connect(self.path("out/reports.db"))
        base.execute("pragma user_version = 7")
        base.close()
        self.assertIn("newer", self.km("report", "deliver", code=1).err)
        os.remove(self.path("out/reports.db"))
        self.comes_back()

    def test_a_log_that_may_have_it_is_told(self):
        self.set_up(timeout=6, event_syslog=self.path("out/log"))
        self.fails("evc")
        key = self.km_json("report", "list")["reports"][0]["id"]
        os.makedirs(self.work("deliveries"), exist_ok=True)
        # As a process leaves it that dies while it tells the log.
        put(self.work("deliveries", key + ".syslog"), "begun\n")
        told = self.km_json("report", "deliver")
        self.assertEqual((told["delivered"], [one["id"] for one in told["messages"]]),
                         (1, ["doubt"]), told)
        self.assertEqual(self.messages(), [])

    def test_notices_are_cleared_once(self):
        put(self.work("notice"))
        self.fails("notice")
        os.remove(self.work("notice"))
        self.comes_back()
        self.km("notices", "--clear", "no-such", code=3)
        self.km("notices", self.notices()[0], code=2)
        self.km("notices", "--clear", self.notices()[0])
        self.assertEqual(self.notices(), [])

    def test_a_repeat_of_a_cleared_notice_stays_away(self):
        os.makedirs(self.path("out/reports/x"))
        self.km("install", self.package)
        progress = self.work("message", self.messages()[0] + "_msg_statuses", "0")
        with open(progress, "wb") as file:  # as if killed behind the notice
            file.write(b"\0\0\0\0")
        self.km("notices", "--clear")
        self.assertEqual(self.km_json("report", "deliver", code=1)["left"], 1)
        self.assertEqual(self.notices(), [])
        shutil.rmtree(self.path("out/reports"))
        self.km("report", "deliver")
        self.assertEqual(self.notices(), [])
        self.assertFalse(os.path.exists(self.work("notice/cleared")))

    def test_delivery_is_for_one_process_and_holds_nobody_up(self):
        os.makedirs(self.out)
        with open(self.path("out/reports"), "w") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.set_up(timeout=20)
            first = subprocess.Popen(self.command("install", self.package), env=self.environment(),
                                     stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            try:
                while not os.path.exists(self.work("report.sem")):
                    self.assertIsNone(first.poll())
                self.assertEqual(self.km("list").out.split()[0], "p")
                self.km("verify", "p", timeout=15)  # its report waits
                self.assertEqual(self.km_json("--wait", "1", "report", "deliver",
                                              code=10)["outcome"], "pending")
                self.assertEqual(len(self.km_json("report", "list")["reports"]), 2)
            finally:
                fcntl.flock(held, fcntl.LOCK_UN)
                first.communicate()
        self.assertEqual(first.returncode, 0)
        self.km("report", "deliver")
        self.assertEqual(len(self.told()), 2)


class Commands(ReportCase):
    def pending(self, count):
        self.block()
        package = self.build({"a": "1\n"})
        for number in range(count):
            self.km("--report-as", "%d.7" % number, "install", "--force", package)
        return [one["id"] for one in self.km_json("report", "list")["reports"]]

    def test_what_waits_can_be_listed_shown_and_removed(self):
        ids = self.pending(3)
        me = socket.gethostname()
        for options, count in ((("--distribution", "7"), 3), (("--distribution", "1.7"), 1),
                               (("--distribution", "8"), 0), (("--target", me), 3),
                               (("--target", me + "x"), 0), (("--undelivered",), 3)):
            self.assertEqual(len(self.km_json("report", "list", *options)["reports"]), count, options)
        form = "%distribution_id% %operation_type% %listeners%"
        self.assertEqual(self.km("report", "list", "--format", form).out.splitlines()[0],
                         "0.7 install file, db, notice")
        self.assertIn("name: p\n", self.km("report", "show", ids[1]).out)
        self.km("report", "show", "none", code=3)
        self.km("report", "remove", code=2)
        self.km("report", "remove", "none", code=3)
        self.km("report", "remove", ids[1])
        self.assertEqual(len(self.km_json("report", "remove", "--distribution", "0.7")["removed"]), 1)
        self.unblock()
        self.km("report", "deliver")
        self.assertEqual(self.in_file()[0]["id"], ids[2])
        self.assertEqual(len(self.told()), 1)
        self.assertEqual(self.km_json("report", "remove", "--all")["outcome"], "nothing")

    def test_a_bad_template_is_refused_also_while_nothing_waits(self):
        for form, why in (("%name% %bogus%", "%bogus%"), ("100%", "percent sign"),
                          ("%name%\\", "backslash"), ("\\q", "backslash")):
            self.assertIn(why, self.km("report", "list", "--format", form, code=2).err, form)
        self.km("report", "list", "--format", "%name%\\t%state%\\n100%%")

    def test_a_directory_of_hostile_files(self):
        """Everything that can lie there: [I-24]."""
        good = self.pending(3)
        top = self.work("message")
        names = [name for name in self.messages() if not name.endswith("_statuses")]
        whole = bytes_of(os.path.join(top, names[0]))
        outside = support.make_tree(self.path("outside"), {"0": b"\xff" * 4, "file": "mine"})
        before = support.picture(outside)
        for name, content in {
            "01": b"garbage" * 100, "02": b"\x01" + b"\x7f\xff\xff\xff" * 40,
            "03": whole[: len(whole) // 2], "04": b"", "05\nnew\nline": whole, "06\\..\\x": whole,
            "07.bak": whole, "08.wrn": whole, "09": whole, "09.wrn": b"junk", ".bak": b"x",
            "10_msg_statuses": b"x", "9" * 240: b"x", "11/": "", "12.bak/": "", "13.wrn/": "",
            "14": ("/dev/zero",), "15.bak": (outside + "/file",), "16.wrn": (outside + "/file",),
            "17": (outside,), "18": ("MSA18",), "19_msg_statuses": (outside,),
        }.items():
            support.make_tree(top, {"MSA" + name: content})
        for name in ("MSA20", "MSA21.bak", "MSA22.wrn", "MSA23_msg_statuses", "pipe"):
            os.mkfifo(os.path.join(top, name))
        for name in ("MSA24", "MSA25.bak"):
            with open(os.path.join(top, name), "wb") as file:
                file.truncate(1 << 30)
        os.chmod(support.make_tree(top, {"MSA26": whole}) + "/MSA26", 0)
        # The progress of good messages: a pipe for its word, and a link to where all is delivered.
        shutil.rmtree(os.path.join(top, names[1] + "_msg_statuses"))
        os.mkdir(os.path.join(top, names[1] + "_msg_statuses"))
        os.mkfifo(os.path.join(top, names[1] + "_msg_statuses/0"))
        shutil.rmtree(os.path.join(top, names[2] + "_msg_statuses"))
        os.symlink(outside, os.path.join(top, names[2] + "_msg_statuses"))
        found = sorted(os.listdir(top))
        listed = self.km_json("report", "list", timeout=20)
        self.assertEqual([one["id"] for one in listed["reports"]], good)
        self.assertEqual(sorted(os.listdir(top)), found)
        self.unblock()
        self.km("report", "deliver", timeout=30, code=None)
        self.assertEqual(self.km_json("report", "deliver")["delivered"], 0)
        self.assertEqual(self.told(), [("install", "p", DONE)] * 3)
        self.assertEqual(support.picture(outside), before)
        self.assertEqual(self.messages(), ["removed"])
        aside = os.listdir(os.path.join(top, "removed"))
        self.assertLessEqual({"MSA01", "MSA03", "MSA05\nnew\nline", "MSA06\\..\\x", "MSA09.wrn", "MSA11",
                              "MSA14", "MSA20", "MSA24", "MSA25.bak"}, set(aside))
        # And what is put aside does not go where a link leads.
        shutil.rmtree(os.path.join(top, "removed"))
        os.symlink(outside, os.path.join(top, "removed"))
        support.make_tree(top, {"MSA27": "junk"})
        self.km("report", "deliver", timeout=30, code=None)
        self.assertEqual(os.listdir(os.path.join(top, "removed")), ["MSA27"])
        self.assertEqual(support.picture(outside), before)

    def test_without_the_list_of_libraries_no_message_is_lost(self):
        self.pending(1)
        message = self.messages()[0]
        program = self.path("bin/kmctl")
        os.makedirs(self.path("bin"))
        shutil.copy2(support.KMCTL, program)
        env = self.environment()
        env["LD_LIBRARY_PATH"] = os.path.join(os.path.dirname(support.KMCTL), "../lib")
        self.call([program, *self.command("report", "deliver")[1:]], env=env)
        kept = self.messages()
        self.unblock()
        if message in kept:
            self.assertEqual(self.km_json("report", "deliver")["delivered"], 1)
        self.assertEqual(len(self.told()), 1)


@unittest.skipUnless(support.FAULTS, "needs the fault layer")
class Kills(ReportCase):
    """Killed in front of any disk-changing call of a report's life."""

    def end_and_count(self, at, operation, words, is_done):
        self.km("resume", code=None)
        if not is_done():
            self.km(*words)
        self.km("report", "deliver")
        self.assertEqual(self.told(), [(operation, "p", DONE)], at)
        self.assertEqual(self.messages(), [], at)
        self.forget()

    def try_operations(self, number, of):
        package = self.build({"a": "1\n"})

        def is_installed():
            return self.km("status", "p", code=None).code == 0

        for operation, words, is_done in (
            ("install", ("install", package), is_installed),
            ("remove", ("remove", "p"), lambda: not is_installed()),
        ):
            other = ("remove", "p") if operation == "install" else ("install", package)
            if operation == "remove":
                self.km("install", package)
            self.km(*words)  # what only the first run makes is not counted
            self.km(*other)
            calls = self.calls_of(*words)
            for at in range(1 + number, calls + 1, of):
                self.km(*other)
                self.forget()
                self.assertEqual(self.killed(at, *words), 137, at)
                self.end_and_count((operation, at), operation, words, is_done)
            self.km(*other) if is_done() and operation == "install" else None
            self.forget()

    def try_delivery(self, number, of):
        """Two reports; the file is rotated between them."""
        package = self.build({"a": "1\n"})
        self.block()
        self.km("install", package)
        self.km("remove", "p")
        shutil.copytree(self.work("message"), self.path("kept"))
        self.unblock()
        self.set_up(file_max_size=100)
        calls = self.calls_of("report", "deliver")
        for at in range(1 + number, calls + 1, of):
            shutil.rmtree(self.work("message"))
            shutil.copytree(self.path("kept"), self.work("message"))
            self.forget()
            if os.path.exists(self.work("report.journal")):
                os.remove(self.work("report.journal"))
            self.assertEqual(self.killed(at, "report", "deliver"), 137, at)
            if at % 2:  # a second one, in the middle of the repeat
                self.killed(calls // 2, "report", "deliver")
            self.km("report", "deliver")
            self.assertEqual(self.told(), [("install", "p", DONE), ("remove", "p", DONE)], at)
            self.assertEqual(self.messages(), [], at)


def add_shares(case, count):
    for number in range(count):
        def operations(self, number=number):
            self.try_operations(number, count)

        def delivery(self, number=number):
            self.try_delivery(number, count)

        setattr(case, "test_operations_%d" % number, operations)
        setattr(case, "test_delivery_%d" % number, delivery)


add_shares(Kills, int(os.environ.get("KM_SHARES", "8")))

if __name__ == "__main__":
    support.main()
