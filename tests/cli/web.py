"""Servers for the tests of packages from a network, all on loopback: a real nginx, and in front of it a
proxy that misbehaves in the ways that a test asks for and counts what it hands out."""
import base64
import http.client
import os
import select
import shutil
import socket
import subprocess
import tempfile
import threading
import time

NGINX = shutil.which("nginx", path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")

CONFIG = """
daemon off; master_process off; worker_processes 1; pid {dir}/pid;
error_log {dir}/error.log; {user}
events {{ worker_connections 64; }}
http {{
    client_body_temp_path {dir}/t1; proxy_temp_path {dir}/t2; fastcgi_temp_path {dir}/t3;
    uwsgi_temp_path {dir}/t4; scgi_temp_path {dir}/t5;
    access_log off; sendfile on; gzip on; gzip_types *; gzip_min_length 1;
    server {{ listen 127.0.0.1:{port}; root {top}; }}
    {more}
}}
"""

# A site over TLS that anybody may read, and one for machines with a certificate.
SAFE = """
    ssl_certificate {cert}; ssl_certificate_key {key};
    server {{ listen 127.0.0.1:{open_port} ssl; root {top}; }}
    server {{ listen 127.0.0.1:{closed_port} ssl; root {top};
              ssl_client_certificate {ca}; ssl_verify_client on; }}
"""


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


class Nginx:
    """Serves a directory, with an authority also over TLS. A kernel's port is free for the moment only,
    so a few are tried."""

    def __init__(self, top, authority=None):
        if not NGINX:
            raise RuntimeError("nginx is not installed: these tests need it (Debian: nginx-light)")
        self.dir = tempfile.mkdtemp(prefix="kmweb.")
        os.chmod(self.dir, 0o755)
        self.authority = authority
        for _ in range(5):
            self.port, self.open_port, self.closed_port = (free_port() for _ in range(3))
            self.process = self.begin(top)
            if self.answers():
                return
            self.end()
        raise RuntimeError("nginx does not begin: " + open(self.dir + "/error.log").read())

    def begin(self, top):
        user = "user root;" if os.geteuid() == 0 else ""
        safe = ""
        if self.authority:
            cert, key = self.authority.sign("server")
            safe = SAFE.format(cert=cert, key=key, ca=self.authority.certificate, top=top,
                               open_port=self.open_port, closed_port=self.closed_port)
        with open(self.dir + "/nginx.conf", "w", encoding="utf-8") as out:
            out.write(CONFIG.format(dir=self.dir, port=self.port, top=top, user=user, more=safe))
        return subprocess.Popen([NGINX, "-e", self.dir + "/error.log", "-c",
                                 self.dir + "/nginx.conf"], stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def answers(self):
        for _ in range(100):
            if self.process.poll() is not None:
                return False
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return True
            except OSError:
                time.sleep(0.05)
        return False

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait()

    def close(self):
        self.end()
        shutil.rmtree(self.dir)


class Faults:
    """What the proxy does wrong. A number of bytes is of one answer's body."""

    def __init__(self, **ways):
        self.cut_every = ways.pop("cut_every", 0)  # the connection ends behind so many
        self.cuts = ways.pop("cuts", -1)           # so often; -1 always
        self.stall_at = ways.pop("stall_at", -1)   # nothing more comes; once
        self.status = ways.pop("status", None)     # (code, so many times)
        self.drop = ways.pop("drop", 0)            # so many connections end without an answer
        self.no_ranges = ways.pop("no_ranges", False)
        self.path = ways.pop("path", None)         # every request is for this file
        self.change = ways.pop("change", None)     # (behind so many requests, path)
        self.head = ways.pop("head", None)         # raw answer in the place of the server's
        self.edit = ways.pop("edit", None)         # function on the head's lines
        self.on_bytes = ways.pop("on_bytes", None)  # called with the sum of all bytes
        self.slow = ways.pop("slow", 0)            # seconds of rest per block
        assert not ways, ways


class Listener:
    """Answers whoever connects to a port of the kernel's choice, each in a thread of its own."""

    def __init__(self):
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1 << 16)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.listen(16)
        self.port = self.socket.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                client, _ = self.socket.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        try:
            client.settimeout(60)
            request = b""
            while b"\r\n\r\n" not in request:
                block = client.recv(65536)
                if not block:
                    return
                request += block
            self.answer(request, client)
        except (OSError, http.client.HTTPException):
            pass
        finally:
            client.close()

    def close(self):
        self.socket.close()


class Proxy(Listener):
    def __init__(self, backend, faults=None):
        self.backend, self.faults = backend, faults or Faults()
        self.requests, self.sent, self.ranges = 0, 0, []
        self.interruptions = 0  # that it made
        self.spans = []         # [first byte, how many] of the file, of each answer
        super().__init__()

    def address(self, name):
        return "http://127.0.0.1:%d/%s" % (self.port, name)

    def answer(self, request, client):
        self.requests += 1
        faults = self.faults
        if faults.drop > 0:
            faults.drop -= 1
            self.interruptions += 1
            return
        if faults.head is not None:
            for block in faults.head if not isinstance(faults.head, bytes) else [faults.head]:
                client.sendall(block)
            return
        if faults.status and faults.status[1] > 0:
            faults.status = (faults.status[0], faults.status[1] - 1)
            self.interruptions += 1
            client.sendall(b"HTTP/1.1 %d Bad\r\nContent-Length: 4\r\nConnection: close\r\n\r\noops"
                           % faults.status[0])
            return
        self.pass_on(request, client)

    def pass_on(self, request, client):
        faults = self.faults
        lines = request.split(b"\r\n\r\n")[0].decode("latin-1").split("\r\n")
        path = lines[0].split(" ")[1]
        if faults.path:
            path = faults.path
        if faults.change and self.requests > faults.change[0]:
            path = faults.change[1]
        headers = dict(line.split(": ", 1) for line in lines[1:])
        self.ranges.append(headers.get("Range", ""))
        if faults.no_ranges:
            for name in ("Range", "If-Range"):
                headers.pop(name, None)
        headers["Connection"] = "close"
        server = http.client.HTTPConnection("127.0.0.1", self.backend, timeout=60)
        server.request("GET", path, headers=headers)
        reply = server.getresponse()
        head = ["HTTP/1.1 %d %s" % (reply.status, reply.reason)]
        head += ["%s: %s" % one for one in reply.getheaders()
                 if not (faults.no_ranges and one[0] == "Accept-Ranges")]
        if faults.edit:
            head = faults.edit(head)
        client.sendall(("\r\n".join(head) + "\r\n\r\n").encode("latin-1"))
        span = [0, 0]
        if reply.status == 206:
            span[0] = int(reply.getheader("Content-Range").split()[1].split("-")[0])
        self.spans.append(span)
        self.body(reply, client, span)
        server.close()

    def most_often(self):
        """How often the byte of the file was handed out that was handed out most often."""
        steps = sorted([(first, 1) for first, count in self.spans if count] +
                       [(first + count, -1) for first, count in self.spans if count])
        most = now = 0
        for _, step in steps:  # an end comes before a begin at the same byte
            now += step
            most = max(most, now)
        return most

    def body(self, reply, client, span):
        faults, of_this = self.faults, 0
        while True:
            wanted = 16384
            if faults.cut_every and faults.cuts:
                wanted = min(wanted, faults.cut_every - of_this)
            if faults.stall_at >= 0:
                wanted = min(wanted, faults.stall_at - of_this)
            if wanted <= 0:
                faults.cuts -= 1
                self.interruptions += 1
                if faults.stall_at >= 0 and of_this >= faults.stall_at:
                    faults.stall_at = -1
                    client.recv(1)  # until the other side has had enough
                return
            block = reply.read(wanted)
            if not block:
                return
            client.sendall(block)
            of_this += len(block)
            self.sent += len(block)
            span[1] = of_this
            if faults.on_bytes:
                faults.on_bytes(self.sent)
            if faults.slow:
                time.sleep(faults.slow)


class ForwardProxy(Listener):
    """A proxy as an office has one: it connects for others, whom it may ask for a password, and may end
    each connection behind so many bytes."""

    def __init__(self, password=None, cut_every=0):
        self.password = password and b"Basic " + base64.b64encode(password.encode())
        self.cut_every = cut_every
        self.asked = []  # first lines of requests
        super().__init__()
        self.address = "127.0.0.1:%d" % self.port

    def answer(self, request, client):
        head, body = request.split(b"\r\n\r\n", 1)
        lines = head.split(b"\r\n")
        if self.password and b"Proxy-Authorization: " + self.password not in lines:
            client.sendall(b"HTTP/1.1 407 Who\r\nProxy-Authenticate: Basic realm=\"x\"\r\n"
                           b"Content-Length: 0\r\nConnection: close\r\n\r\n")
            return
        self.asked.append(lines[0].decode())
        method, target, version = lines[0].split(b" ")
        place, path = target, b""
        if method != b"CONNECT":  # http://PLACE/PATH
            place, _, path = target.split(b"//", 1)[1].partition(b"/")
        host, port = place.split(b":")
        with socket.create_connection((host.decode(), int(port)), 60) as server:
            if method == b"CONNECT":
                client.sendall(b"HTTP/1.1 200 Connected\r\n\r\n")
            else:
                server.sendall(b"\r\n".join([method + b" /" + path + b" " + version, *lines[1:]])
                               + b"\r\n\r\n")
            server.sendall(body)
            self.pass_on(client, server)

    def pass_on(self, client, server):
        passed = 0
        while True:
            for one in select.select([client, server], [], [], 60)[0]:
                block = one.recv(16384)
                if not block:
                    return
                if one is client:
                    server.sendall(block)
                    continue
                client.sendall(block)
                passed += len(block)
                if self.cut_every and passed >= self.cut_every:
                    return


class Authority:
    """Signs certificates, as a company does for its own machines."""

    def __init__(self, where, name="authority"):
        self.where, self.name = where, name
        os.makedirs(where, exist_ok=True)
        self.certificate, self.key = self.files(name)
        self.make(name, "/CN=" + name)

    def files(self, name):
        return tuple(os.path.join(self.where, name + end) for end in (".pem", ".key"))

    def make(self, name, subject, *more):
        cert, key = self.files(name)
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj",
                        subject, "-keyout", key, "-out", cert, *more],
                       check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        return cert, key

    def sign(self, name, host="IP:127.0.0.1"):
        """Certificate and key of a server at that place, or of a client."""
        return self.make(name, "/CN=" + name, "-CA", self.certificate, "-CAkey", self.key, "-addext",
                         "subjectAltName=" + host, "-addext", "basicConstraints=CA:FALSE")
