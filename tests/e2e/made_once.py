"""Files that tests share: each is made by the first test that needs it."""

import fcntl


def made_once(path, make):
    """`path`, after `make(partial)` where the file does not exist yet. Tests that run side by side wait for the one that
    makes it; one that dies leaves nothing behind that others would take for the file."""
    if not path.exists():
        with open(path.with_name(path.name + ".lock"), "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            if not path.exists():
                partial = path.with_name("partial-" + path.name)
                make(partial)
                partial.rename(path)
    return path
