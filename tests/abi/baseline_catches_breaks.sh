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

# change <name> <file> <sed's program>: and it must have changed something
change() {
    sed -i "$3" "$scratch/$1/$2"
    ! cmp -s "$scratch/$1/$2" "$root/$2" || { echo "$2 is not what this test takes it for" && exit 1; }
}

# refused <name> <what the explanation must hold>...
refused() {
    local name="$1" words
    shift
    if "$python" "$root/tests/abi/check_baseline.py" "$(uname -m | tr _ -)" "$scratch/$name/build" --source "$scratch/$name" \
        >"$scratch/$name.out"; then
        echo "$name was not noticed"
        exit 1
    fi
    # What abidiff itself reports stands before these words.
    sed -n '/^A host that was built/,$p' "$scratch/$name.out" >"$scratch/$name.words"
    for words in "$@" "new soname"; do
        grep -qF -- "$words" "$scratch/$name.words" || { cat "$scratch/$name.out" && echo "missing: $words" && exit 1; }
    done
}

# Two kinds of break in each copy, because building one takes seconds; each has words of its own.
copy removed-operation-and-reordered-field
change removed-operation-and-reordered-field live/IRTSPController.h 's/virtual int mediaInit() = 0;//'
grep -rl 'mediaInit() override' "$scratch/removed-operation-and-reordered-field" |
    xargs sed -i 's/mediaInit() override/mediaInit()/'
# The constructor's list stands in the old order.
change removed-operation-and-reordered-field mediaurl/MediaUrlParam.h \
    's/^    int cameraID;$/    int swapped_;/; s/^    int streamID;$/    int cameraID;/; s/^    int swapped_;$/    int streamID;/'
refused removed-operation-and-reordered-field "table of virtual operations" IRTSPController OVPlaybackController \
    "these fields moved" "int cameraID" "int streamID"

copy swapped-operations-and-grown-handle
swap='s/virtual int parseMediaUrl(const std::string& url) = 0;/@/; s/virtual int getThirdPlatType() = 0;/virtual int parseMediaUrl(const std::string\& url) = 0;/; s/@/virtual int getThirdPlatType() = 0;/'
change swapped-operations-and-grown-handle mediaurl/IMediaUrl.h "$swap"
change swapped-operations-and-grown-handle support/SafePointer.h 's/^    ref_count\* count_;/&\n    void* more_ = nullptr;/'
change swapped-operations-and-grown-handle mediaurl/MediaUrlParam.h '/getDeviceId() const;/d'
change swapped-operations-and-grown-handle mediaurl/MediaUrlParam.cpp '/::getDeviceId() const/,/^}/d'
refused swapped-operations-and-grown-handle "table of virtual operations" IMediaUrl "these fields moved" "void* more_" \
    "these are gone" "MediaUrlParam::getDeviceId() const"
