"""The ways to a server that settings tell: certificates, a machine's own certificate, proxies."""
import os

import web
from network import QUICK, NetworkCase
from support import main


class Ways(NetworkCase):
    env = {}

    def environment(self, traced=False):
        return super().environment(traced) | self.env

    def safe(self, closed=False):
        return "https://127.0.0.1:%d/p.spb" % (self.nginx.closed_port if closed else
                                               self.nginx.open_port)

    def forward(self, **ways):
        one = web.ForwardProxy(**ways)
        self.servers.append(one)
        return one

    def refused(self, address, words, *more):
        ended = self.km("install", "--retries", "0", *more, address, code=1)
        self.assertIn(words, ended.err)
        self.assertEqual(os.listdir(self.root), [])
        self.assertEqual(self.km_json("list")["packages"], [])

    def test_a_server_is_trusted_by_its_authority(self):
        self.refused(self.safe(), "certificate of 127.0.0.1 is not trusted")
        stranger = web.Authority(self.path("strange"), "stranger")
        self.km("config", "set", "net_ca_file", stranger.certificate)
        self.refused(self.safe(), "certificate of 127.0.0.1 is not trusted")
        self.km("config", "set", "net_ca_file", self.path("none.pem"))
        self.refused(self.safe(), "none.pem")
        self.km("config", "set", "net_ca_file", self.authority.certificate)
        self.refused(self.safe().replace("127.0.0.1", "localhost"), "certificate of localhost")
        self.km("install", self.safe())
        self.settle(())

    def test_a_machine_shows_its_own_certificate(self):
        self.km("config", "set", "net_ca_file", self.authority.certificate)
        self.refused(self.safe(closed=True), "400")
        stranger = web.Authority(self.path("strange"), "stranger")
        for signs, code in ((stranger, 1), (self.authority, 0)):
            cert, key = signs.sign("machine")
            self.km("config", "set", "net_client_cert", cert)
            self.km("config", "set", "net_client_key", key)
            if code:
                self.refused(self.safe(closed=True), "400")
        self.km("install", self.safe(closed=True))
        self.settle(())
        os.unlink(self.at("/opt/p/d1/f01"))
        self.km("repair", "p")
        self.km("verify", "p")
        self.forget()
        self.km("config", "set", "net_client_key", self.path("none.key"))
        self.refused(self.safe(closed=True), "none.key")

    def test_a_line_over_tls_that_is_cut(self):
        """Nginx itself answers the parts, through a proxy that ends connections."""
        self.km("config", "set", "net_ca_file", self.authority.certificate)
        proxy = self.forward(cut_every=1100000)
        self.km("config", "set", "net_proxy", "http://" + proxy.address)
        for mode, reconnects in (((), 2), (("--undoable",), 0), (("--transactional",), 0)):
            with self.subTest(mode=mode):
                proxy.asked.clear()
                self.km("config", "set", "net_reconnects", str(reconnects))
                self.km("install", *mode, *QUICK, self.safe())
                self.assertGreater(len(proxy.asked), self.size // 1200000)
                self.assertEqual(set(proxy.asked),
                                 {"CONNECT 127.0.0.1:%d HTTP/1.1" % self.nginx.open_port})
                self.settle(mode)
                self.forget()

    def test_which_proxy_is_asked(self):
        address = self.plain()
        dead = "http://127.0.0.1:%d" % web.free_port()
        rows = (  # setting, environment, asked
            (None, None, False), (None, "", True), ("", None, True), ("", dead, True), ("none", dead, False))
        for setting, env, asked in rows:
            with self.subTest(setting=setting, env=env):
                proxy = self.forward()
                mine = "http://" + proxy.address
                self.env = {} if env is None else {"http_proxy": env or mine}
                self.km("config", "set", "net_proxy", mine if setting == "" else setting or "")
                self.km("install", address)
                self.assertEqual(proxy.asked, ["GET %s HTTP/1.1" % address] * asked)
                self.forget()
        self.env = {}
        self.km("config", "set", "net_proxy", dead)
        self.refused(address, "no connection")

    def test_a_proxy_that_asks_for_a_password(self):
        proxy = self.forward(password="alice:word")
        self.km("config", "set", "net_proxy", "http://" + proxy.address)
        self.refused(self.plain(), "407")
        self.km("config", "set", "net_proxy", "http://alice:word@" + proxy.address)
        self.km("config", "set", "net_ca_file", self.authority.certificate)
        for address in (self.plain(), self.safe()):
            self.km("install", address)
            self.settle(())
            self.forget()


if __name__ == "__main__":
    main()
