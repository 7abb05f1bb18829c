"""The demo's part about server changes: policies, settings and packages, and fail-over to a second server.

Each part is told in plain lines, waits for what it tells, and returns the keys that it adds to the demo's JSON.
"""
import hashlib
import pathlib
import shutil
import subprocess
import time
import zipfile

import signing
from machine import StageError, wait_until

SIGN = pathlib.Path(__file__).resolve().parent.parent / "sign-package"

CONTENT = {"qel": "qel", "ferrolyn.revocation": "ferrolyn-revocation", "ferrolyn.settings": "ferrolyn-settings",
           "ferrolyn.vexvt": "ferrolyn-vexvt"}
POLICY_KEY = r"SOFTWARE\Korvane Demo"
RULES = "rule deny file web /srv/www/config/**\n" \
        f"rule log file web $(registry:{POLICY_KEY}|Docroot)/**\n"
LIMIT = 60
# What the parts below need of the agent's settings, next to what every story needs.
SETTINGS = {"Agent": {"server.list": "127.0.0.1,127.0.0.2"}, "AutoRetrans": {"autoretrans.interval": 2},
            "Polling": {"polling.interval": 5, "failback.interval": 5}}
REGISTRY = (f"[HKEY_LOCAL_MACHINE\\{POLICY_KEY}]", '"Docroot"="/srv/www"', "")


