#!/usr/bin/env python3
"""agentctl test-connection against servers: stage and cause as docs/connection-test.md has them. What is slow, silent or
breaks off is in tests/comm/connection_zoo_test.cpp.

connection.py --build DIR [CASE ...]
"""
import contextlib
import gzip
import json
import socket
import ssl
import struct
import sys
import threading

from outside import OutsideCase, cases

AGENT = b"Content-Type: application/x-korvane\r\n"
END = b"EOF_FLAG\n"
TRIES = 20


def answer(body=END, headers=AGENT, status=b"200 OK", length=None):
    announced = b"" if length is None and b"hunked" in headers else b"Content-Length: %d\r\n" % (len(body) if length is None else length)
    return b"HTTP/1.1 " + status + b"\r\n" + headers + announced + b"\r\n" + body


def chunked(*parts):
    return b"".join(b"%x\r\n%s\r\n" % (len(part), part) for part in parts)


@contextlib.contextmanager
def server(serve, tls):
    """Serves each connection with serve(socket) on a thread of its own, behind TLS unless that is None; gives the port."""
    def one(connection):
        with contextlib.suppress(OSError, ValueError):
            connection.settimeout(40)
            if tls:
                connection = tls.wrap_socket(connection, server_side=True)
            serve(connection)
        connection.close()

    def run():
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=one, args=(listener.accept()[0],), daemon=True).start()
    with socket.create_server(("127.0.0.1", 0)) as listener:
        threading.Thread(target=run, daemon=True).start()
        yield listener.getsockname()[1]


def request(connection):
    """Reads a request to its end."""
    data = b""
    while not data.endswith(END):
        piece = connection.recv(65536)
        if not piece:
            break
        data += piece


def says(data, then=None):
    def serve(connection):
        request(connection)
        connection.sendall(data)
        (then or close)(connection)
    return serve


def close(connection):
    """Ends the connection as a server does that has said all: nothing that was sent is lost."""
    with contextlib.suppress(OSError):
        connection.unwrap() if isinstance(connection, ssl.SSLSocket) else connection.shutdown(socket.SHUT_WR)


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


