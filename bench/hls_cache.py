#!/usr/bin/env python3
"""Measures what readers of low-latency HLS behind a cache cost ovrtspd, and how late they get their parts.

    bench/hls_cache.py --build build/release [--readers 1,100,1000] [--seconds 20]

ovrtspd serves its test camera (1280x720, 25 frames a second, a key frame each second, 2 Mbit/s) over HTTP, nginx stands in
front of it as docs/http.md configures it, and watch_load reads: each reader reloads the playlist, blocking, and loads each
part that it hints at. The latency is from a frame's capture to the arrival of its part, for the part's last frame. Server, cache
and readers share the machine's cores.
"""

import argparse
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import urllib.request

from cameras import circumstances, end_all

SERVER = """
port = {rtsp}
log-level = "warning"
[http]
listen = "127.0.0.1:{http}"
connections = 4096
connections-per-address = 4096
rate = 100000
[[camera]]
id = 1
[[camera.stream]]
id = 0
"""

NGINX = """
daemon off;
worker_processes 1;
worker_rlimit_nofile 16384;
pid {folder}/nginx.pid;
error_log {folder}/nginx.log;
events {{ worker_connections 8192; }}
http {{
    access_log off;
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    keepalive_requests 1000000;
    log_format origin '$upstream_status $uri $args';
    map $upstream_status $asked {{ default 1; "" 0; }}
    proxy_cache_path {folder}/cache keys_zone=hls:10m max_size=1g inactive=1m;
    server {{
        listen 127.0.0.1:{cache} backlog=4096;
        access_log {folder}/origin.log origin if=$asked;
        location ~ ^/api/v1/cameras/\\d+/streams/\\d+/hls/ {{
            proxy_pass http://127.0.0.1:{http};
            proxy_http_version 1.1;
            proxy_set_header Connection "";
            proxy_set_header Host localhost;
            proxy_cache hls;
            proxy_cache_lock on;
            proxy_cache_lock_timeout 30s;
            proxy_cache_lock_age 30s;
        }}
    }}
}}
"""


def start(arguments, folder):
    (folder / "server.toml").write_text(SERVER.format(rtsp=arguments.port, http=arguments.port + 1))
    (folder / "nginx.conf").write_text(NGINX.format(folder=folder, http=arguments.port + 1, cache=arguments.port + 2))
    server = subprocess.Popen([arguments.build / "ovrtspd", "-c", folder / "server.toml"], stdout=subprocess.DEVNULL)
    nginx = subprocess.Popen(["nginx", "-p", folder, "-c", folder / "nginx.conf"], stderr=subprocess.DEVNULL)
    url = f"http://127.0.0.1:{arguments.port + 2}/api/v1/cameras/1/streams/0/hls/live.m3u8"
    for _ in range(100):
        try:
            urllib.request.urlopen(url, timeout=20).read()
            return server, nginx
        except OSError:
            time.sleep(0.2)
    raise RuntimeError("nginx does not serve the playlist")


def measure(arguments, server, folder, readers, port):
    log = folder / "origin.log"
    before = len(log.read_text().splitlines()) if log.exists() else 0
    started = time.monotonic()
    done = subprocess.run([arguments.build / "watch_load", "--mode", "hls", "--port", str(port), "--viewers", str(readers),
                           "--seconds", str(arguments.seconds), "--server-pid", str(server.pid)],
                          capture_output=True, text=True, check=True)
    span = time.monotonic() - started
    figures = json.loads(done.stdout)
    lines = log.read_text().splitlines()[before:] if log.exists() else []
    parts = [line for line in lines if re.search(r"-p\d+\.m4s", line)]
    figures["origin_parts"] = len(parts)
    figures["origin_parts_twice"] = len(parts) - len(set(parts))
    figures["origin_requests_second"] = len(lines) / span
    return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/release"))
    parser.add_argument("--readers", default="1,100,1000")
    parser.add_argument("--seconds", type=float, default=20)
    parser.add_argument("--port", type=int, default=8554, help="of RTSP; the next two are those of the server's HTTP and the cache")
    arguments = parser.parse_args()
    arguments.build = arguments.build.resolve()
    folder = pathlib.Path(tempfile.mkdtemp(prefix="hls-cache-"))
    os.chmod(folder, 0o755)
    processes = []
    try:
        processes = list(start(arguments, folder))
        arguments.rounds = 1
        print(circumstances(arguments, os.getloadavg()[0]))
        print("| Readers | at | Latency median | p95 | max | Parts a reader and second | Requests a second at the origin "
              "| Parts asked for twice | Origin, % of a core |\n|---|---|---|---|---|---|---|---|---|")
        for place, port in (("the server", arguments.port + 1), ("the cache", arguments.port + 2)):
            for readers in [1] if place == "the server" else map(int, arguments.readers.split(",")):
                found = measure(arguments, processes[0], folder, readers, port)
                print(f"| {readers} | {place} | {found['latency_median']:.3f} s | {found['latency_p95']:.3f} s "
                      f"| {found['latency_max']:.3f} s | {found['parts_per_reader_second']:.2f} "
                      f"| {found['origin_requests_second']:.1f} | {found['origin_parts_twice']} of {found['origin_parts']} "
                      f"| {found['server_core_percent']:.1f} |", flush=True)
    finally:
        end_all(processes)
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
