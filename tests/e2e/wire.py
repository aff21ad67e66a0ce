"""tshark as the judge of what is on the wire."""

import json
import subprocess
import time

from server import wait_until


class Capture:
    """Captures an interface while the `with` block runs, by default the loopback one.

    Usable only where segmentation offload is off in the server: otherwise one captured frame holds several
    packets.
    """

    def __init__(self, folder, rtsp_port, media_ports, interface="lo", prefix=()):
        self.path = folder / "capture.pcapng"
        self.rtsp_port = rtsp_port
        ports = " or ".join([f"tcp port {rtsp_port}", *(f"udp port {port}" for port in media_ports)])
        self.messages = folder / "tshark.txt"
        with open(self.messages, "wb") as out:
            self.process = subprocess.Popen(
                [*prefix, "tshark", "-i", interface, "-f", ports, "-B", "64", "-w", str(self.path)],
                stdin=subprocess.DEVNULL, stdout=out, stderr=out)

    def __enter__(self):
        wait_until(lambda: "Capture started" in self.messages.read_text(errors="replace"), 15, "tshark captures")
        return self

    def __exit__(self, *_):
        # The last packets are still in the kernel's buffer.
        size = -1
        while size != self.path.stat().st_size:
            size = self.path.stat().st_size
            time.sleep(0.5)
        self.process.terminate()
        self.process.wait(timeout=10)

    def dissect(self, display_filter, *fields):
        """Returns one dictionary a packet: field → list of values."""
        arguments = ["tshark", "-r", str(self.path), "-d", f"tcp.port=={self.rtsp_port},rtsp",
                     "-Y", display_filter, "-T", "json"]
        for field in fields:
            arguments += ["-e", field]
        run = subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=True)
        return [packet["_source"]["layers"] for packet in json.loads(run.stdout)]
