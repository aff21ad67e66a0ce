"""How long processes had to wait for a processor: what a busy machine takes from those that are to be judged."""

import pathlib


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
