"""A control group with a memory limit, where the system permits it: cgroup 2, or the memory controller of cgroup 1."""

import os
import pathlib

ROOT = pathlib.Path("/sys/fs/cgroup")


class MemoryGroup:
    """`version`: 2, 1, or 0 where no group can be made; then nothing is limited."""

    def __init__(self, name, limit):
        self.limit = limit
        self.version = 0
        for version, parent, file in ((2, ROOT, "memory.max"), (1, ROOT / "memory", "memory.limit_in_bytes")):
            folder = parent / f"{name}-{os.getpid()}"
            # Elsewhere this may be a folder like any other.
            if not (parent / "cgroup.procs").exists():
                continue
            try:
                folder.mkdir()
            except OSError:
                continue
            try:
                (folder / file).write_text(str(limit))
            except OSError:
                folder.rmdir()
                continue
            self.version, self.folder = version, folder
            break
        if self.version == 1:
            # What sockets hold counts apart here, within one limit in version 2.
            self._try_write("memory.kmem.tcp.limit_in_bytes", limit)

    def _try_write(self, file, value):
        try:
            (self.folder / file).write_text(str(value))
        except OSError:
            pass

    def wrapper(self, folder, binary):
        """A program that runs `binary` in the group, under the same process number."""
        if self.version == 0:
            return str(binary)
        path = pathlib.Path(folder) / "in_memory_group.sh"
        path.write_text(f'#!/bin/sh\necho $$ > "{self.folder}/cgroup.procs"\nexec "{binary}" "$@"\n')
        path.chmod(0o755)
        return str(path)

    def figures(self):
        """Bytes, and how often the limit was met; an empty object where there is no group."""
        names = {0: {}, 1: {"now": "memory.usage_in_bytes", "peak": "memory.max_usage_in_bytes",
                            "met": "memory.failcnt", "tcp_peak": "memory.kmem.tcp.max_usage_in_bytes"},
                 2: {"now": "memory.current", "peak": "memory.peak"}}[self.version]
        found = {}
        for name, file in names.items():
            try:
                found[name] = int((self.folder / file).read_text())
            except (OSError, ValueError):
                continue
        return found

    def remove(self):
        """After its last process."""
        if self.version:
            self.folder.rmdir()
