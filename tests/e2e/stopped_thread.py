"""Stops one thread of another process, as a debugger does."""

import ctypes
import os
import pathlib

PTRACE_DETACH = 17
PTRACE_SEIZE = 0x4206
PTRACE_INTERRUPT = 0x4207
WAIT_FOR_THREADS = 0x40000000  # __WALL

libc = ctypes.CDLL(None, use_errno=True)
libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]
libc.ptrace.restype = ctypes.c_long


def thread_named(pid, name):
    """The id of a process's thread."""
    for thread in pathlib.Path(f"/proc/{pid}/task").iterdir():
        if (thread / "comm").read_text().strip() == name:
            return int(thread.name)
    raise AssertionError(f"no thread {name} in {pid}")


class StoppedThread:
    """It does not run within the `with` statement."""

    def __init__(self, thread):
        self.thread = thread

    def __enter__(self):
        self._trace(PTRACE_SEIZE)
        self._trace(PTRACE_INTERRUPT)
        os.waitpid(self.thread, WAIT_FOR_THREADS)
        return self

    def __exit__(self, *_):
        self._trace(PTRACE_DETACH)

    def _trace(self, request):
        if libc.ptrace(request, self.thread, None, None) != 0:
            raise OSError(ctypes.get_errno(), f"ptrace {request} of thread {self.thread}")