class Updates:
    """The changes that a stage's server makes to its one agent."""

    def __init__(self, stage, guid, say):
        self.stage = stage
        self.guid = guid
        self.say = say
        self.served = stage.work / "server" / "served"
        self.served.mkdir(parents=True, exist_ok=True)

    def assign(self, kind, file=None, until="fetched", notify=True, signed=False, **properties):
        self.stage.admin("/assign", {"kind": kind, "agent": self.guid, "until": until, "notify": notify, "signed": signed,
                                     "properties": {key.replace("_", "."): value for key, value in properties.items()},
                                     **({"file": file} if file else {})})

    def last_id(self, what):
        rows = self.stage.admin(f"/{what}?limit=100000")
        return rows[-1]["id"] if rows else 0

    def result(self, kind, after, suits, what):
        """The first result of a kind that suits, beyond the number `after`."""
        def found():
            return next((row for row in self.stage.admin(f"/results?type={kind}&after={after}") if suits(row)), None)
        return wait_until(found, LIMIT, what)

    def change_policy(self, name, version, rules, suits, what):
        """Assigns a policy; returns the agent's result and the milliseconds from the assignment to it."""
        source = self.stage.source_policy(f"policy-{version}", rules, name, version, f"demo-{version}")
        return self.deliver_policy(source, name, version, suits, what)

    def deliver_policy(self, source, name, version, suits, what, signed=False):
        shutil.copy(source, self.served)
        after = self.last_id("results")
        begun = time.time()
        self.assign("policy", source.name, signed=signed, policy_name=f"{name} {version}", policy_path=f"/policies/{version}")
        result = self.result("policy", after, suits, what)
        return result, round(result["at_ms"] - begun * 1000)

    def in_force(self):
        state = self.stage.machine.driver_control("state")
        return f"{state['name']} {state['version']}", state

    def policy(self):
        result, took = self.change_policy("Web servers", "3.2", RULES, lambda row: row["code"] == 0, "the policy's result")
        wait_until(lambda: self.in_force()[0] == "Web servers 3.2", LIMIT, "the policy in the driver")
        self.say(f"A policy is assigned: the agent fetched and translated it, and the driver loaded it; after {took} ms"
                 f" the server had the result {result['code']}.")
        self.say(f"The policy in force according to the driver: {self.in_force()[0]}.")
        return {"policy_loaded": True, "policy_in_force": self.in_force()[0], "policy_ms": took}

    def refused_policy(self):
        text = "no room for these rules"
        result, _ = self.change_policy("Web servers", "4.0", f"rule refuse {text}\n", lambda row: text in row["message"],
                                       "the refused policy's result")
        name, state = self.in_force()
        self.say(f"The driver refuses another one. The server reads: {result['code']}, \"{result['message']}\"."
                 f" The driver still has {name}, and the files are unchanged.")
        return {"policy_refused": result["code"], "policy_rolled_back": name == "Web servers 3.2" and not state["builtIn"]}

    def retranslation(self):
        """The policy names a registry value; once it is gone, the translation falls back on the value it knew."""
        def items():
            return {path.name: hashlib.sha256(path.read_bytes()).hexdigest()
                    for path in (self.stage.ips / "driver").glob("*..trans")}
        before, loaded = items(), self.in_force()[1]["loaded"]
        self.stage.machine.remove_registry_value(POLICY_KEY, "Docroot")
        wait_until(lambda: items() != before, LIMIT, "the translation anew")
        identical = self.in_force()[1]["loaded"] == loaded
        self.say("A registry value that the policy names is removed: the agent notices and retranslates. The result is"
                 + (" identical, so the driver was left alone." if identical else " different."))
        return {"retranslation_identical": identical}

    def setting(self):
        after = self.last_id("results")
        self.assign("config", polling_interval="3", mod_time=str(round(time.time() * 1000)), rid_applied="config-2")
        self.result("config", after, lambda row: row["code"] == 0, "the settings' result")
        wait_until(lambda: self.stage.setting("polling.interval") == "3", LIMIT, "the setting in agent.ini")
        self.say("A setting is changed: agent.ini now polls every 3 seconds instead of 5.")
        return {"setting_changed": True}

    def package(self, name, version, files):
        with zipfile.ZipFile(self.served / name, "w", zipfile.ZIP_DEFLATED) as archive:
            for path, text in files.items():
                archive.writestr(path, text)
            archive.writestr("package.properties", f"package.version={version}\n" + "".join(
                f"sha256.{path}={hashlib.sha256(text.encode()).hexdigest()}\n" for path, text in files.items()))
        return name

    def content(self):
        (self.stage.ids / "ids.properties").touch()  # the IDS component is there
        after = self.last_id("results")
        for kind in CONTENT:
            file = self.package(f"{kind}.zip", "2026.11", {"rules/base.dat": f"rules of {kind}\n" * 50, "index.txt": kind})
            self.assign(kind, file, until="result", notify=False)
        taken = 0
        for kind, short in CONTENT.items():
            self.result(kind, after, lambda row: row["code"] == 0, f"the result of {kind}")
            handed = self.stage.ids / "content" / f"{short}.properties"
            wait_until(lambda path=handed: path.exists() and "2026.11" in path.read_text(), LIMIT, f"{short} with the IDS component")
            taken += 1
        self.say(f"{taken} content packages came with the next status, were verified and handed over to the IDS component.")
        return {"content_packages": taken}

    def software(self):
        after = self.last_id("results")
        file = self.package("agent-1.1.zip", "1.1", {"setup/readme.txt": "what an installer would take\n"})
        self.assign("software", file, software_name="agent-1.1")
        result = self.result("software", after, lambda row: True, "the software's result")
        unpacked = (self.stage.ips / "update" / "software" / "setup" / "readme.txt").exists()
        self.say("A software package is unpacked where its installer finds it." if unpacked else "The software is missing.")
        return {"software_package": result["code"] == 0 and unpacked}

    def signed(self):
        """From here on the agent has trusted signers: it takes what they signed, and nothing else."""
        key, certificate = signing.make_test_key(self.stage.work)
        signers = self.stage.ips / "signers.pem"
        shutil.copy(certificate, signers)
        status, told = self.stage.machine.agentctl("config", "set", f"update.signing.keys={self.stage.machine.path(signers)}")
        if status != 0:
            raise StageError(f"update.signing.keys could not be set: {told}")
        wait_until(lambda: "not asked for" not in self.stage.machine.agentctl("status")[1], LIMIT, "the agent's trusted signers")
        plain, other = (self.stage.source_policy(f"policy-{version}", RULES, "Web servers", version, f"demo-{version}")
                        for version in ("5.0", "6.0"))
        good = self.served / f"{plain.name}.signed"
        subprocess.run([SIGN, "--kind", "policy", "--name", "Web servers", "--version", "5", "--signer", certificate, key, plain, good],
                       check=True)
        exchanged, bytes_of = self.served / f"{other.name}.signed", other.read_bytes()
        head = good.read_bytes()[:-plain.stat().st_size].rpartition(b"content ")[0]
        exchanged.write_bytes(head + f"content {len(bytes_of)}\n".encode() + bytes_of)
        codes = {}
        for what, file in (("unsigned", plain), ("exchanged", other), ("signed", plain)):
            result, _ = self.deliver_policy(file, "Web servers", "5.0", lambda row: True, f"the result of the {what} policy",
                                            signed=what != "unsigned")
            codes[what] = result["code"]
            self.say(f"The agent has trusted signers now. Of an {what} policy the server reads: {result['code']}, \"{result['message']}\"."
                     if codes[what] else "The signed one is loaded: " + self.in_force()[0] + ".")
        return {"signatures_checked": codes == {"unsigned": 1101, "exchanged": 1112, "signed": 0}
                and self.in_force()[0] == "Web servers 5.0"}

    def notification(self):
        taken = []
        for _ in range(5):
            time.sleep(0.3 + self.stage.random.random())
            after, begun = self.last_id("requests"), time.time()
            self.stage.admin("/notify", {"agent": self.guid, "kinds": ["policy"]})
            request = wait_until(lambda: self.stage.admin(f"/requests?word=update&after={after}"), LIMIT, "the notified request")[0]
            taken.append(request["at_ms"] + 1 - begun * 1000)  # the server's time is cut to whole milliseconds
        median = round(sorted(taken)[len(taken) // 2], 1)
        self.say(f"After a notification the agent asks for updates within {median} ms (the median of {len(taken)}).")
        return {"notification_ms": median}

    def asked_at(self, address, after):
        return any(row["listener"] == address for row in self.stage.admin(f"/requests?after={after}&limit=1000"))

    def second_server(self):
        """The server in use is ended; later it comes back. Both have one data directory."""
        first, second = "127.0.0.1", "127.0.0.2"
        reserve = self.stage.start_server_at(second, self.stage.server_port)
        after = self.last_id("requests")
        begun = time.monotonic()
        self.stage.server.stop()
        with self.stage.administered_by(reserve):
            wait_until(lambda: self.asked_at(second, after), LIMIT, f"a request at {second}")
            over = round(time.monotonic() - begun, 1)
            after = self.last_id("requests")
        self.stage.start_server()
        begun = time.monotonic()
        wait_until(lambda: self.asked_at(first, after), LIMIT, f"a request at {first} again")
        back = round(time.monotonic() - begun, 1)
        self.say(f"The server goes down: {over} s later the agent has switched to the second one, {second}. The first comes back:"
                 f" {back} s later the agent has returned to it.")
        return {"failed_over": True, "failed_back": True}


def obey(stage, guid, say):
    """All that a server changes of one agent, in the order of the story."""
    updates = Updates(stage, guid, say)
    figures = {}
    for part in (updates.policy, updates.refused_policy, updates.retranslation, updates.setting, updates.content,
                 updates.software, updates.signed, updates.notification):
        figures.update(part())
    return figures


def fail_over(stage, guid, say):
    return Updates(stage, guid, say).second_server()
