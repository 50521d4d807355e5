"""Reports by mail, to the system log and as a POST: each side refuses, cuts, hangs and comes back at
each stage, and the sender is killed before, in and after the delivery; each side has each report
once."""
import base64
import email
import email.policy
import itertools
import json
import os
import shutil
import signal
import subprocess
import time
import unittest

import report_servers
import reports
import support
import web
from support import bytes_of

STEP = int(os.environ.get("KM_SHARES", "1"))  # every so many calls a kill


class RemoteCase(reports.ReportCase):
    """One report of an install waits; `again` puts it back, as nobody had it."""

    def setUp(self):
        super().setUp()
        authority = web.Authority(self.dir)
        self.pem, self.ca = authority.sign("server"), authority.certificate
        # A channel that is not set up counts as done: so both are, and nobody is there.
        self.set(event_url="http://127.0.0.1:1/", mail_server="127.0.0.1", mail_port=1,
                 mail_tls="none", mail_to="root@example.org", timeout=1)
        self.km("install", self.build({"a": "1\n"}, "p\u00fc", "1.0"))
        self.set(event_url="", mail_to="", mail_server="", mail_port="")
        shutil.copytree(self.work("message"), self.path("kept"))

    def set_up(self, **more):
        pass

    def again(self):
        shutil.rmtree(self.work("message"))
        shutil.rmtree(self.work("deliveries"), ignore_errors=True)
        shutil.copytree(self.path("kept"), self.work("message"))

    def waits(self):
        return any(name.startswith("MS") for name in os.listdir(self.work("message")))

    def deliver(self, **more):
        begin = time.monotonic()
        told = self.km_json("report", "deliver", code=None, **more)
        self.assertLess(time.monotonic() - begin, 8)
        self.assertEqual(told["left"], 1 if self.waits() else 0)
        return told

    def fails(self, channel, *words):
        told = self.deliver()
        self.assertEqual((told["exit_code"], told["left"]), (1, 1), told)
        for word in words:
            self.assertIn(word, told["channels"][channel]["why"])

    def succeeds(self):
        told = self.deliver()
        self.assertEqual((told["exit_code"], told["left"]), (0, 0), told)
        return told

    def started(self, server):
        self.addCleanup(server.close)
        return server

    def mail(self, tls="none", user=False):
        server = self.started(report_servers.Smtp(
            () if tls == "none" else self.pem, tls == "tls",
            base64.b64encode(b"\0me\0secret").decode() if user else None))
        support.make_tree(self.dir, {"password": "secret\n"})
        self.set(mail_server="127.0.0.1", mail_port=server.port, mail_tls=tls, mail_ca_file=self.ca,
                 mail_to="root@example.org, other@example.org", mail_from="km@example.org",
                 mail_user="me" if user else "",
                 mail_password_file=self.path("password") if user else "")
        return server

    def web(self, pem=()):
        server = self.started(report_servers.Web(pem))
        self.set(event_url="http%s://127.0.0.1:%d/in?a=b" % ("s" if pem else "", server.port),
                 event_ca_file=self.ca if pem else "")
        return server

    def try_mails(self, tls, stages, actions=("never", "cut", "hang")):
        """A mail fails at each stage in each way, and comes at the end, once."""
        server = self.mail(tls, user=tls != "none")
        for stage, action in itertools.product(stages, actions):
            if (stage, action) == ("text", "never"):
                continue
            with self.subTest(stage=stage, action=action):
                server.behave(**{stage: action, "quit": "hang"})
                self.fails("mail", *(["554 5.7.1 never"] if action == "never" else []))
        self.assertEqual(server.taken, [])
        server.behave()
        self.succeeds()
        self.succeeds()
        self.assertEqual(len(server.taken), 1)

    def try_posts(self, pem):
        server = self.web(pem)
        for stage, action in (("connect", "cut"), ("connect", "hang"), ("head", "cut"),
                              ("head", "hang"), ("body", "500"), ("body", "302"), ("body", "403"),
                              ("taken", "cut"), ("taken", "hang")):
            with self.subTest(stage=stage, action=action):
                server.behave(**{stage: action})
                self.fails("evc", *([action] if action.isdigit() else []))
        server.behave()
        self.succeeds()
        self.assertEqual((len(server.taken), server.repeats), (1, 2))

    def log(self):
        log = report_servers.Log(self.path("log.socket"))
        self.set(event_syslog=log.path)
        self.addCleanup(log.stop)
        return log


