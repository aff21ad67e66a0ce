#!/usr/bin/env python3
"""Measures what ovrtspd costs beside the least that serving can cost: rtsp_canned, which sends the same packets.

    bench/floor.py --build build/release [--also NAME=FOLDER]... [--peer] [--rounds 5] [--seconds 6] [--cases udp,tcp,...]

rtsp_origin plays a camera (640x360, 25 frames a second, a key frame every two seconds, 1 Mbit/s), ovrtspd reads it,
and rtsp_canned records what ovrtspd sends of it. Then rtsp_load puts the same load on all of them by turns, case by
case and round by round, so that what else the machine does meets all alike. Of each round the ratio to rtsp_canned is
taken; the tables have the medians. With --also, another build's ovrtspd takes its turn: a change and what was before.
With --peer, GStreamer's RTSP server sends the same camera's frames. Where the case "tls" is measured and the kernel
has TLS, ovrtspd takes a second turn without it.
"""

import argparse
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

from cameras import make_video

CONFIG = """
port = 0
log-level = "warning"

[http]
listen = ""

[limits]
connections = 8192
connections-per-address = 8192
sessions = 8192
sessions-per-address = 8192

[[camera]]
id = 1
[[camera.stream]]
id = 0
source = "rtsp"
location = "{location}"
audio = "none"
"""
TLS = """
[tls]
port = 0
certificate = "{folder}/certificate.pem"
key = "{folder}/key.pem"
kernel-tls = {kernel}
"""
PEER_LINE = ("( rtspsrc location={location} protocols=tcp latency=0 ! rtph264depay ! h264parse config-interval=-1 "
             "! video/x-h264,alignment=au ! rtph264pay name=pay0 pt=96 mtu=1376 )")
CASES = {
    "udp": ("UDP viewer, % of a core", ["--mode", "hold", "--transport", "udp"], "core_percent_per_viewer"),
    "tcp": ("TCP viewer, % of a core", ["--mode", "hold", "--transport", "tcp"], "core_percent_per_viewer"),
    "srtp": ("SRTP viewer, % of a core", ["--mode", "hold", "--transport", "udp", "--srtp"], "core_percent_per_viewer"),
    "tls": ("TLS viewer, % of a core", ["--mode", "hold", "--transport", "tcp", "--tls"], "core_percent_per_viewer"),
    "handshakes": ("full TLS handshakes a second", ["--mode", "handshakes", "--tls"], "handshakes_per_second"),
    "resumed": ("resumed TLS handshakes a second", ["--mode", "handshakes", "--tls", "--resume"], "handshakes_per_second"),
    "udp-cycles": ("cycles a second, UDP", ["--mode", "cycles", "--transport", "udp"], "cycles_per_second"),
    "tcp-cycles": ("cycles a second, TCP", ["--mode", "cycles", "--transport", "tcp"], "cycles_per_second"),
}
FLOOR = "rtsp_canned"
PEER = "gst-rtsp-server"
WITHOUT_KERNEL_TLS = "without kernel TLS"
# Which rtsp_canned does not send: compared with the same server's plain viewers of the same round.
ENCRYPTED = {"srtp": "udp", "tls": "tcp"}
HANDSHAKES = ("handshakes", "resumed")


class Server:
    """A program that prints its URLs, of which the first with this scheme is taken; ends with the block."""

    def __init__(self, command, log, scheme="rtsp"):
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=log, text=True)
        line = path = ""
        while f"{scheme}://" not in line:
            line = self.process.stdout.readline()
            if not line:
                raise RuntimeError(f"{command[0]} did not start")
            path = path or "".join(re.findall(r"rtsps?://[^/\s]+/(\S+)", line)[:1])
        # Where TLS has one line for all streams, after theirs.
        self.url = re.search(rf"{scheme}://[^/\s]+/", line).group(0) + path

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def kernel_has_tls():
    return "tls" in pathlib.Path("/proc/sys/net/ipv4/tcp_available_ulp").read_text().split()


def is_tls(case):
    return case == "tls" or case in HANDSHAKES


def serves(name, case):
    if name == FLOOR:
        return case not in ENCRYPTED and case not in HANDSHAKES
    if name == PEER:
        return case != "srtp"
    return name != WITHOUT_KERNEL_TLS or case in ("tcp", "tls")


