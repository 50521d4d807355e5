"""Servers on the loopback that take reports, remember them, and misbehave at a stage that a test
names: they refuse, cut the connection, hang, or dribble."""
import http.server
import os
import socket
import socketserver
import ssl
import threading
import time


class Cut(Exception):
    """The connection ends here."""


class Server(socketserver.ThreadingTCPServer):
    """`behave` tells how it behaves at which stage; `taken` is what it holds."""

    daemon_threads = True
    block_on_close = False
    allow_reuse_address = True
    request_queue_size = 64

    def __init__(self, handler, pem=()):
        super().__init__(("127.0.0.1", 0), handler)
        self.port = self.server_address[1]
        self.actions, self.on_stage = {}, None
        self.taken, self.seen = [], []
        self.gone = threading.Event()
        self.tls = None
        if pem:
            self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            self.tls.load_cert_chain(*pem)
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()

    def behave(self, **actions):
        self.actions = actions

    def at(self, stage):
        """What to do at a stage: the action for the caller, or the end of the connection."""
        self.seen.append(stage)
        if self.on_stage:
            self.on_stage(stage)
        action = self.actions.get(stage, "")
        if action == "hang":
            self.gone.wait(60)
        if action in ("hang", "cut"):
            raise Cut
        return action

    def handle_error(self, request, client_address):
        pass  # clients are killed here

    def close(self):
        self.gone.set()
        self.shutdown()
        self.server_close()


class Smtp(Server):
    """Mail. `taken` gets (sender, recipients, text) once the answer to the end of the text was sent,
    `offered` each text whose end came."""

    def __init__(self, pem=(), at_once=False, login=None):
        self.at_once, self.login, self.offered, self.secure = at_once, login, [], []
        super().__init__(SmtpTalk, pem)


class Talk:
    """Closes what it has wrapped."""

    def finish(self):
        try:
            super().finish()
        except OSError:
            pass
        if self.server.tls:
            self.request.close()


class SmtpTalk(Talk, socketserver.StreamRequestHandler):
    def handle(self):
        try:
            self.talk()
        except (Cut, OSError, EOFError, ValueError):
            pass

    def say(self, stage, good):
        action = self.server.at(stage)
        self.tell({"later": "451 4.3.0 later, \x01please", "never": "554 5.7.1 never"}.get(action, good))
        return not action

    def tell(self, line):
        self.wfile.write(line.encode("latin-1") + b"\r\n")
        self.wfile.flush()

    def secure(self):
        self.request = self.server.tls.wrap_socket(self.request, server_side=True)
        self.rfile, self.wfile = self.request.makefile("rb"), self.request.makefile("wb")
        self.is_secure = True

    def talk(self):
        self.is_secure = False
        if self.server.at_once:
            self.secure()
        self.say("connect", "220 test ESMTP")
        sender, to = "", []
        while True:
            line = self.rfile.readline(2000)
            if not line:
                raise EOFError
            word = line.decode("latin-1").strip()
            verb = word.upper()
            if verb.startswith("EHLO"):
                extra = "" if self.is_secure or not self.server.tls else "250-STARTTLS\r\n"
                extra += "250-AUTH PLAIN\r\n" if self.server.login and self.is_secure else ""
                self.say("ehlo", "250-test\r\n" + extra + "250 SIZE 1000000")
            elif verb.startswith("HELO"):
                self.say("ehlo", "250 test")
            elif verb == "STARTTLS":
                if self.say("starttls", "220 go"):
                    self.secure()
            elif verb.startswith("AUTH"):
                if word.count(" ") == 1:
                    self.tell("334 ")
                    word = self.rfile.readline().decode("latin-1").strip()
                good = word.split()[-1] == self.server.login
                self.say("auth", "235 ok" if good else "535 5.7.8 wrong password")
            elif verb.startswith("MAIL"):
                if self.say("mail", "250 ok"):
                    sender, to = word[10:].split(">")[0].lstrip("<"), []
            elif verb.startswith("RCPT"):
                if self.say("rcpt", "250 ok"):
                    to.append(word[8:].strip("<>"))
            elif verb == "DATA":
                if self.say("data", "354 go"):
                    self.text(sender, to)
            elif verb == "QUIT":
                self.say("quit", "221 bye")
                return
            else:
                self.tell("250 ok")

    def text(self, sender, to):
        text = b""
        while True:
            line = self.rfile.readline()
            if not line:
                raise EOFError
            if line == b".\r\n":
                break
            text += line[1:] if line.startswith(b".") else line
            self.server.at("text") if text.count(b"\n") == 1 else None
        one = (sender, to, text)
        self.server.offered.append(one)
        self.server.secure.append(self.is_secure)
        if self.say("end", "250 taken"):
            self.server.taken.append(one)
            self.server.at("taken")


class Web(Server):
    """POSTs. `taken` gets (key, body, heads) of each that is answered with 2xx; a key that is known
    is answered so, too, and not taken again; `repeats` counts them."""

    def __init__(self, pem=()):
        self.repeats = 0
        super().__init__(WebTalk, pem)


class WebTalk(Talk, http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def setup(self):
        if self.server.tls:
            self.request = self.server.tls.wrap_socket(self.request, server_side=True)
        super().setup()

    def handle(self):
        try:
            self.server.at("connect")
            super().handle()
        except (Cut, OSError, EOFError, ValueError):
            self.close_connection = True

    def log_message(self, *_):
        pass

    def do_POST(self):
        action = self.server.at("head")
        body = self.rfile.read(int(self.headers["Content-Length"]))
        action = action or self.server.at("body")
        status = int(action) if action.isdigit() else 201
        key = self.headers["Idempotency-Key"]
        if 200 <= status < 300:
            if key in [one[0] for one in self.server.taken]:
                self.server.repeats += 1
            else:
                self.server.taken.append((key, body, dict(self.headers)))
        self.server.at("taken")
        self.send_response(status)
        if 300 <= status < 400:
            self.send_header("Location", "http://127.0.0.1:%d/other" % self.server.port)
        self.send_header("Content-Length", "2")
        self.end_headers()
        self.server.at("answer")
        self.wfile.write(b"{}")

    do_GET = do_POST


class Log:
    """A system log: a socket of datagrams. While it hangs nobody reads it, and it is full."""

    def __init__(self, path):
        self.path, self.taken = path, []
        self.socket = self.reader = None

    def start(self, hanging=False):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        os.chmod(self.path, 0o666)
        self.socket.settimeout(0.05)
        if hanging:
            self.fill()
        else:
            self.read()

    def fill(self):
        other = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        other.setblocking(False)
        try:
            while True:
                other.sendto(b"noise", self.path)
        except BlockingIOError:
            other.close()

    def read(self):
        self.stopped = False

        def loop():
            while not self.stopped:
                try:
                    line = self.socket.recv(65536)
                except TimeoutError:
                    continue
                if line != b"noise":
                    self.taken.append(line.decode("utf-8"))

        self.reader = threading.Thread(target=loop, daemon=True)
        self.reader.start()

    def settle(self):
        """Everything that was sent has been read."""
        time.sleep(0.15)

    def stop(self):
        if self.reader:
            self.settle()
            self.stopped = True
            self.reader.join()
            self.reader = None
        if self.socket:
            self.socket.close()
            os.unlink(self.path)
            self.socket = None