class Mail(RemoteCase):
    def test_what_a_mail_holds(self):
        server = self.mail("starttls", user=True)
        self.succeeds()
        (sender, to, text), = server.taken
        self.assertEqual((sender, to, server.secure),
                         ("km@example.org", ["root@example.org", "other@example.org"], [True]))
        mail = email.message_from_bytes(text, policy=email.policy.default)
        self.assertEqual(mail.defects, [])
        self.assertRegex(mail["Subject"], "^install of p\u00fc 1.0 on .*: done, exit code 0$")
        self.assertIn("p\u00fc^1.0 is installed", mail.get_content())
        self.assertRegex(mail["Message-ID"], r"^<[A-Za-z0-9-]+@example\.org>$")
        self.assertIsNotNone(mail["Date"].datetime)
        self.assertNotIn(b"\n", text.replace(b"\r\n", b""))

    def test_stages(self):
        self.try_mails("none", ("connect", "mail", "rcpt", "data", "end"), ("never",))
        self.again()
        self.try_mails("starttls", ("starttls", "text"), ("cut",))
        self.again()
        self.try_mails("tls", ("end",))

    def test_what_comes_behind_the_yes_changes_nothing(self):
        server = self.mail()
        for stage, action in (("taken", "cut"), ("taken", "hang"), ("quit", "never"), ("quit", "hang")):
            with self.subTest(stage=stage, action=action):
                server.behave(**{stage: action})
                del server.taken[:]
                self.again()
                self.succeeds()
                self.assertEqual(len(server.taken), 1)

    def test_nothing_is_said_to_a_server_that_is_not_known(self):
        server = self.mail("starttls", user=True)
        self.set(mail_ca_file="")
        self.fails("mail", "certificate")
        self.assertNotIn("auth", server.seen)
        server.close()
        self.mail("none")
        self.set(mail_tls="starttls")
        self.fails("mail", "STARTTLS")
        self.set(mail_tls="sometimes")
        self.fails("mail", "report_mail_tls")
        self.set(mail_tls="tls", mail_port="1")
        self.fails("mail")

    def test_a_kill_at_each_stage(self):
        """What nobody knows counts as delivered, and is told; what is known is not."""
        server = self.mail()
        for stage in ("connect", "ehlo", "mail", "rcpt", "data", "text", "end", "taken", "quit"):
            with self.subTest(stage=stage):
                self.again()
                del server.offered[:]
                sender = []
                server.on_stage = lambda at: sender and at == stage and kill_all(sender[0])
                one = subprocess.Popen(self.command("report", "deliver"), start_new_session=True,
                                       env=self.environment(), stdout=subprocess.DEVNULL,
                                       stderr=subprocess.DEVNULL)
                sender.append(one.pid)
                one.wait()
                server.on_stage = None
                self.assertEqual(one.returncode, -signal.SIGKILL)
                time.sleep(0.1)
                told = self.succeeds()
                in_doubt = [text for text in told["messages"] if "nobody knows" in text["text"]]
                if stage in ("connect", "ehlo", "mail", "rcpt"):
                    self.assertEqual(in_doubt, [])
                if stage == "end":
                    self.assertEqual(len(in_doubt), 1, told)
                if stage != "text" or not in_doubt:  # a kill just in front of the last byte
                    self.assertEqual(len(server.offered), 1, told)
                self.assertLessEqual(len(server.offered), 1)

    def test_the_spool_of_mails(self):
        self.set(mail_to="root@example.org", mail_spool=self.path("spool"))
        self.succeeds()
        name, = os.listdir(self.path("spool"))
        mail = email.message_from_bytes(bytes_of(self.path("spool", name)), policy=email.policy.default)
        self.assertEqual(name, mail["Message-ID"][1:].split("@")[0] + ".eml")
        self.assertEqual(mail.defects, [])