def make_certificate(folder):
    """ECDSA P-256, the same for all servers."""
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "90",
                    "-subj", "/CN=localhost", "-keyout", folder / "key.pem", "-out", folder / "certificate.pem"], check=True,
                   capture_output=True)
    (folder / "both.pem").write_text((folder / "certificate.pem").read_text() + (folder / "key.pem").read_text())


def load(arguments, server, case):
    """One run of rtsp_load. What it finds wrong is printed: rtsp_canned sends no reports and no first timestamp."""
    url = server.url.replace("rtsps:", "rtsp:") + ("?security=srtp" if case == "srtp" else "")  # it goes by --tls
    command = [arguments.build / "rtsp_load", "--url", url, "--server-pid", str(server.process.pid), "--json",
               "--seconds", str(arguments.seconds), *CASES[case][1]]
    if "hold" in command:
        command += ["--viewers", str(arguments.viewers), "--baseline-seconds", str(arguments.baseline)]
    elif "cycles" in command:
        command += ["--clients", str(arguments.clients), "--keep-warm"]
    ran = subprocess.run(command, capture_output=True, text=True)
    result = json.loads(ran.stdout)
    result["good"] = ran.returncode == 0
    if result.get("failed") or result.get("packets_lost"):
        print(f"    {server.url}: {result.get('failed')} failed, {result.get('packets_lost')} packets lost "
              f"{result.get('fault', '')}", file=sys.stderr)
    return result


def table(results, names, cases):
    cases = [case for case in cases if case not in ENCRYPTED and case not in HANDSHAKES]
    names = [name for name in names if name != WITHOUT_KERNEL_TLS]
    if not cases:
        return
    print("\n| | " + " | ".join(names) + " | " + " | ".join(f"{name} / floor" for name in names if name != FLOOR) + " |")
    print("|---|" + "---:|" * (2 * len(names) - 1))
    rows = [(case, *CASES[case][::2]) for case in cases]
    rows += [(case, f"µs of a core a cycle, {case[:3].upper()}", "server_us_per_cycle") for case in cases if "cycles" in case]
    rows += [(case, f"longest silence of any viewer, {case.upper()}, ms", "longest_silence_ms") for case in cases
             if "cycles" not in case]
    rows += [(case, f"KB a session, {case.upper()}", "resident_kb_per_session") for case in cases if "cycles" not in case]
    for case, title, key in rows:
        of = {name: [result[key] for result in results[name, case]] for name in names}
        cells = [f"{statistics.median(values):.5g}" for values in of.values()]
        for name in names:
            if name != FLOOR:
                ratios = sorted(value / max(floor, 1e-9) for value, floor in zip(of[name], of[FLOOR]))
                cells.append("–" if key.startswith("resident") else
                             f"{statistics.median(ratios):.2f} ({ratios[0]:.2f} to {ratios[-1]:.2f})")
        print(f"| {title} | " + " | ".join(cells) + " |")


def encrypted_table(results, names, cases):
    for case, plain in ENCRYPTED.items():
        if case not in cases or plain not in cases:
            continue
        print(f"\n| {case.upper()} / {plain.upper()}, % of a core a viewer | median | rounds |\n|---|---:|---|")
        for name in names:
            if not results[name, case]:
                continue
            key = CASES[case][2]
            ratios = [one[key] / max(other[key], 1e-9) for one, other in zip(results[name, case], results[name, plain])]
            print(f"| {name} | {statistics.median(ratios):.2f} | {', '.join(f'{ratio:.2f}' for ratio in ratios)} |")


