#!/usr/bin/env bash
# usage: baseline_catches_breaks.sh <python> <root of the sources> <scratch folder>
# Breaks the interface in copies of the sources; check_baseline.py must refuse each of them.
set -euo pipefail
python="$1"
root="$2"
scratch="$3"

# copy <name>: what building the library alone takes
copy() {
    rm -rf "${scratch:?}/$1"
    mkdir -p "$scratch/$1"
    tar -C "$root" --exclude=./.git --exclude=./build --exclude=./var --exclude=./refhost --exclude=./tests \
        --exclude=./bench -cf - . | tar -C "$scratch/$1" -xf -
}

# refused <name> <what the explanation must hold>
refused() {
    if "$python" "$root/tests/abi/check_baseline.py" "$(uname -m | tr _ -)" "$scratch/$1/build" --source "$scratch/$1" \
        >"$scratch/$1.out"; then
        echo "$1 was not noticed"
        exit 1
    fi
    grep -q -- "$2" "$scratch/$1.out" || { cat "$scratch/$1.out" && exit 1; }
    grep -q "new soname" "$scratch/$1.out"
}

copy removed-operation
grep -q 'virtual int mediaInit() = 0;' "$scratch/removed-operation/live/IRTSPController.h"
sed -i 's/virtual int mediaInit() = 0;//' "$scratch/removed-operation/live/IRTSPController.h"
grep -rl 'mediaInit() override' "$scratch/removed-operation" | xargs sed -i 's/mediaInit() override/mediaInit()/'
refused removed-operation "IRTSPController::mediaInit()"

copy reordered-field
sed -i -e 's/^    int cameraID_;$/    int swapped_;/' -e 's/^    int streamID_;$/    int cameraID_;/' \
    -e 's/^    int swapped_;$/    int streamID_;/' "$scratch/reordered-field/mediaurl/MediaUrlParam.h"
! cmp -s "$scratch/reordered-field/mediaurl/MediaUrlParam.h" "$root/mediaurl/MediaUrlParam.h"
# The constructor's list stands in the old order.
refused reordered-field "cameraID_"
