"""What stands in the tables of virtual operations of a shared library."""
import pathlib
import re
import struct
import subprocess


class Library:
    """A shared object's dynamic symbols, and the words that its relocations fill in."""

    def __init__(self, path):
        self.bytes = pathlib.Path(path).read_bytes()
        self.is_64_bit = self.bytes[4] == 2
        self.is_arm = struct.unpack_from("<H", self.bytes, 18)[0] == 40
        self.path = str(path)
        self.sections = [(int(address, 16), int(offset, 16), int(size, 16)) for address, offset, size in
                         re.findall(r"PROGBITS +([0-9a-f]+) ([0-9a-f]+) ([0-9a-f]+)", self._readelf("--sections"))]
        self.symbols = {}
        self.names_at = {}
        for line in self._run("nm", "-D", "-S", "--defined-only"):
            parts = line.split()
            if len(parts) == 4:
                name = parts[3].split("@")[0]
                self.symbols[name] = (int(parts[0], 16), int(parts[1], 16))
                self.names_at.setdefault(self._code(int(parts[0], 16)), set()).add(name)
        self.filled = {}
        for line in self._readelf("--relocs").splitlines():
            match = re.match(r"([0-9a-f]+) +[0-9a-f]+ (R_\w+) *(.*)", line)
            if match:
                self.filled[int(match[1], 16)] = (match[2], match[3].split())

    def _run(self, tool, *options):
        return subprocess.run([tool, *options, self.path], check=True, capture_output=True, text=True).stdout.splitlines()

    def _readelf(self, option):
        return "\n".join(self._run("readelf", "--wide", option))

    def _code(self, address):
        # The lowest bit says in which of the processor's two instruction sets a function is written.
        return address & ~1 if self.is_arm else address

    def _word(self, address):
        for start, offset, size in self.sections:
            if start <= address < start + size:
                return struct.unpack_from("<Q" if self.is_64_bit else "<I", self.bytes, offset + address - start)[0]
        raise ValueError(f"no section holds {address:#x}")

    def meant_by(self, address):
        """The symbols that a word of a table points at; a number when it is no pointer."""
        kind, details = self.filled.get(address, ("", []))
        if "RELATIVE" in kind:
            target = int(details[0], 16) if details else self._word(address)
            return self.names_at.get(self._code(target), set())
        if details:
            return {details[-3 if details[-2:-1] == ["+"] else -1].split("@")[0]}
        return self._word(address)

    def table(self, class_symbol):
        """Where the table of a class starts, and its words."""
        address, size = self.symbols["_ZTV" + class_symbol]
        step = 8 if self.is_64_bit else 4
        return [self.meant_by(place) for place in range(address, address + size, step)]


def operations(library):
    """Of each class with a table: its name as the compiler has it, and the symbols that each place points at.

    GCC leaves the destructors' places of an abstract class empty, because nobody can get at them; other compilers
    do not.
    """
    opened = Library(library)
    for table in sorted(name for name in opened.symbols if name.startswith("_ZTV")):
        name = table[len("_ZTV"):]
        first, information, *places = opened.table(name)
        if first != 0 or information != {"_ZTI" + name}:
            raise ValueError(f"{table} does not start like a table: {first}, {information}")
        destructors = ({f"_ZN{name}D1Ev"}, {f"_ZN{name}D0Ev"})
        yield name, [(*destructors, *places)[i] if here == 0 and i < 2 else here
                     for i, here in enumerate(places)]
