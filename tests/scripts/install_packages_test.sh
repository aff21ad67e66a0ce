#!/usr/bin/env bash
# Runs cmake/install-packages.sh against stand-ins of the system's tools and looks at what it does with them.
# usage: install_packages_test.sh <root of the sources>
set -euo pipefail
script="$1/cmake/install-packages.sh"
mapfile -t listed < <(sed -e 's/#.*//' -e 's/[[:space:]]*$//' -e '/^$/d' "$1/cmake/debian-packages.txt")
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin"
failures=0

stand_in() {
    printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

# run <uid> <packages that are not installed>…: leaves the output in $output, the calls in $calls, the exit in $code.
run() {
    local uid="$1" package
    shift
    : >"$work/calls"
    : >"$work/present"
    for package in "${listed[@]}"; do
        case " $* " in
            *" $package "*) echo "config-files $package" >>"$work/present" ;;
            *) echo "installed $package" >>"$work/present" ;;
        esac
    done
    stand_in id "echo $uid"
    stand_in dpkg-query "cat '$work/present'; exit 1"
    stand_in apt-get "echo \"apt-get \$*\" >>'$work/calls'"
    code=0
    output="$(PATH="$work/bin:/usr/bin:/bin" bash "$script" 2>&1 </dev/null)" || code=$?
    calls="$(cat "$work/calls")"
}

expect() {
    if [ "$2" != "$3" ]; then
        echo "$1: expected '$3', got '$2'"
        failures=$((failures + 1))
    fi
}

stand_in sudo 'exit 1'

run 0
expect "nothing missing: exit" "$code" 0
expect "nothing missing: output" "$output" ""
expect "nothing missing: calls" "$calls" ""

run 0 ccache tshark
expect "as root: exit" "$code" 0
expect "as root: calls" "$calls" "apt-get -q update
apt-get -q install -y --no-install-recommends ccache tshark"

run 1000 ccache
expect "sudo that would ask, without a terminal: exit" "$code" 1
expect "sudo that would ask: calls" "$calls" ""
case "$output" in
    *"apt-get install -y --no-install-recommends ccache"*) ;;
    *) expect "sudo that would ask: advice" "$output" "the command to run as root" ;;
esac

run 1000
expect "nothing missing, not root: exit" "$code" 0
expect "nothing missing, not root: output" "$output" ""

stand_in sudo 'if [ "$1" = -n ]; then exit 0; fi; exec "$@"'
run 1000 ninja-build
expect "sudo without a question: exit" "$code" 0
expect "sudo without a question: calls" "$calls" "apt-get -q update
apt-get -q install -y --no-install-recommends ninja-build"

# Without the network nothing is half done in silence.
run_failing() {
    run 0 ccache
    stand_in apt-get 'exit 100'
    code=0
    PATH="$work/bin:/usr/bin:/bin" bash "$script" >/dev/null 2>&1 </dev/null || code=$?
}
run_failing
expect "apt-get fails: exit" "$code" 100

exit "$((failures > 0))"
