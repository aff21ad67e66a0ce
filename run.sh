#!/usr/bin/env bash
# Installs what is missing, builds, and starts ovrtspd with the arguments given: ./run.sh --help
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"

"$root/cmake/install-packages.sh"
(
    cd "$root"
    if [ ! -f build/release/build.ninja ]; then
        cmake --preset release >&2
    fi
    # Quiet when there is nothing to do; the program's own output starts on a clean screen.
    cmake --build --preset release --target ovrtspd >&2
)
exec "$root/build/release/ovrtspd" "$@"
