"""The IDS component of a soak: it writes real-time logs without a pause and knows what must become of each line."""
import os
import random
import threading
import time

MARK = "0,2026-11-21 03:28:17.123"
GOOD, KEPT = 1, 2  # fates of a numbered line: delivered or dropped by the server; kept back by a log rule


class Component(threading.Thread):
    """Writes `rate` lines a second, a new log every `rotate` lines, one line in `junk` being no event, and answers requests."""

    def __init__(self, stage, seed, rate, rotate=2500, junk=97):
        super().__init__(daemon=True)
        self.ids, self.folder = stage.ids, stage.ids / "logs"
        self.up = "..\\logs\\" if stage.machine.target == "windows" else "../logs/"
        self.random, self.rate, self.rotate_at, self.junk_at = random.Random(seed), rate, rotate, junk
        self.fates = bytearray(1)  # by number, from 1 on
        self.read = self.junk = self.logs = self.in_log = 0
        self.rules, self.answered, self.keeping = [], 0, False
        self.uncounted = {}  # cause -> losses that nobody can count
        self.lock, self.writing, self.ended, self.failed = threading.RLock(), threading.Event(), threading.Event(), None
        self.tail = ""  # the other half of a line that is written in two pieces
        self.folder.mkdir(exist_ok=True)
        self.begin()

    def run(self):
        last = time.monotonic()
        owed = 0.0
        try:
            while not self.ended.wait(0.05):
                now = time.monotonic()
                owed, last = (min(owed + self.rate * (now - last), 2.0 * self.rate) if self.writing.is_set() else 0.0), now
                with self.lock:
                    self.answer()
                    if self.writing.is_set() and owed >= 1:
                        self.write(int(owed))
                        owed -= int(owed)
                        if not self.tail and self.in_log >= self.rotate_at:
                            self.rotate()
        except OSError as error:
            self.failed = repr(error)

    # Logs ------------------------------------------------------------------------------------------------------------

    def begin(self, named=True):
        """A new log, which the settings name from now on."""
        self.logs += 1
        self.log, self.in_log = self.folder / f"KAV-{self.logs:06}.csv", 0
        self.append(f"MSOF,{MARK}\n")
        if named:
            self.settings()

    def settings(self):
        fresh = self.ids / "ids.properties.new"
        fresh.write_text("".join([f"ids.service.eventfile.name={self.up}KAVEvent-900000.csv\n",
                                  f"ids.service.rteventfile.name={self.up}{self.log.name}\n", *self.rules]))
        fresh.replace(self.ids / "ids.properties")

    def append(self, text, log=None):
        with open(log or self.log, "ab") as file:
            file.write(text.encode())

    def rotate(self):
        before = self.log
        self.begin()
        self.append(f"MEOF,{MARK},{self.log.name}\n", before)

    def answer(self):
        """Takes what the agent hands over, as the component would."""
        request = self.ids / "config.request"
        if not request.exists():
            return
        lines = request.read_text().splitlines(keepends=True)
        request.unlink()
        self.rules = [line for line in lines if line.startswith("Log.")] or self.rules
        self.settings()
        fresh = self.ids / "config.result.new"
        fresh.write_text("".join([next(line for line in lines if line.startswith("request.id=")),
                                  "IDS.Config.ResultCode=0\nIDS.Config.ResultMessage=\n"]))
        fresh.replace(self.ids / "config.result")
        self.answered += 1

    # Lines -----------------------------------------------------------------------------------------------------------

    def line(self, kind, text=""):
        number, fate = len(self.fates), KEPT if kind == "TREG" and self.keeping else GOOD
        self.fates.append(fate)
        self.read += fate == GOOD
        self.in_log += 1
        return f"{kind},{number},2026-11-21 03:28:17.{number % 1000:03},{text or f'alice {number}'}{',x' * 16}\n"

    def write(self, count):
        """So many lines, at least one and with a single one at the end: runs of equal ones, torn ones and such that are no event."""
        text, self.tail = self.tail, ""
        first = len(self.fates)
        while len(self.fates) < first + count - 1:
            kind = self.random.choice(["TFIL", "TREG", "TNET", "PSET", "DNET"])
            run = self.random.choice([1, 1, 1, 1, 4])
            same = f"same {len(self.fates)}"
            text += "".join(self.line(kind, same if run > 1 else "") for _ in range(run))
            if self.random.randrange(self.junk_at) == 0:
                text += "this line is no event\n"
                self.junk += 1
        last = self.line("TNET")
        if self.writing.is_set() and self.random.random() < 0.1:
            last, self.tail = last[:20], last[20:]
        self.append(text + last)

    def pause(self):
        """Ends in a whole line that belongs to no run."""
        self.writing.clear()
        with self.lock:
            self.write(1)

    @property
    def expected(self):
        """How many lines the agent must have read."""
        return self.read + self.junk

    # What becomes of logs; while paused --------------------------------------------------------------------------------

    def lose(self, cause):
        self.uncounted[cause] = self.uncounted.get(cause, 0) + 1

    def unread(self):
        """Lines that nobody will ever read, nor expects."""
        self.append("".join(f"TNET,0,2026-11-21 03:28:17.123,never read{',x' * 16}\n" for _ in range(7)))

    def gone(self):
        """For an agent that does not run: the rest of its log disappears."""
        self.unread()
        self.log.unlink()
        self.begin()
        self.lose("log-gone")

    def replaced(self):
        """For an agent that does not run: its log is another one."""
        self.unread()
        old = self.log
        self.log = old.with_name("fresh")
        self.append(f"MSOF,{MARK}\n")
        self.write(300)
        self.log.replace(old)
        self.log = old
        self.lose("log-replaced")

    def cut(self):
        """The log that the agent reads begins anew."""
        os.truncate(self.log, 0)
        self.append(f"MSOF,{MARK}\n")
        self.write(3)
        self.lose("log-replaced")

    def deleted(self):
        """The log that the agent has open disappears with lines that it has not read: they are read all the same."""
        self.write(15)
        self.log.unlink()
        self.begin()

    def gap(self):
        """The log that an end mark names never appears."""
        before = self.log
        self.logs += 1
        self.append(f"MEOF,{MARK},KAV-{self.logs:06}.csv\n", before)
        self.begin()
        self.lose("log-gap")


class Outcomes:
    """What the server said to each line at last: the latest request that carries a line decides, since the agent repeats a
    request until it has an answer."""

    def __init__(self, stage):
        self.stage, self.after, self.codes, self.wrong = stage, 0, bytearray(), 0

    def look(self, fates):
        """Counts (delivered, dropped, rejected) of the lines written; `wrong` counts lines that arrived and should not have."""
        self.codes.extend(b"\xff" * (len(fates) - len(self.codes)))
        while rows := self.stage.admin(f"/requests?type=log&after={self.after}&limit=2000"):
            for row in rows:
                self.after = row["id"]
                self.take(row, fates)
        counts = {code: self.codes.count(code) for code in (0, 1, 2)}
        return counts[0], counts[1], counts[2]

    def take(self, row, fates):
        code = {0: 0 if row["stored"] else 3, 302: 1, 600: 2}.get(row["korvane_error"], 3)
        for first, last in row["spans"]:
            self.wrong += sum(not 0 < number < len(fates) or fates[number] != GOOD for number in range(first, last + 1))
            self.codes[first:last + 1] = bytes([code]) * (last + 1 - first)
