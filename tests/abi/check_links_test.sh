#!/usr/bin/env bash
# usage: check_links_test.sh <check_links.py> <C++ compiler>
# A name of a folder below may be used, one of a folder above may not, whatever is included; no object is no result.
set -euo pipefail
check="$1"
compiler="$2"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

# object <path> <source>
object() {
    mkdir -p "$(dirname "$scratch/refhost.dir/$1")"
    "$compiler" -x c++ -c -o "$scratch/refhost.dir/$1" - <<<"$2"
}

object base/Log.cpp.o 'void log() {}'
object rtp/udp/Socket.cpp.o 'void log(); void send() { log(); }'
object main.cpp.o 'void send(); void run() { send(); }'
/usr/bin/python3 "$check" "$scratch"/refhost.dir/base/Log.cpp.o "$scratch"/refhost.dir/rtp/udp/Socket.cpp.o \
    "$scratch"/refhost.dir/main.cpp.o | grep -Fx "2 names, 0 faults"

object base/Up.cpp.o 'void send(); void up() { send(); }'
if found="$(/usr/bin/python3 "$check" "$scratch"/refhost.dir/base/Up.cpp.o "$scratch"/refhost.dir/rtp/udp/Socket.cpp.o)"; then
    exit 1
fi
grep -Fx "base/Up.cpp needs _Z4sendv: base must not know rtp/udp" <<<"$found"

if /usr/bin/python3 "$check"; then exit 1; fi
