#!/usr/bin/env bash
# usage: example_host_test.sh <build folder> <root of the sources>
# Installs library and development files into a scratch tree, moves it, and builds the example host against it,
# by the CMake package and by pkg-config; both must print what the example's session is.
set -euo pipefail
build="$1"
root="$2"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

for component in library development; do
    cmake --install "$build" --prefix "$scratch/first" --component "$component" >/dev/null
done
mv "$scratch/first" "$scratch/moved"
cp -r "$root/examples/minimal-host" "$scratch/example"
cd "$scratch/example"

cmake -S . -B by-cmake -DCMAKE_PREFIX_PATH="$scratch/moved" >/dev/null
cmake --build by-cmake >/dev/null
by-cmake/minimal-host >by-cmake.out

pc="$(find "$scratch/moved" -name ovmediacontrol.pc)"
PKG_CONFIG_PATH="$(dirname "$pc")" make -s
LD_LIBRARY_PATH="$(dirname "$(dirname "$pc")")" ./minimal-host >by-pkg-config.out

diff - by-cmake.out <<'END'
DESCRIBE orv/live/1/0
  m=video 0 RTP/AVP 96
  a=rtpmap:96 H264/90000
  a=control:trackID=0
SETUP, PLAY, PAUSE, TEARDOWN of trackID=0
  dispatcher: packetise trackID=0
  dispatcher: connect trackID=0
  dispatcher: play trackID=0
  dispatcher: pause trackID=0
  dispatcher: end trackID=0
END
diff by-cmake.out by-pkg-config.out

# Whatever an installed header includes is installed too.
include="$(find "$scratch/moved" -type d -name 'ovmediacontrol-*')"
(cd "$include" && find . -name '*.h' -printf '#include "%P"\n') >all.cpp
"${CXX:-c++}" -std=c++14 -fsyntax-only -I"$include" all.cpp

# Nothing of the library's own is installed: a header whose class is hidden, or that declares classes and exports none.
cd "$include"
if grep -rlE '^(class|struct) OV_INTERNAL ' .; then
    echo "these headers are the library's own" >&2
    exit 1
fi
own=0
while read -r header; do
    if ! grep -qE '^(class|struct) OV_EXPORT ' "$header"; then
        echo "$header: nothing in it is exported; say OV_INTERNAL at its class" >&2
        own=1
    fi
done < <(find . -path ./hostapi -prune -o -name '*.h' -exec grep -lE '^(class|struct) .*[^;]$' {} +)
exit "$own"
