"""How long processes had to wait for a processor, to judge durations on a busy machine."""

import pathlib
import time


def waited(pid="self"):
    """Seconds for which the living threads of a process could have run and did not; 0 where the system does not count
    them."""
    nanoseconds = 0
    for task in pathlib.Path(f"/proc/{pid}/task").glob("*/schedstat"):
        try:
            nanoseconds += int(task.read_text().split()[1])
        except (OSError, IndexError):
            continue
    return nanoseconds / 1e9


def waits_for_disk(pid):
    """Whether some thread of a process waits for the disk just now, where no signal reaches it."""
    for task in pathlib.Path(f"/proc/{pid}/task").glob("*/stat"):
        try:
            state = task.read_text().rpartition(")")[2].split()[0]
        except (OSError, IndexError):
            continue
        if state == "D":
            return True
    return False


class Stopwatch:
    """Seconds in which the test and the processes that it names could run: it stands still while a busy machine keeps
    their threads waiting."""

    def __init__(self, *pids):
        self.pids = ("self", *pids)
        self.started = time.monotonic()
        self.waited = [waited(pid) for pid in self.pids]

    def read(self):
        """The count of a process that has ended is lost."""
        lost = sum(max(0.0, waited(pid) - before) for pid, before in zip(self.pids, self.waited))
        return max(0.0, time.monotonic() - self.started - lost)