def handshake_table(results, names, cases):
    """With the processor time of the server alone, beside which the clients take theirs."""
    for case in cases:
        if case not in HANDSHAKES:
            continue
        print(f"\n| {CASES[case][0]} | with the clients on the same cores | server, µs of a core each "
              "| so two cores' time is enough for |\n|---|---:|---:|---:|")
        for name in names:
            found = results[name, case]
            if found and all(result["good"] for result in found):  # resumed, where it should be
                micros = statistics.median(result["server_us_per_handshake"] for result in found)
                print(f"| {name} | {statistics.median(result[CASES[case][2]] for result in found):.0f} | {micros:.0f} "
                      f"| {2e6 / max(micros, 1e-9):.0f} |")
            elif found:
                print(f"| {name} | – | – | – |")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--also", action="append", default=[], metavar="NAME=FOLDER", help="another build's ovrtspd")
    parser.add_argument("--peer", action="store_true", help="GStreamer's RTSP server, too")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=6, help="how long to measure each time")
    parser.add_argument("--baseline", type=float, default=6,
                        help="seconds with one viewer, whose cost does not count: long enough for two GOPs in the ring")
    parser.add_argument("--viewers", type=int, default=1000)
    parser.add_argument("--clients", type=int, default=32, help="that go through cycles at a time")
    parser.add_argument("--cases", default=",".join(case for case in CASES if case not in ENCRYPTED and case not in HANDSHAKES),
                        help="of " + ", ".join(CASES))
    parser.add_argument("--peer-port", type=int, default=8599)
    parser.add_argument("--connected", action="store_true", help="rtsp_canned has a UDP socket for each viewer")
    parser.add_argument("--json", type=pathlib.Path, help="also write every single result there")
    arguments = parser.parse_args()
    cases = arguments.cases.split(",")
    servers = {"ovrtspd": arguments.build}
    servers.update((name, pathlib.Path(folder)) for name, folder in (text.split("=", 1) for text in arguments.also))
    if "tls" in cases and kernel_has_tls():
        servers[WITHOUT_KERNEL_TLS] = arguments.build
    names = [*servers, *([PEER] if arguments.peer else []), FLOOR]
    results = {(name, case): [] for name in names for case in cases}
    before = os.getloadavg()[0]
    with tempfile.TemporaryDirectory() as folder, open(pathlib.Path(folder) / "log", "w") as log:
        folder = pathlib.Path(folder)
        make_video(folder / "video.h264")
        with Server([arguments.build / "rtsp_origin", "--video", folder / "video.h264"], log) as origin:
            make_certificate(folder)
            for kernel in ("true", "false"):
                text = CONFIG.format(location=origin.url) + TLS.format(folder=folder, kernel=kernel)
                (folder / f"{kernel}.toml").write_text(text)

            def serve(name, case="tcp"):
                scheme = "rtsps" if is_tls(case) else "rtsp"
                if name == PEER:
                    certificate = [folder / "both.pem"] if is_tls(case) else []
                    return Server([arguments.build / "bench_gst_rtsp_server", str(arguments.peer_port),
                                   PEER_LINE.format(location=origin.url), *certificate], log, scheme)
                config = folder / ("false.toml" if name == WITHOUT_KERNEL_TLS else "true.toml")
                return Server([servers[name] / "ovrtspd", "-c", config], log, scheme)

            canned = [arguments.build / "rtsp_canned", *(["--connected"] if arguments.connected else [])]
            with serve("ovrtspd") as first:
                floor = Server([*canned, "--from", first.url], log)
            with floor:
                for number in range(arguments.rounds):
                    for case in cases:
                        for name in names[number % len(names):] + names[:number % len(names)]:
                            if not serves(name, case):
                                continue
                            if name == FLOOR:
                                result = load(arguments, floor, case)
                            else:
                                with serve(name, case) as server:
                                    result = load(arguments, server, case)
                            results[name, case].append(result)
                            print(f"    {case} {name}: {result[CASES[case][2]]}", file=sys.stderr, flush=True)
        log.flush()
        for line in (folder / "log").read_text().splitlines()[:5]:
            print(f"    {line}", file=sys.stderr)
    print(f"{os.cpu_count()} cores, Linux {os.uname().release}, load before {before:.1f}, after {os.getloadavg()[0]:.1f}, "
          f"{arguments.rounds} rounds of {arguments.seconds:g} s, {arguments.viewers} viewers, {arguments.clients} clients")
    table(results, names, cases)
    if not kernel_has_tls() and any(map(is_tls, cases)):
        print("\nThe kernel has no TLS module: OpenSSL encrypts.")
    encrypted_table(results, [name for name in names if name != FLOOR], cases)
    handshake_table(results, [name for name in names if name != FLOOR], cases)
    if arguments.json:
        arguments.json.write_text(json.dumps([[*key, found] for key, found in results.items()], indent=1))
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
