#!/usr/bin/env bash
# usage: play_emulated.sh <server> <sysroot> <folder of the sysroot's libraries>
# Starts a server for 32-bit ARM under an emulator, with one small test camera, and plays a second of its frames and
# its audio over TCP; the server has to end as it should.
set -euo pipefail
server="$1"
sysroot="$2"
libdir="$3"
scratch="$(mktemp -d)"
pid=""
trap '[ -z "$pid" ] || kill "$pid" 2>/dev/null; rm -rf "$scratch"' EXIT

give_up() {
    echo "$1" >&2
    cat "$scratch/log" "$scratch/player" >&2 2>/dev/null
    exit 1
}

# No interface has this address, so that none is chosen for multicast: the emulator does not know how.
address=127.0.0.2
port="$(python3 -c "import socket; s = socket.socket(); s.bind(('$address', 0)); print(s.getsockname()[1])")"
# The emulator has neither Landlock nor filters of system calls.
cat >"$scratch/ovrtspd.toml" <<END
listen = "$address"
port = $port
sandbox = false

[http]
listen = "127.0.0.1:0"

[[camera]]
id = 1

  [[camera.stream]]
  id = 0
  source = "synthetic"
  width = 160
  height = 120
  frame-rate = 5
  bit-rate = 64
END

# What the camera takes, instead of all that there is: looking at each of them takes the emulator long.
mkdir "$scratch/plugins"
for plugin in app audiobuffersplit audioconvert audioresample audiotestsrc coreelements mulaw pango rtp videoparsersbad \
    videotestsrc x264; do
    ln -s "$sysroot/$libdir/gstreamer-1.0/libgst$plugin.so" "$scratch/plugins/"
done
export GST_PLUGIN_SYSTEM_PATH="$scratch/plugins" GST_REGISTRY="$scratch/registry" GST_REGISTRY_FORK=no
exec {said}< <(exec qemu-arm -L "$sysroot" "$server" --config "$scratch/ovrtspd.toml" 2>"$scratch/log")
pid="$!"
while read -r -t 60 -u "$said" line; do
    [ "$line" != "ovrtspd is serving:" ] || break
done
[ "${line:-}" = "ovrtspd is serving:" ] || give_up "the server does not start"

timeout 60 ffmpeg -v error -rtsp_transport tcp -i "rtsp://$address:$port/orv/live/1/0" \
    -map 0:v -frames:v 5 -f framecrc "$scratch/frames" -map 0:a -frames:a 50 -f framecrc "$scratch/audio" \
    </dev/null 2>"$scratch/player" || give_up "the stream does not play"
played="$(grep -vch '^#' "$scratch/frames" "$scratch/audio" | xargs)"
[ "$played" = "5 50" ] || give_up "a second has 5 frames and 50 blocks of audio, but these came: $played"

kill "$pid"
code=0
wait "$pid" || code="$?"
pid=""
[ "$code" -eq 0 ] || give_up "the server ended with $code"
grep -E ' (warning|error) ' "$scratch/log" >&2 && give_up "the server complains"
exit 0