def kill_all(pid):
    try:
        os.killpg(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


class Event(RemoteCase):
    def test_every_stage_fails_and_comes_back(self):
        self.try_posts(())

    def test_what_a_post_holds(self):
        server = self.web(self.pem)
        self.set(event_ca_file="")
        self.fails("evc", "certificate")
        self.set(event_ca_file=self.ca, event_token_file=self.path("token"))
        self.fails("evc", "token")
        support.make_tree(self.dir, {"token": " s3cret \n"})
        server.behave(answer="cut")  # behind the status
        self.succeeds()
        (key, body, heads), = server.taken
        report = json.loads(body)
        self.assertEqual((report["id"], report["name"], report["operation"]), (key, "p\u00fc", "install"))
        self.assertEqual((heads["Authorization"], heads["Content-Type"]),
                         ("Bearer s3cret", "application/json"))

    def test_a_log_that_is_not_there_or_hangs(self):
        log = self.log()
        self.fails("evc", "No such file")
        log.start(hanging=True)
        self.fails("evc", "timed out")
        log.stop()
        log.start()
        self.succeeds()
        log.stop()
        self.assertEqual(len(log.taken), 1)
        self.assertRegex(log.taken[0], r"^<30>.* kmctl\[\d+\]: report [\w-]+: install of p\u00fc 1.0: done")

    def test_a_half_is_not_repeated(self):
        log, server = self.log(), self.web()
        log.start()
        server.behave(body="500")
        self.fails("evc", "500")
        self.fails("evc", "500")
        server.behave()
        log.stop()
        self.succeeds()
        self.assertEqual((len(log.taken), len(server.taken)), (1, 1))

    def test_the_log_of_the_machine(self):
        """syslog(3) itself, in a name space where /dev is the test's own."""
        dev = self.path("dev")
        os.mkdir(dev)
        log = report_servers.Log(os.path.join(dev, "log"))
        self.addCleanup(log.stop)
        self.set(event_syslog="yes")
        script = ("for n in null zero urandom random full; do : > $0/$n && mount --bind /dev/$n $0/$n; "
                  "done && mount --rbind $0 /dev && exec \"$@\"")
        inside = ["unshare", "-m", "sh", "-c", script, dev]
        if self.call([*inside, "true"]).code != 0:
            self.skipTest("no name spaces here")

        def deliver():
            return self.call([*inside, *self.command("report", "deliver")])

        self.assertIn("No such file", deliver().err)
        log.start(hanging=True)
        self.assertIn("timed out", deliver().err)
        self.assertTrue(self.waits())
        log.stop()
        log.start()
        self.assertEqual(deliver().code, 0)
        self.assertEqual(deliver().code, 0)
        log.stop()
        self.assertEqual(len(log.taken), 1)
        self.assertIn(" kmctl[", log.taken[0])


class EveryStage(RemoteCase):
    stages = ("connect", "ehlo", "starttls", "auth", "mail", "rcpt", "data", "text", "end")

    def test_of_mails(self):
        for tls, left_out in (("none", ("starttls", "auth")), ("starttls", ()), ("tls", ("starttls",))):
            with self.subTest(tls=tls):
                self.try_mails(tls, [one for one in self.stages if one not in left_out])
                self.again()

    def test_of_posts_over_tls(self):
        self.try_posts(self.pem)


@unittest.skipUnless(support.FAULTS, "needs the fault layer")
class Kills(RemoteCase):
    """Killed in front of each disk-changing call of a delivery, and a call of a second one."""

    def set_up(self, **more):
        super(RemoteCase, self).set_up(**more)
        self.block()

    def test_every_call(self):
        self.unblock()
        mails, posts, log = self.mail(), self.web(), self.log()
        log.start()
        self.again()
        calls = self.calls_of("report", "deliver")
        self.assertGreater(calls, 40)
        for at in range(1, calls + 1, STEP):
            self.again()
            self.forget()
            if os.path.exists(self.work("report.journal")):
                os.remove(self.work("report.journal"))
            for held in (mails.taken, posts.taken, log.taken):
                del held[:]
            for n in (at, at // 2 + 1)[: 1 + at % 2]:
                self.killed(n, "report", "deliver")
            self.succeeds()
            log.settle()
            self.assertEqual((len(mails.taken), len(posts.taken), len(log.taken)), (1, 1, 1), at)
            self.assertEqual(len(self.told()), 1, at)

    def test_every_call_with_a_spool(self):
        """Somebody fetches the mails at once."""
        self.unblock()
        self.set(mail_to="root@example.org", mail_spool=self.path("spool"))
        os.mkdir(self.path("spool"))
        self.again()
        for at in range(1, self.calls_of("report", "deliver") + 1, STEP):
            self.again()
            self.fetched()
            self.killed(at, "report", "deliver")
            first = self.fetched()
            self.succeeds()
            self.assertEqual(first + self.fetched(), 1, at)

    def fetched(self):
        names = [name for name in os.listdir(self.path("spool")) if not name.startswith(".")]
        for name in names:
            os.remove(self.path("spool", name))
        return len(names)


if __name__ == "__main__":
    support.main()
