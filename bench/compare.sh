#!/usr/bin/env bash
# Puts the same load on ovrtspd and on GStreamer's RTSP server, both with the same bits, and prints
# tables for bench/README.md.
# usage: bench/compare.sh [BUILD_FOLDER] [SECONDS] [KBIT_PER_SECOND]    (build/release, 10, 2000)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-$root/build/release}"
seconds="${2:-10}"
rate="${3:-2000}"
work="$(mktemp -d)"
servers=()
cleanup() {
    for server in "${servers[@]}"; do
        kill "$server" 2>/dev/null || true
        wait "$server" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT

# Encoded once, so that both servers send the same bits and neither spends time on an encoder. It is long enough for
# one case and cannot be rewound, so that a client's PLAY does not start it again for all.
recording="$work/recording.mkv"
gst-launch-1.0 -q videotestsrc num-buffers=$(((seconds + 45) * 25)) pattern=smpte horizontal-speed=2 \
    ! video/x-raw,format=I420,width=1280,height=720,framerate=25/1 ! timeoverlay \
    ! x264enc tune=zerolatency speed-preset=ultrafast bitrate="$rate" vbv-buf-capacity=1000 key-int-max=25 bframes=0 \
        aud=false option-string=nal-hrd=cbr:sliced-threads=0 threads=2 \
    ! h264parse ! matroskamux ! filesink location="$recording"
frame="multifilesrc location=$recording ! matroskademux ! h264parse config-interval=-1 ! identity sync=true"

# Each case starts its server again, so that none inherits memory from the one before.
start_ours() {
    cat >"$work/ovrtspd.toml" <<EOF
port = 0
log-level = "warning"

[limits]
connections = 8192
connections-per-address = 8192
sessions = 8192
sessions-per-address = 8192

[[camera]]
id = 1

[[camera.stream]]
id = 0
source = "launch"
location = '$frame name=video'
audio = "none"
EOF
    "$build/ovrtspd" -c "$work/ovrtspd.toml" >"$work/out" 2>"$work/err" &
    wait_for_url
}
start_theirs() {
    "$build/bench_gst_rtsp_server" 8599 "( $frame ! video/x-h264,alignment=au ! rtph264pay name=pay0 pt=96 mtu=1376 )" \
        >"$work/out" 2>"$work/err" &
    wait_for_url
}
wait_for_url() {
    pid=$!
    servers+=("$pid")
    for _ in $(seq 100); do
        url="$(grep -o 'rtsp://[^ ]*' "$work/out" 2>/dev/null | head -n 1 || true)"
        [ -n "$url" ] && return
        sleep 0.1
    done
    echo "no server: $(cat "$work/err")" >&2
    exit 1
}
stop() {
    kill "$pid" 2>/dev/null || echo "    $1 ended by itself" >&2
    wait "$pid" 2>/dev/null || true
}

value() { awk -v name="$1" '$1 == name { found = $2 } END { print found }' "$work/result"; }

# run <name of the row> <fields to print> <arguments of rtsp_load>…: one row for each server
run() {
    local row="$1" fields="$2" which field cells
    shift 2
    for which in ours theirs; do
        rm -f "$work/out" # or the former server's URL would be taken for this one's
        "start_$which"
        "$build/rtsp_load" --url "$url" --server-pid "$pid" "$@" >"$work/result" || true
        cells=""
        for field in $fields; do
            cells+=" $(value "$field" | sed 's/^$/-/') |"
        done
        echo "| $row | $([ "$which" = ours ] && echo ovrtspd || echo gst-rtsp-server) |$cells"
        grep -E '^(fault|failure) ' "$work/result" | sed "s/^/    /" >&2 || true
        stop "$which"
    done
}

echo "$(date -u +%F), $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p'), Linux $(uname -r), load before: $(cut -d' ' -f1-3 /proc/loadavg), $rate kbit/s"
echo
echo "| cycles, 32 clients | server | cycles a second | failed | PLAY → first packet p50, ms | p99, ms | server, % of a core |"
echo "|---|---|---|---|---|---|---|"
for transport in udp tcp; do
    run "$transport" "cycles_per_second failed play_to_first_packet_p50_ms play_to_first_packet_p99_ms server_core_percent" \
        --mode cycles --clients 32 --transport "$transport" --keep-warm --seconds "$seconds"
done
echo
echo "| start, one client at a time | server | PLAY → key frame p50, ms | p95, ms | p99, ms |"
echo "|---|---|---|---|---|"
for transport in udp tcp; do
    run "$transport" "play_to_key_frame_p50_ms play_to_key_frame_p95_ms play_to_key_frame_p99_ms" \
        --mode cycles --clients 1 --until-key-frame --transport "$transport" --keep-warm --seconds "$seconds"
done
echo
echo "| viewers that stay | server | % of a core a viewer | µs of a core a packet | KB a session | packets a viewer and second | packets lost | viewers with faults | threads |"
echo "|---|---|---|---|---|---|---|---|---|"
for viewers in 100 1000; do
    for transport in udp tcp; do
        run "$viewers $transport" "core_percent_per_viewer server_us_per_packet resident_kb_per_session packets_per_viewer_second packets_lost with_faults server_threads" \
            --mode hold --viewers "$viewers" --transport "$transport" --baseline-seconds 4 --seconds "$seconds"
    done
done
