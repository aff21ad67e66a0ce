#!/usr/bin/env python3
"""Makes the screenshots of the web page that the README shows, from a server that runs:

    ./alone.sh python3 screenshots.py ../../build/dev ../../docs/images
"""

import pathlib
import subprocess
import sys
import tempfile

from browser import chromium, page, until
from server import Server

CAMERA = """
[[camera]]
id = {id}
name = "{name}"
talk-back = "pcmu"
  [[camera.stream]]
  id = 0
  width = 640
  height = 360
  record = "always"
  source = "launch"
  location = "videotestsrc is-live=true pattern={pattern} ! video/x-raw,width=640,height=360,framerate=25/1 \
! x264enc tune=zerolatency key-int-max=25 bitrate=600 name=video"
"""
CONFIG = """
port = 0
[http]
listen = "127.0.0.1:0"
[recording]
directory = "recordings"
"""
# Patterns that compress well, and differ.
CAMERAS = {"Yard": "smpte", "Door": "ball", "Garage": "pinwheel", "Roof": "colors"}
PAGES = {
    "page-wall": ("#/", "return document.querySelectorAll('.tile[data-state=playing]').length === 4"),
}
MAX_BYTES = 150_000


def shrink(path):
    """With the 256 colours that fit best."""
    small = path.with_suffix(".small.png")
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-i", path, "-vf",
                    "split[a][b];[a]palettegen=stats_mode=single[p];[b][p]paletteuse=dither=none", small], check=True)
    small.replace(path)


def main(build, out):
    out.mkdir(parents=True, exist_ok=True)
    config = CONFIG + "".join(CAMERA.format(id=i, name=name, pattern=pattern)
                              for i, (name, pattern) in enumerate(CAMERAS.items(), 1))
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        with Server(build / "ovrtspd", folder / "server", config) as server, chromium(folder, quiet=False) as browser:
            browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": 1200, "height": 790, "deviceScaleFactor": 1, "mobile": False})
            browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": "dark"}]})
            for name, (fragment, ready) in PAGES.items():
                browser.get(page(server, fragment))
                assert until(browser, ready, 1), name
                path = out / f"{name}.png"
                browser.save_screenshot(str(path))
                shrink(path)
                assert path.stat().st_size < MAX_BYTES, (name, path.stat().st_size)
                print(path, path.stat().st_size)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve())
