#!/usr/bin/env python3
"""The local channel as docs/rpc.md has it: frames, bounds, and what becomes of bad messages and parameters.

local_channel.py --build DIR [CASE ...]
"""
import contextlib
import json
import socket
import sys
import threading
import time

from outside import FRAME, Client, Closed, OutsideCase, cases, wait_until

SLACK = 2.5  # seconds that a loaded machine may add to a bound
METHODS = ["getTechStatus", "getTechNames", "getAgentVersion", "getStatus", "getSettings", "getPolicy", "queryDriver",
           "getLogPointers", "getCounters"]
MEBI = 1 << 20


class LocalChannel(OutsideCase):
    def setUp(self):
        super().setUp()
        self.stage.start_agent()
        wait_until(lambda: self.logged("10106"), 60, "the start")

    def code(self, client, message):
        """The code of the answer to a message, 0 for a result."""
        client.send(message)
        answer = client.receive()
        self.assertEqual(answer["jsonrpc"], "2.0")
        return int(answer["error"]["code"]) if "error" in answer else 0

    def request(self, name="getTechNames", **members):
        return json.dumps({"jsonrpc": "2.0", "name": name, **members})

    def test_messages(self):
        good = self.request()
        rows = [(0, good), (0, "  " + good + "\r\n\t"), (0, self.request(id=5, params={"a": [1, None]}, more="x")),
                (0, self.request(jsonrpc=None)), (0, self.request(jsonrpc={"a": 1})), (0, self.request(jsonrpc="")),
                (-32601, self.request("gettechnames")), (-32601, self.request("x" * 5000)), (-32601, self.request("getTechNames\0")),
                (-32600, '{"name":"getTechNames"}'), (-32600, '{"jsonrpc":"2.0"}'), (-32600, "{}"), (-32600, "[]"),
                (-32600, "[" + good + "]"), (-32600, '{"JSONRPC":"2.0","name":"getTechNames"}'),
                (-32600, '{"jsonrpc":"2.0","NAME":"getTechNames"}'),
                *((-32700, text) for text in (
                    "", " ", "{", good[:-1], good + "}", good + " x", good + good, good.replace(":", "=", 1), "'" + good + "'",
                    good.replace('"', "'"), good[:-1] + ",}", good.replace("2.0", "2\\x0"), good.replace("2.0", "\\ud8"),
                    good.replace("2.0", "2\n0"), "nul", good + "\0", "\0" + good)),
                *((-32700, data) for data in (b"\xff\xfe{}", good.encode().replace(b"2.0", b"\xff"), good.encode("utf-16-le"))),
                (0, self.request(params={"x": "\U0001F600 \u00fc"})),
                (0, self.request(params={"x": "\\ud83d\\ude00"}).replace("\\\\", "\\"))]
        with Client(self.stage) as client:
            for code, message in rows:
                with self.subTest(message=message[:80]):
                    self.assertEqual(self.code(client, message), code)

    def test_identifiers(self):
        with Client(self.stage) as client:
            for value in (0, 1, "7", 2147483647, "2147483647"):
                client.send(self.request(id=value))
                self.assertEqual(client.receive().get("id"), str(value))
            for value in (-1, "-1", 1.5, "1.5", 2147483648, 1 << 64, "x", "", "1x", None, True, [], [1], {}, {"a": 1}):
                with self.subTest(id=value):
                    client.send(self.request(id=value))
                    answer = client.receive()
                    self.assertEqual((answer.get("id"), answer["error"]["code"]), (None, "-32600"))
            client.send(self.request())
            self.assertEqual(list(client.receive()), ["jsonrpc", "result"])
            client.send(self.request("what", id=3))
            self.assertEqual(list(client.receive()), ["jsonrpc", "id", "error"])

    def test_sizes(self):
        def padded(length, text=None):
            text = text or self.request(id=1)
            return text + " " * (length - len(text))
        with Client(self.stage) as client:
            for length in (4087, 4088, 4089, 8184, 8185, 100_000):
                self.assertEqual(self.code(client, padded(length)), 0, length)
            client.send(self.request(id=2) + "what is behind the message", length=len(self.request(id=2)))
            self.assertEqual(client.receive()["id"], "2")
            client.send(self.request(id=3), length=len(self.request(id=3)) - 1)
            self.assertEqual(client.receive()["error"]["code"], "-32700")
            for levels, values, code in ((62, 1, 0), (64, 1, -32700), (1, 49_000, 0), (1, 51_000, -32700)):
                params = "[" * levels + ",".join("1" * values) + "]" * levels
                with self.subTest(levels=levels, values=values):
                    self.assertEqual(self.code(client, f'{{"jsonrpc":"2.0","name":"getTechNames","params":{{"x":{params}}}}}'), code)
        text = self.request(params={"x": "y" * (8 * MEBI - 200)})
        with Client(self.stage) as client:
            self.assertEqual(self.code(client, padded(8 * MEBI, text)), 0)
            self.assertEqual(self.code(client, padded(8 * MEBI + 1, text)), -32600)
            self.assertEqual(self.code(client, self.request()), 0, "the frames of the long one were passed over")
            client.send("", length=0xFFFFFFFF)
            self.assertEqual(client.receive()["error"]["code"], "-32600")

    def test_requests_behind_each_other(self):
        with Client(self.stage) as client:
            many = b"".join(client.frames(self.request(METHODS[number % len(METHODS)], id=number)) for number in range(60))
            threading.Thread(target=client.raw, args=(many,), daemon=True).start()
            self.assertEqual([client.receive()["id"] for _ in range(60)], [str(number) for number in range(60)])
            noise = b"\0" * FRAME + b"x" * FRAME + b"\xde\xad\xbe\xee" + bytes(FRAME - 4)
            client.raw(noise + client.frames(self.request(id=1)))
            self.assertEqual(client.receive()["id"], "1", "frames that begin no message are passed over")
            whole = client.frames(self.request(id=2))
            for cut in (1, 4, 8, 4095):
                client.raw(whole[:cut])
                time.sleep(0.2)
                client.raw(whole[cut:])
                self.assertEqual(client.receive()["id"], "2")

    def held_up(self, act, first=False, agentctl=False):
        """One client does act(client) again and again; returns the seconds until another one, that came later, has its answer."""
        with Client(self.stage) as bad, Client(self.stage) as good:
            if first:
                bad.ask("getTechNames")
            begun = time.monotonic()
            ended = threading.Event()

            def go_on():
                with contextlib.suppress(Closed, OSError):
                    while not ended.is_set():
                        act(bad)
            threading.Thread(target=go_on, daemon=True).start()
            time.sleep(0.1)
            if agentctl:
                good.socket.close()
                self.assertEqual(self.stage.machine.agentctl("call", "getTechNames", "--timeout", "8000")[0], 0, "agentctl")
            else:
                good.ask("getTechNames")
            ended.set()
            return time.monotonic() - begun

    def test_a_client_does_not_hold_the_channel(self):
        begin, nothing = Client.frames("x" * 5000), bytes(FRAME)
        byte = iter(begin)

        def slowly(client, data=nothing, pause=0.3):
            client.raw(data)
            time.sleep(pause)
        rows = {"nothing": (lambda _: time.sleep(0.2), 3), "no message every 300 ms": (slowly, 3),
                "no message at once": (lambda c: slowly(c, pause=0), 3), "half frames": (lambda c: slowly(c, nothing[:2048]), 3),
                "a byte at a time": (lambda c: slowly(c, bytes([next(byte)]), 0.2), 3),
                "a frame that stops": (lambda c: slowly(c, begin[:FRAME + 10], 9), 3), "no further request": (slowly, 10),
                "answers that nobody reads": (lambda c: c.send(self.request("getStatus")), 4)}
        for name, (act, bound) in rows.items():
            with self.subTest(name):
                self.assertLess(self.held_up(act, bound == 10, name.endswith("300 ms")), bound + SLACK)

    def test_clients_that_wait(self):
        with contextlib.ExitStack() as waiting:
            path = str(self.stage.machine.run_dir / "korvane-agent.pipe")
            with self.assertRaises(BlockingIOError):  # there is an end to the places to wait in
                for _ in range(1000):
                    client = waiting.enter_context(socket.socket(socket.AF_UNIX))
                    client.setblocking(False)
                    client.connect(path)
        self.assertEqual(self.call("getTechNames")["jsonrpc"], "2.0")


if __name__ == "__main__":
    sys.exit(cases.run(LocalChannel, __doc__))