class Connection(OutsideCase):
    service_type = 1

    def setUp(self):
        super().setUp()
        self.stage.make_certificates()

    def context(self, certificate="server", **attributes):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.stage.certs / f"{certificate}.pem", self.stage.certs / f"{certificate}.key")
        for name, value in attributes.items():
            setattr(context, name, value)
        if attributes.get("verify_mode"):
            context.load_verify_locations(self.stage.certs / "ca.pem")
        return context

    def report(self, serve, tls="tls", times=1):
        """The results of so many tests against such a server, as agentctl prints them in JSON; a single one as it is."""
        with server(serve, self.context() if tls == "tls" else tls) as port:
            seen = [self.ask(port) for _ in range(times)]
        return seen[0] if times == 1 else seen

    def ask(self, port):
        root = self.work / f"root-{port}"
        (root / "IPS").mkdir(parents=True, exist_ok=True)
        (root / "IPS" / "agent.ini").write_text(f"[Agent]\nagent.http.url=https://127.0.0.1:{port}/korvane/agent/\n[System]\n"
                                                f"ssl.trustStore={self.stage.certs / 'ca.pem'}\n")
        status, text = self.stage.machine.agentctl("--install-root", str(root), "test-connection", "--json")
        result = json.loads(text[text.index("{"):])
        self.assertEqual((status, bool(result["ok"])), (0, True) if result["ok"] else (4, False))
        return result

    def check(self, result, stage, *words):
        """The walk ended at this stage, for a cause with all of these words; and it says what to do next."""
        self.assertEqual(result.get("failingStage", ""), stage, result)
        for word in words:
            self.assertIn(word.lower(), result["cause"].lower(), result)
        self.assertNotIn("getpeername", json.dumps(result))
        if stage:
            self.assertTrue(result["nextStep"])
            self.assertEqual((result["stages"][-1]["name"], result["stages"][-1]["ok"]), (stage, False))

    def table(self, rows):
        for name, (serve, tls, stage, *words) in rows.items():
            with self.subTest(name):
                self.check(self.report(serve, tls), stage, *words)

    def test_a_client_certificate_is_demanded(self):
        for version in ssl.TLSVersion.TLSv1_3, ssl.TLSVersion.TLSv1_2:
            with self.subTest(version.name):
                context = self.context(verify_mode=ssl.CERT_REQUIRED, minimum_version=version, maximum_version=version)
                seen = self.report(says(answer()), context, TRIES)
                told = {(one.get("failingStage"), one.get("cause"), one.get("nextStep")) for one in seen}
                self.assertEqual(len(told), 1, told)
                self.check(seen[0], "TLS handshake", "client certificate")

    def test_good_answers(self):
        parts = chunked(END[:4], END[4:]) + b"0\r\n\r\n"
        self.table({name: (serve, "tls", "") for name, serve in {
            "plain": says(answer()), "chunked": says(answer(parts, AGENT + b"Transfer-Encoding: chunked\r\n")),
            "trailers": says(answer(parts[:-2] + b"X: y\r\n\r\n", AGENT + b"Transfer-Encoding: chunked\r\n")),
            "to the end of the connection": says(b"HTTP/1.1 200 OK\r\nConnection: close\r\n" + AGENT + b"\r\n" + END),
            "no header but the body": says(answer(headers=b"")), "HTTP/1.0": says(answer().replace(b"1.1", b"1.0", 1)),
            "100 first": says(b"HTTP/1.1 100 Continue\r\n\r\n" + answer()),
            "byte by byte": lambda c: (request(c), [c.sendall(bytes([byte])) for byte in answer()], close(c))}.items()})

    def test_what_is_no_tls(self):
        def relay(count, then):
            """The first bytes of a real server's handshake, and then no more."""
            def serve(connection):
                with server(says(answer()), self.context()) as port, socket.create_connection(("127.0.0.1", port)) as real:
                    real.sendall(connection.recv(65536))
                    connection.sendall(real.recv(count, socket.MSG_WAITALL))
                then(connection)
            return serve
        greeting, plain = b"220 mail ESMTP\r\n", b"HTTP/1.1 400 Bad Request\r\n\r\n"
        self.table({"plain HTTP": (lambda c: (c.recv(9999), c.sendall(plain), close(c)), None, "TLS handshake", "HTTP"),
                    "another protocol": (lambda c: (c.sendall(greeting), c.recv(9999), close(c)), None, "TLS handshake"),
                    "closed at once": (lambda c: (c.recv(9999), close(c)), None, "TLS handshake", "closed"),
                    "reset at once": (lambda c: (c.recv(9999), reset(c)), None, "TLS handshake", "reset"),
                    **{f"{then.__name__} behind {count} bytes": (relay(count, then), None, "TLS handshake")
                       for count in (1, 5, 50, 130, 500) for then in (close, reset)},
                    "expired": (says(answer()), self.context("expired"), "certificate", "expired")})

    def test_other_answers(self):
        html = b"Content-Type: text/html\r\n"
        page = b"<html><head><title>Free airport net</title></head><body>hello</body></html>"
        packed = gzip.compress(END)
        rows = {f"status {status.decode()}": (says(answer(page, html, status)), "tls", "agent port", status[:3].decode())
                for status in (b"401 No", b"403 No", b"404 No", b"410 No")}
        rows.update({f"status {status.decode()}": (says(answer(page, html, status)), "tls", "HTTP answer", status[:3].decode())
                     for status in (b"407 No", b"500 No", b"503 No")})
        elsewhere = answer(b"", b"Location: https://login.example/x\r\n", b"302 Found")
        rows["redirection"] = (says(elsewhere), "tls", "agent port", "login.example")
        rows["another page"] = (says(answer(page, html)), "tls", "agent port", "Free airport net")
        rows["empty and foreign"] = (says(answer(b"", html)), "tls", "agent port")
        rows["an error of the server"] = (says(answer(END, AGENT + b"Korvane-Error: 300\r\n")), "tls", "server's answer", "300")
        rows["no framing"] = (says(answer(b"Data-Format=what\n")), "tls", "server's answer")
        self.table(rows)
        for headers in (AGENT, AGENT + b"Transfer-Encoding: chunked\r\n"):
            body = packed if b"hunked" not in headers else chunked(packed) + b"0\r\n\r\n"
            with self.subTest("gzip", headers=headers):
                result = self.report(says(answer(body, headers + b"Content-Encoding: gzip\r\n")))
                self.check(result, "HTTP answer", "gzip")


if __name__ == "__main__":
    sys.exit(cases.run(Connection, __doc__))
