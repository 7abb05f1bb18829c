"""Runs korvane-server as a program: program_test.py PROGRAM CERTIFICATES"""
import http.client
import json
import pathlib
import signal
import subprocess
import sys
import tempfile

program, certificates = sys.argv[1], pathlib.Path(sys.argv[2])
certificate = ["--cert", str(certificates / "server.pem"), "--key", str(certificates / "server.key")]

with tempfile.TemporaryDirectory() as folder:
    for number in (signal.SIGTERM, signal.SIGINT):
        ready_file = pathlib.Path(folder) / "ready"
        command = [program, "--data", folder + "/data", *certificate, "--bind", "127.0.0.1", "--bind", "127.0.0.2",
                   "--ready-file", str(ready_file)]
        with subprocess.Popen(command, stdout=subprocess.PIPE) as server:
            ready = json.loads(server.stdout.readline())
            admin = http.client.HTTPConnection("127.0.0.1", ready["admin_port"], timeout=20)
            admin.request("GET", "/state")
            assert json.loads(admin.getresponse().read())["events"] == 0
            assert ready["pid"] == server.pid and ready["url"].endswith("/korvane/agent/")
            server.send_signal(number)
            assert server.wait(20) == 0, server.returncode
        assert json.loads(ready_file.read_text()) == ready
        ready_file.unlink()

    failed = subprocess.run([program, "--data", folder, "--cert", "missing.pem", "--key", "missing.pem"],
                            capture_output=True, text=True, timeout=20)
    assert failed.returncode == 1 and "missing.pem" in failed.stderr, failed
    assert subprocess.run([program], capture_output=True, timeout=20).returncode != 0
