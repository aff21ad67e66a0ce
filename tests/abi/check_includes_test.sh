#!/usr/bin/env bash
# usage: check_includes_test.sh <check_includes.py>
# The check refuses one forbidden include of each kind.
set -euo pipefail
check="$1"
root="$(mktemp -d)"
trap 'rm -rf "$root"' EXIT
failed=0

# file <path> [include]
file() {
    mkdir -p "$root/$(dirname "$1")"
    echo "${2:+#include $2}" >"$root/$1"
}

# refused <what> <words of the fault>
refused() {
    local said
    if said="$(/usr/bin/python3 "$check" "$root")"; then
        echo "not refused: $1" >&2
        failed=1
    elif ! grep -qF "$2" <<<"$said"; then
        printf 'refused for another reason: %s\n%s\n' "$1" "$said" >&2
        failed=1
    fi
}

for path in hostapi/base/Time.h support/Handle.h mediaurl/Url.h live/Live.h refhost/base/Log.h refhost/rtp/Packet.h \
    refhost/rtp/udp/Socket.h refhost/live/Track.h refhost/rtsp/message/Url.h refhost/rtsp/session/Session.h tests/Fake.h; do
    file "$path"
done
/usr/bin/python3 "$check" "$root" >/dev/null || { echo "refused without a reason" >&2; exit 1; }

file support/Up.h '"live/Live.h"'
refused "an include from the bottom of the library to its top" "support must not know live"
file support/Up.h
file live/Up.h '"refhost/base/Log.h"'
refused "an include from the library to the reference host" "live must not know refhost"
file live/Up.h '<sys/socket.h>'
refused "a header of the system in the library" "which is not of the C++ standard library"
file live/Up.h
file refhost/base/Up.h '"tests/Fake.h"'
refused "an include from the reference host to the tests" "refhost must not know tests"
file refhost/base/Up.h '"refhost/live/Track.h"'
refused "an include from a folder of the reference host to a higher one" "base must not know live"
file refhost/base/Up.h
file refhost/rtp/Cycle.h '"refhost/rtp/udp/Socket.h"'
file refhost/rtp/udp/Cycle.h '"refhost/rtp/Packet.h"'
refused "an include that closes a circle of two folders" "rtp must not know rtp/udp"
file refhost/rtp/Cycle.h
file refhost/rtsp/message/Up.h '"refhost/rtsp/session/Session.h"'
refused "an include from a message to a session" "rtsp/message must not know rtsp/session"
file refhost/rtsp/message/Up.h
file refhost/helpers/Own.h '"refhost/base/Log.h"'
refused "a folder that is not in the order" "has no place in the order"
exit "$failed"
