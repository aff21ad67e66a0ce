"""Recordings on the web page, in a real browser: the frames that it shows, by the number that each carries."""

import json
import pathlib
import subprocess
import time
import urllib.request

import pytest
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

import recordings
from browser import chromium, page, until
from made_once import made_once
from server import Server, wait_until

CAMERA = recordings.CAMERA
BITS, BLOCK, HEIGHT = 12, 16, 32
WIDTH = BITS * BLOCK

# The number of the frame on screen; the page's canvas reads it as people would.
NUMBER = f"""
    const video = document.querySelector('.stage video');
    const canvas = document.createElement('canvas');
    canvas.width = {WIDTH};
    canvas.height = {HEIGHT};
    const context = canvas.getContext('2d', {{ willReadFrequently: true }});
    context.drawImage(video, 0, 0, {WIDTH}, {HEIGHT});
    let number = 0;
    for (let bit = 0; bit < {BITS}; ++bit) {{
      number += context.getImageData(bit * {BLOCK} + {BLOCK // 2}, {HEIGHT // 2}, 1, 1).data[0] > 127 ? 2 ** bit : 0;
    }}
"""
AT = "const at = Number(new URLSearchParams(location.hash.split('?')[1]).get('at'));"


def make_film(path):
    """Half a minute whose frames have their number in black and white blocks, the lowest bit first."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi",
                    "-i", f"nullsrc=size={WIDTH}x{HEIGHT}:rate=25:duration=30",
                    "-vf", f"geq=lum='16+219*mod(floor(N/pow(2,floor(X/{BLOCK}))),2)':cb=128:cr=128",
                    "-pix_fmt", "yuv420p", "-c:v", "libx264", "-preset", "fast", "-crf", "20", "-g", "50", "-bf", "2",
                    "-x264-params", "scenecut=0", "-f", "mp4", path], check=True, timeout=120)


def frames_on_disk(folder):
    """(date, number) of every frame in closed files, as ffmpeg decodes them."""
    frames = []
    for path in sorted(pathlib.Path(folder).rglob("*.mkv")):
        date, _, fraction = path.stem.rstrip("Z").partition(".")
        begin = time.mktime(time.strptime(date, "%Y%m%dT%H%M%S")) - time.timezone + float("0." + fraction)
        probed = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "frame=pts_time",
                                 "-of", "json", path], capture_output=True, text=True, timeout=60)
        times = [float(frame["pts_time"]) for frame in json.loads(probed.stdout or "{}").get("frames", [])]
        raw = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", path, "-map", "0:v", "-fps_mode", "passthrough",
                              "-f", "rawvideo", "-pix_fmt", "gray", "-"], capture_output=True, timeout=60).stdout
        size = WIDTH * HEIGHT
        for i, at in enumerate(times[:len(raw) // size]):
            line = raw[i * size + HEIGHT // 2 * WIDTH:][:WIDTH]
            frames.append((begin + at, sum(2 ** bit for bit in range(BITS) if line[bit * BLOCK + BLOCK // 2] > 127)))
    return sorted(frames)


def numbers_at(frames, date):
    """The frame of a date; both where it is at a boundary, to the millisecond."""
    return {([number for at, number in frames if at <= date + off] or [frames[0][1]])[-1] for off in (-0.003, 0.003)}


@pytest.fixture(scope="module")
def recorded(build_folder, tmp_path_factory):
    """A server that has recorded some seconds, and the frames on its disk."""
    film = made_once(build_folder / "e2e-numbered.mp4", make_film)
    folder = tmp_path_factory.mktemp("recordings-page")
    text = recordings.recording(folder / "recordings", f'source = "file"\nlocation = "{film}"\naudio = "none"')
    with Server(build_folder / "ovrtspd", folder / "first", text) as server:
        recordings.record(server, 7)
    # What was recorded stays as it is: another server shows it, whose camera is not recorded.
    text = text.replace("record = true", "record = false") + '\n[http]\nlisten = "127.0.0.1:0"\n'
    with Server(build_folder / "ovrtspd", folder / "second", text) as server:
        wait_until(lambda: recordings.status(server, int(time.time()) - 30, int(time.time())) == 200, 20, "recordings")
        yield server, frames_on_disk(folder / "recordings")


@pytest.fixture
def browser(tmp_path):
    with chromium(tmp_path) as driver:
        driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": str(tmp_path)})
        yield driver


def paused(browser, server, at):
    """The page at a date, paused."""
    browser.get(page(server, f"#/recordings?cameras={CAMERA}&at={at:.3f}"))
    assert until(browser, "return document.querySelector('.stage .tile')?.dataset.state === 'ready'")
    browser.find_element("css selector", ".play").click()
    browser.execute_script("document.querySelector('.tracks').focus()")


def assert_shows(browser, frames):
    """The page shows the frame of its date."""
    at = browser.execute_script(AT + "return at")
    assert until(browser, NUMBER + "return $0.includes(number)", list(numbers_at(frames, at))), (
        at, numbers_at(frames, at), browser.execute_script(NUMBER + "return number"))
    return at


def test_a_seek_shows_the_frame_of_that_date(recorded, browser):
    server, frames = recorded
    first, last = frames[0][0], frames[-1][0]
    paused(browser, server, first + 4.5)
    assert_shows(browser, frames)
    track = browser.find_element("css selector", ".tracks")
    for _ in range(9):
        track.send_keys("+")
    # By pointer, wherever that is.
    for share in (-0.02, 0.03):
        before = browser.execute_script(AT + "return at")
        ActionChains(browser).move_to_element_with_offset(track, int(track.size["width"] * share), 10).click().perform()
        assert until(browser, AT + "return at !== $0", before)
        assert first < assert_shows(browser, frames) < last
    # By keyboard: a second at least.
    before = assert_shows(browser, frames)
    track.send_keys(Keys.ARROW_LEFT)
    assert assert_shows(browser, frames) == pytest.approx(before - 1, abs=0.002)
    track.send_keys(Keys.PAGE_UP)
    assert assert_shows(browser, frames) == pytest.approx(first, abs=0.002)
    # The frame comes at once.
    late = browser.execute_async_script("""
        const [done] = arguments;
        const start = performance.now();
        document.querySelector('.stage video').addEventListener('seeked', () => done(performance.now() - start));
        document.querySelector('.tracks').dispatchEvent(new KeyboardEvent('keydown', { key: 'ArrowRight', shiftKey: true }));
        """)
    print("seek, ms:", late)
    assert late < 2000, late


def test_it_plays_on_faster_and_backwards(recorded, browser):
    server, frames = recorded
    paused(browser, server, frames[0][0] + 1.5)
    number = assert_shows(browser, frames)
    displayed = "const displayed = Number(document.querySelector('.tracks').getAttribute('aria-valuenow'));"
    browser.find_element("css selector", ".tracks").send_keys(" ")
    assert until(browser, displayed + "return displayed >= $0 + 1", number)
    for speed, reached in [("-4", "return displayed <= $0 + 2"), ("0.5", "return displayed >= $0 + 3")]:
        browser.execute_script("""
            const select = document.querySelector('.recordings select');
            select.value = arguments[0];
            select.dispatchEvent(new Event('change'));""", speed)
        assert until(browser, displayed + reached, frames[0][0]), speed
    assert until(browser, "return document.querySelector('.stage video').getVideoPlaybackQuality().totalVideoFrames > 5")


def test_a_marked_interval_is_exported(recorded, browser, tmp_path):
    server, frames = recorded
    paused(browser, server, frames[0][0] + 1.5)
    track = browser.find_element("css selector", ".tracks")
    track.send_keys(Keys.HOME)
    track.send_keys("i")
    track.send_keys("+" * 9)
    for _ in range(3):
        track.send_keys(Keys.ARROW_RIGHT)
    track.send_keys("o")
    browser.find_element("css selector", ".export input").send_keys("parcel")
    link = browser.find_element("css selector", ".export li a")
    with urllib.request.urlopen(link.get_attribute("href"), timeout=30) as response:
        exported = response.read()
    path = link.get_attribute("href").partition("/api/")[2]
    link.click()
    saved = tmp_path / "parcel.mp4"
    wait_until(lambda: saved.exists() and saved.stat().st_size == len(exported), 20, "the browser saves the file")
    assert saved.read_bytes() == exported
    probed = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "format=duration", "-of", "csv=p=0", saved],
                            capture_output=True, text=True, timeout=30, check=True)
    assert float(probed.stdout) == pytest.approx(3, abs=0.06)
    # The address shows the same to somebody else, on any screen.
    address = browser.current_url
    for width in (360, 3840):
        browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
        browser.get("about:blank")
        browser.get(address)
        assert until(browser, "return document.querySelector('.export li a')?.href.endsWith($0)", path)
        assert browser.execute_script("return document.querySelector('.export input').value") == "parcel"
        assert browser.execute_script("return document.documentElement.scrollWidth - innerWidth") <= 0, width
