#!/usr/bin/env bash
# usage: hardening_test.sh <root of the sources> <build folder>
# Builds the library as the packages' preset does, and reads back how it is hardened; and that the check finds what is not.
set -euo pipefail
root="$1"
build="$2/hardened"
check="$(dirname "${BASH_SOURCE[0]}")/check_hardening.py"

# The build tree is kept: only the first run compiles.
(cd "$root" && cmake --preset package -B "$build" -DOV_BUILD_REFHOST=OFF -DOV_TEST_PACKAGES=OFF >"$build.log" 2>&1 &&
    cmake --build "$build" --target ovmediacontrol >>"$build.log" 2>&1) || { cat "$build.log" >&2; exit 1; }
"$check" "$build"/libovmediacontrol.so.*.*.*

# A program without any of it.
cat >"$build/program.cpp" <<'END'
#include <cstdio>
#include <cstdlib>
#include <cstring>
int main(int count, char** arguments)
{
    char page[65536];
    char name[64];
    std::strcpy(name, arguments[0]);
    std::memset(page, count, sizeof page);
    return std::printf("%s %d\n", name, page[std::rand() % 65536]) < 0;
}
END
found="$(c++ -O2 -fno-stack-protector -no-pie -fcf-protection=none -Wl,-z,norelro,-z,lazy,-z,execstack "$build/program.cpp" -o "$build/soft" 2>/dev/null ||
    c++ -O2 -fno-stack-protector -no-pie -Wl,-z,norelro,-z,lazy,-z,execstack "$build/program.cpp" -o "$build/soft"
    "$check" "$build/soft" || true)"
for fault in "not position-independent" "stay writable" "binds functions late" "executable stack" "no stack protector" "no checked"; do
    grep -q "$fault" <<<"$found" || { echo "not found in a program without it: $fault" >&2; exit 1; }
done
