#!/usr/bin/env python3
"""Who may stand in for the server, or listen in: the trust store alone counts, whatever else the machine trusts.

trust.py --build DIR [CASE ...]
"""
import contextlib
import http.server
import json
import os
import re
import shutil
import socket
import ssl
import subprocess
import sys
import threading

from hostile import Attack, StageError, cases, wait_until

PATIENCE = 6  # seconds in which an agent that trusts the wrong certificate has long said something


class Proxy:
    """A proxy behind TLS with a certificate of the attacker; what it is asked to do is in `asked`."""

    def __init__(self, certs):
        self.asked = []
        self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.tls.load_cert_chain(certs / "server.pem", certs / "server.key")
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                connection = self.listener.accept()[0]
                with contextlib.suppress(OSError):
                    connection.settimeout(5)
                    connection = self.tls.wrap_socket(connection, server_side=True)
                    self.asked.append(connection.recv(4096))
                connection.close()


class Trust(Attack):
    def setUp(self):
        super().setUp()
        self.serve()
        certs = self.stage.certs
        self.system = self.work / "system-certs"
        self.system.mkdir()
        hashed = subprocess.run(["openssl", "x509", "-in", certs / "ca.pem", "-noout", "-hash"], capture_output=True, text=True,
                                check=True).stdout.strip()
        shutil.copy(certs / "ca.pem", self.system / f"{hashed}.0")
        shutil.copy(certs / "ca.pem", self.system / "ca-certificates.crt")

    def store(self, name):
        self.install(System={"ssl.trustStore": self.stage.certs / f"{name}.pem"})

    def requests(self):
        return self.stage.admin("/requests?limit=10")

    def refused(self, **where):
        """Neither the agent nor the operator's test says a word to the server; both say why."""
        self.store("other-ca")
        self.host(**where)
        with contextlib.suppress(StageError):
            wait_until(self.requests, PATIENCE, "a request")
        self.assertEqual([row["word"] for row in self.requests()], [], "requests left")
        self.await_word("certificate")
        self.stage.agent.stop()
        status, report = self.agentctl("test-connection", "--json", **where)
        self.assertEqual([row["word"] for row in self.requests()], [], "requests left")
        self.assertEqual((status, json.loads(report)["failingStage"]), (4, "certificate"))

    def system_folder(self):
        return self.namespace(("--bind", self.system, os.path.realpath(ssl.get_default_verify_paths().openssl_capath)))

    def test_an_authority_of_the_system_does_not_vouch_for_the_server(self):
        prefix = self.system_folder()
        self.refused(prefix=prefix)
        self.store("ca")
        self.run_agent(prefix=prefix)  # the trust store does

    def test_nor_does_one_that_the_environment_names(self):
        self.refused(SSL_CERT_DIR=str(self.system), SSL_CERT_FILE=str(self.stage.certs / "ca.pem"),
                     CURL_CA_BUNDLE=str(self.stage.certs / "ca.pem"))

    def test_nor_for_a_proxy(self):
        prefix = self.system_folder()
        proxy = Proxy(self.stage.certs)
        self.addCleanup(proxy.listener.close)
        self.store("other-ca")
        self.host(prefix=prefix, https_proxy=f"https://127.0.0.1:{proxy.port}")
        with contextlib.suppress(StageError):
            wait_until(lambda: proxy.asked, PATIENCE, "a request to the proxy")
        self.assertEqual(proxy.asked, [], "the proxy was told where to")
        self.await_word("proxy|certificate")


