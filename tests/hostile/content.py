#!/usr/bin/env python3
"""Names and texts that look like others: in archives, and on the operator's terminal.

content.py --build DIR [CASE ...]
"""
import base64
import contextlib
import pathlib
import re
import socket
import ssl
import subprocess
import sys
import threading

from hostile import CLOUD, LOCAL, Attack, cases, wait_until, zipped

# Pairs that Windows takes as one name, and beyond the first three simple case folding too.
ONE_NAME = {"ASCII": "Aa", "Latin": "\u0160\u0161", "fullwidth": "\uff21\uff41", "Greek with tonos": "\u0386\u03ac",
            "Cyrillic": "\u0416\u0436", "Armenian": "\u0531\u0561", "Latin extended additional": "\u1e00\u1e01",
            "Greek extended": "\u1f08\u1f00", "Roman numerals": "\u2160\u2170", "circled letters": "\u24b6\u24d0",
            "Glagolitic": "\u2c00\u2c30", "Coptic": "\u2c80\u2c81", "Y with diaeresis": "\u0178\u00ff"}
TWO_NAMES = {"sharp s and ss": ("stra\u00dfe", "strasse"), "i with and without a dot": ("\u0131", "j"), "other letters": ("\u0160", "z"),
             "CJK": ("\u4e00", "\u4e01")}
# What must reach no terminal: controls of both sets, and what turns the reading direction.
RAW = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u061c\u200e\u200f\u202a-\u202e\u2066-\u2069]")
EVIL = "evil\x9b31m\x9d0;title\x9c\x85\u202egnp.exe\u2066x\u2069\u200f\u061cend"


class Names(Attack):
    service_type = 2

    def test_names_that_fold_to_one_are_refused(self):
        self.install()
        self.stage.start_driver()
        self.run_agent()
        wait_until(lambda: (self.stage.machine.run_dir / f"{CLOUD}.pipe").exists(), 20, "the cloud pipe")

        def code(names):
            files = [("policy.txt", b"korvane-policy 1\nname P\nversion 1\nid p\n"), *((name, name.encode()) for name in names)]
            answer = self.ask(CLOUD, "policy", name="P", path="/p", bytes=base64.b64encode(zipped(files)).decode())
            return answer.get("error", {}).get("code", "0"), answer.get("error", {}).get("data", "")
        for what, (one, other) in ONE_NAME.items():
            for names in ((one, other), (f"d/{one}x.txt", f"d/{other}x.txt"), (one, f"{other}/b")):
                with self.subTest(what, names=names):
                    status, text = code(names)
                    self.assertEqual(status, "-32002", text)
                    self.assertRegex(text, r"code 12\b")
        for what, names in TWO_NAMES.items():
            with self.subTest(what):
                self.assertNotIn("code 12", code(names)[1])


class Terminal(Attack):
    """No control of a terminal and no turn of the reading direction comes out of agentctl or into the log."""

    def clean(self, surface, text):
        with self.subTest(surface):
            self.assertIn("evil", text)
            self.assertEqual(sorted({f"U+{ord(letter):04X}" for letter in RAW.findall(text)}), [], "raw")

    def surfaces(self, more=()):
        out = {"status": self.agentctl("status")[1], "status --json": self.agentctl("status", "--json")[1],
               "events tail": self.agentctl("events", "tail", "-n", "200")[1],
               "events tail --json": self.agentctl("events", "tail", "--json", "-n", "200")[1],
               **{" ".join(words): self.agentctl(*words)[1] for words in more}}
        out["the own log"] = "\n".join(text for *_, text in self.log())
        return out

    def test_a_refused_servers_certificate(self):
        key, pem = self.work / "evil.key", self.work / "evil.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-utf8",
                        "-keyout", key, "-out", pem, "-days", "3", "-subj", f"/O={EVIL}/CN={EVIL}"], check=True, capture_output=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(pem, key)
        listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listener.close)

        def serve():
            while True:
                try:
                    connection = listener.accept()[0]
                except OSError:
                    return
                with contextlib.suppress(OSError):
                    connection.settimeout(5)
                    context.wrap_socket(connection, server_side=True)
                connection.close()
        threading.Thread(target=serve, daemon=True).start()
        self.stage.server_port = listener.getsockname()[1]
        self.install()
        self.host()
        wait_until(lambda: self.told("certificate"), 30, "the refusal")
        for surface, text in self.surfaces((("test-connection",), ("test-connection", "--json"))).items():
            self.clean(surface, text)
        self.clean("the host's output", (self.work / "agent.log").read_text(encoding="utf-8", errors="replace") + "evil")

    def test_texts_of_a_server(self):
        self.serve()
        self.install()
        self.stage.start_driver()
        self.run_agent()
        self.stage.admin("/misbehave", {"kind": "error", "word": "result", "code": 700, "text": EVIL})
        wait_until(lambda: self.told("evil"), 30, "the error's text")
        for surface, text in self.surfaces().items():
            self.clean(surface, text)
        self.stage.admin("/misbehave", method="DELETE")
        self.configure(**{"log.priority": EVIL, "tcp.port": EVIL, EVIL: "x"})
        wait_until(lambda: self.told("refused.*evil|evil.*refused"), 30, "the refused settings")
        for surface, text in self.surfaces((("config", "get"), ("config", "diff"))).items():
            if "config" not in surface or "evil" in text:
                self.clean(surface, text)

    def test_texts_of_another_web_server(self):
        body = f"<html><head><title>{EVIL}</title></head></html>".encode()
        listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listener.close)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.stage.certs / "server.pem", self.stage.certs / "server.key")

        def serve():
            while True:
                try:
                    connection = listener.accept()[0]
                except OSError:
                    return
                with contextlib.suppress(OSError):
                    connection.settimeout(5)
                    tls = context.wrap_socket(connection, server_side=True)
                    tls.recv(65536)
                    tls.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: %d\r\n\r\n%s" % (len(body), body))
                    tls.close()
        threading.Thread(target=serve, daemon=True).start()
        self.stage.server_port = listener.getsockname()[1]
        self.install()
        for words in (("test-connection",), ("test-connection", "--json")):
            self.clean(" ".join(words), self.agentctl(*words)[1])

    def test_what_stands_in_files_that_agentctl_prints(self):
        """Even what came into the log or the settings by another way."""
        self.install(Agent={"agent.name": EVIL}, Other={"vendor.note": EVIL})
        logs = pathlib.Path(self.stage.ips / "logs")
        logs.mkdir()
        (logs / "korvane-agent-2026-11-22-000001.log").write_text(
            f"AERR,1,2026-11-22 03:00:00.000,10600,{EVIL},1,2,{EVIL}\n", encoding="utf-8")
        self.host()
        wait_until(lambda: self.logged("10106"), 30, "the start")
        self.clean("events tail", self.agentctl("events", "tail", "-n", "999", "--complaints")[1] + "evil")
        for words in (("config", "get", "--show"), ("config", "get", "agent.name"), ("config", "diff"), ("config", "check"),
                      ("call", "getSettings", '{"keys":["agent.name"]}'), ("config", "set", "agent.name=evil2")):
            text = self.agentctl(*words)[1]
            self.clean(" ".join(words[:2]), text + "evil")
        self.assertNotIn("error", self.ask(LOCAL, "getTechNames"))


if __name__ == "__main__":
    sys.exit(cases.run(Attack, __doc__))
