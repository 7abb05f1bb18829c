"""Memory, handles and threads of the agents of a soak."""
import collections
import os
import pathlib
import threading
import time

WINDOW = 15  # seconds; the least memory of each counts, so that a bundle under way is no growth
WARM_UP = 300  # seconds of a life that are not judged: buffers and the allocator's arenas reach their size
LONG_ENOUGH = 300  # seconds behind it, of one life, for a slope to be judged


class Health(threading.Thread):
    """Looks at the private memory of whatever agent runs, once a second."""

    def __init__(self, stage):
        super().__init__(daemon=True)
        self.stage, self.ended, self.begun = stage, threading.Event(), {}
        self.memory = collections.defaultdict(dict)  # pid -> window -> least KiB
        self.most = 0
        self.quiet = []  # (pid, seconds of its life, handles, threads, KiB)
        self.open = []  # what the latest handles are

    def run(self):
        while not self.ended.wait(1):
            try:
                pid, used, now = self.stage.agent.pid, self.stage.memory_kib("RssAnon"), time.monotonic()
            except (OSError, AttributeError):
                continue
            if used:
                age = now - self.begun.setdefault(pid, now)
                self.most = max(self.most, used)
                window = self.memory[pid]
                window[int(age // WINDOW)] = min(used, window.get(int(age // WINDOW), used))

    def look(self):
        """A quiet moment: the least handles and threads of a few seconds, so that a file that is just being read is none."""
        pid, handles, threads, used = self.stage.agent.pid, [], [], []
        for _ in range(12):
            time.sleep(0.25)
            here = pathlib.Path(f"/proc/{pid}")
            open_now = []
            for entry in (here / "fd").iterdir():
                try:
                    open_now.append(os.readlink(entry))
                except OSError:
                    pass
            if not handles or len(open_now) < min(handles):
                self.open = sorted(open_now)
            handles.append(len(open_now))
            threads.append(len(list((here / "task").iterdir())))
            used.append(self.stage.memory_kib("RssAnon"))
        age = time.monotonic() - self.begun.get(pid, time.monotonic())
        self.quiet.append((pid, round(age), min(handles), min(threads), min(used)))
        return self.quiet[-1]

    def lives(self):
        """The quiet moments of each process that had at least two, the first one left out when it was new."""
        by_pid = collections.defaultdict(list)
        for pid, *rest in self.quiet:
            by_pid[pid].append(tuple(rest))
        return [moments for moments in by_pid.values() if len(moments) > 1]

    def constant(self):
        """Whether handles and threads are the same at all quiet moments of each process."""
        return (all(len({handles for _, handles, _, _ in moments}) == 1 for moments in self.lives()),
                all(len({threads for _, _, threads, _ in moments}) == 1 for moments in self.lives()))

    def slope(self):
        """KiB a minute: the linear fit over all lives that are long enough, each with a level of its own; and the seconds behind it."""
        above = below = 0.0
        seconds = 0
        for windows in self.memory.values():
            points = [(window * WINDOW / 60, used) for window, used in windows.items() if window * WINDOW >= WARM_UP]
            if len(points) * WINDOW < LONG_ENOUGH:
                continue
            seconds += len(points) * WINDOW
            middle = sum(t for t, _ in points) / len(points)
            level = sum(used for _, used in points) / len(points)
            above += sum((t - middle) * (used - level) for t, used in points)
            below += sum((t - middle) ** 2 for t, _ in points)
        return (round(above / below, 2) if below else None), seconds