class Environment(Attack):
    """What the environment asks of the libraries has no effect on the agent."""

    def test_session_keys_are_not_written(self):
        self.serve()
        self.install()
        keys = self.work / "keys"
        self.run_agent(SSLKEYLOGFILE=str(keys))
        self.assertFalse(keys.exists() and keys.read_bytes(), "the keys of the session are in a file")

    def test_openssl_loads_nothing_that_a_variable_names(self):
        module = next((path for path in ("/usr/lib/x86_64-linux-gnu/ossl-modules/legacy.so",) if os.path.exists(path)), None)
        if not module:
            self.skipTest("no provider of OpenSSL to plant")
        self.serve()
        self.install()
        planted = self.work / "planted.so"
        shutil.copy(module, planted)
        shutil.copy(module, self.work / "legacy.so")
        conf = self.work / "planted.cnf"
        conf.write_text("openssl_conf = all\n[all]\nproviders = p\n[p]\ndefault = d\nplanted = e\n[d]\nactivate = 1\n"
                        f"[e]\nmodule = {planted}\nactivate = 1\n")
        for variables in ({"OPENSSL_CONF": str(conf)}, {"SSL_CONF": str(conf), "OPENSSL_MODULES": str(self.work),
                                                        "OPENSSL_ENGINES": str(self.work)}):
            with self.subTest(variables=sorted(variables)):
                self.run_agent(**variables)
                with open(f"/proc/{self.stage.agent.pid}/maps", encoding="utf-8") as maps:
                    self.assertFalse(re.search("planted.so|korvane.*legacy.so", maps.read()), "a planted module is part of the agent")
                self.stage.agent.stop()


class Plain(http.server.BaseHTTPRequestHandler):
    """A server without TLS that answers as the agent's server would."""
    seen = None

    def do_POST(self):
        self.rfile.read(int(self.headers.get("Content-Length", 0)))
        self.seen.append(self.path)
        pairs = b"agent.id=0123456789abcdef\n\n" if self.path.endswith("register") else b""
        body = b"Data-Format=text/plain\nData-Type=properties\nData-Length=%d\n\n%s\nEOF_FLAG\n" % (len(pairs), pairs)
        self.send_response(200)
        self.send_header("Korvane-Error", "0")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


class Scheme(Attack):
    def url(self, url, **more):
        self.install(Agent={"agent.http.url": url, **more})

    def test_no_other_scheme_is_spoken(self):
        """Whatever agent.http.url names, no connection is made; the operator reads the scheme."""
        for scheme in ("gopher", "GOPHER", "ftp", "dict", "ldap", "telnet", "smtp", "ws", "smb"):
            with self.subTest(scheme), socket.create_server(("127.0.0.1", 0)) as listener:
                listener.settimeout(2)
                self.forget_what_was_said()
                self.url(f"{scheme}://127.0.0.1:{listener.getsockname()[1]}/korvane/")
                self.host()
                with self.assertRaises(TimeoutError, msg="something connected"):
                    listener.accept()
                self.await_word(f"{scheme}|scheme|protocol|https", seconds=10)
                self.stage.agent.stop()

    def test_a_file_is_not_read_in_the_servers_place(self):
        secret = self.work / "register"
        secret.write_text("Data-Format=text/plain\nData-Type=properties\nData-Length=13\n\nagent.id=evil\nEOF_FLAG\n")
        self.url(f"file://{self.work}/")
        self.host()
        self.await_word("file|scheme|protocol|https")
        self.assertEqual(self.stage.setting("agent.id"), "")

    def plain_server(self):
        Plain.seen = []
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Plain)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_port}/korvane/"

    def test_http_is_spoken_only_when_a_setting_asks_for_it(self):
        for spelling in ("http", "HTTP"):
            with self.subTest(spelling):
                self.forget_what_was_said()
                self.url(self.plain_server().replace("http", spelling))
                self.host()
                with contextlib.suppress(StageError):
                    wait_until(lambda: Plain.seen, PATIENCE, "a request")
                self.assertEqual(Plain.seen, [], "requests left in the clear")
                self.await_word("http", "plain|unencrypted|not encrypted")
                status, report = self.agentctl("test-connection", "--json")
                self.assertEqual((status, Plain.seen), (4, []), report)
                self.stage.agent.stop()

    def test_http_that_a_setting_asks_for_is_told_at_every_start(self):
        self.url(self.plain_server(), **{"agent.http.plain.enabled": "true"})
        for _ in range(2):
            self.forget_what_was_said()
            self.host()
            wait_until(lambda: Plain.seen, 30, "a request")
            self.await_word("plain|unencrypted|not encrypted")
            self.assertRegex(self.agentctl("status")[1].lower(), "plain|unencrypted|not encrypted")
            self.stage.agent.stop()
            Plain.seen.clear()


if __name__ == "__main__":
    sys.exit(cases.run(Attack, __doc__))
