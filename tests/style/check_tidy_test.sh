#!/usr/bin/env bash
# usage: check_tidy_test.sh <check_tidy.py> <clang-tidy>
# The check refuses a finding, forgets none, knows what passed, and checks again what has changed.
set -euo pipefail
check="$1"
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
project="$root/project"
export XDG_CACHE_HOME="$root/cache"
failed=0

cat >"$root/tool" <<EOF
#!/bin/sh
exec "$2" "\$@"
EOF
chmod +x "$root/tool"

# A file with two headers, one of them included by the other, in a folder of its own.
start() {
    rm -rf "$project" "$XDG_CACHE_HOME"
    mkdir -p "$project/live" "$project/early" "$project/late" "$project/build"
    printf "Checks: '-*,modernize-use-nullptr'\nWarningsAsErrors: '*'\nHeaderFilterRegex: '.*'\n" >"$project/.clang-tidy"
    printf '#pragma once\n#include "Far.h"\n' >"$project/live/Near.h"
    printf '#pragma once\n' >"$project/late/Far.h"
    printf '#include "Near.h"\nint* a = nullptr;\n#ifdef ZERO\nint* b = 0;\n#endif\n' >"$project/live/A.cpp"
    compiled_with ""
    find "$project" "$root/tool" -exec touch -d '1 minute ago' {} +
}

compiled_with() {
    cat >"$project/build/compile_commands.json" <<EOF
[{"directory": "$project/build", "file": "$project/live/A.cpp",
  "command": "/usr/bin/ccache /usr/bin/c++ -I$project/early -I$project/late $1 -O1 -g -Wall -Werror -o live/A.o -c $project/live/A.cpp"}]
EOF
}

run() {
    said="$(/usr/bin/python3 "$check" "$root/tool" "$project" "$project/build" "$@" 2>&1)"
}

wrong() {
    printf '%s\n%s\n' "$1" "$said" >&2
    failed=1
}

refused() {
    if run; then wrong "not refused: $1"; fi
}

# taken <what> <files that were checked>
taken() {
    if ! run; then
        wrong "refused: $1"
    elif [[ "$said" != *" $2 checked "* ]]; then
        wrong "$1: not $2 files checked"
    fi
}

passed_once() {
    start
    taken "a clean file" 1
    taken "a clean file again" 0
}

passed_once
echo 'int* d = 0;' >>"$project/live/A.cpp"
refused "a finding in the file"
refused "the same finding again"

passed_once
echo 'static int* d = 0;' >>"$project/live/Near.h"
refused "a finding in a header"

passed_once
echo 'static int* d = 0;' >>"$project/late/Far.h"
refused "a finding in a header's header"
refused "the same finding again"

passed_once
printf '#pragma once\nstatic int* d = 0;\n' >"$project/early/Far.h"
refused "a finding in a header that hides another"

passed_once
compiled_with -DZERO
refused "a finding under a definition"

passed_once
sed -i 's/modernize-use-nullptr/modernize-use-trailing-return-type,cppcoreguidelines-avoid-non-const-global-variables/' "$project/.clang-tidy"
refused "a finding of another configuration"

passed_once
printf "Checks: '-*,cppcoreguidelines-avoid-non-const-global-variables'\nWarningsAsErrors: '*'\n" >"$project/live/.clang-tidy"
refused "a finding of a folder's own configuration"

passed_once
sed -i 's/"\$@"/--checks=cppcoreguidelines-avoid-non-const-global-variables --warnings-as-errors="*" "$@"/' "$root/tool"
refused "a finding of another tool"
sed -i 's/--checks.* "\$@"/"$@"/' "$root/tool"

start
sed -i 's/int\* a/int*/' "$project/live/A.cpp"
refused "a file that does not compile"

passed_once
printf 'int x;\n' >>"$project/live/A.cpp"
taken "a file that was just edited" 1

start
touch -d '1 minute' "$project/late/Far.h"
taken "a file whose header is edited meanwhile" 1
taken "a file whose header was edited meanwhile" 1

passed_once
mv "$project" "$root/elsewhere"
project="$root/elsewhere"
sed -i "s|$root/project|$root/elsewhere|g" "$project/build/compile_commands.json"
taken "a copy of the project" 0
rm -rf "$project"
project="$root/project"

start
sed -i '1i #define HEADER "Near.h"\n#include HEADER' "$project/live/A.cpp"
taken "an include that a macro names" 1
taken "an include that a macro names, again" 1

start
mkdir -p "$XDG_CACHE_HOME/ovmediacontrol-tidy"
(cd "$XDG_CACHE_HOME/ovmediacontrol-tidy" && seq 9000 | xargs touch -d yesterday)
taken "a file with much in memory" 1
count="$(find "$XDG_CACHE_HOME/ovmediacontrol-tidy" -type f | wc -l)"
[ "$count" -le 8192 ] || { said=""; wrong "$count passes are remembered"; }
taken "what was remembered last" 0

start
XDG_CACHE_HOME=/dev/null taken "a file without memory" 1

start
if run refhost/; then wrong "not refused: nothing to check"; fi
exit "$failed"
