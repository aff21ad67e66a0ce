"""The web page in a real browser."""

import pytest

from browser import PLAYING, chromium, page, until
from server import Server

CONFIG = """
port = 0
[http]
listen = "127.0.0.1:0"
[[camera]]
id = 1
name = "yard"
  [[camera.stream]]
  id = 0
  width = 640
  height = 360
  frame-rate = 25
  audio = "aac"
[[camera]]
id = 2
name = "door"
  [[camera.stream]]
  id = 0
  width = 320
  height = 180
  frame-rate = 25
"""


@pytest.fixture
def server(build_folder, tmp_path):
    with Server(build_folder / "ovrtspd", tmp_path / "server", CONFIG) as running:
        yield running


@pytest.fixture
def browser(tmp_path):
    with chromium(tmp_path) as driver:
        yield driver


def test_every_camera_moves_on_the_wall(server, browser):
    browser.get(page(server))
    assert until(browser, PLAYING, 2)
    names = [each.text for each in browser.find_elements("css selector", ".tile figcaption span:first-child")]
    assert names == ["yard", "door"]


def test_the_video_is_live(server, browser):
    """Behind what the camera captured by less than half a second, also after a while."""
    browser.get(page(server, "#/?camera=1"))
    assert until(browser, PLAYING, 1)
    browser.find_element("xpath", "//button[text()='Figures']").click()
    figures = until(browser, "return /^(\\d+) ms .* fps$/.exec(document.querySelector('.figures').textContent)")
    assert figures, "no figures"
    held = "return parseInt(document.querySelector('.figures').textContent) < 500"
    assert until(browser, held), "the edge is not reached"
    frames = "return document.querySelector('video').getVideoPlaybackQuality().totalVideoFrames"
    before = browser.execute_script(frames)
    assert until(browser, "return document.querySelector('video').getVideoPlaybackQuality().totalVideoFrames > $0",
                 before + 100)
    assert until(browser, held), "the edge is not held"
    print("latency, ms:", browser.execute_script("return document.querySelector('.figures').textContent"))


def test_audio_comes_with_the_video_on_demand(server, browser):
    browser.get(page(server, "#/?camera=1"))
    assert until(browser, PLAYING, 1)
    browser.find_element("xpath", "//button[text()='Audio']").click()
    assert until(browser, "return document.querySelector('video').webkitAudioDecodedByteCount > 0")


def test_the_layout_is_kept_in_the_address(server, browser):
    browser.get(page(server, "#/?layout=1&page=2"))
    assert until(browser, PLAYING, 1)
    assert browser.find_element("css selector", ".tile figcaption span").text == "door"
    browser.find_element("xpath", "//button[text()='4']").click()
    assert until(browser, "return location.hash === '#/?layout=4'")
    assert until(browser, PLAYING, 2)


def test_a_hidden_page_costs_nothing(server, browser):
    browser.get(page(server))
    assert until(browser, PLAYING, 2)
    browser.execute_script("""
        Object.defineProperty(document, 'visibilityState', { value: 'hidden', configurable: true });
        document.dispatchEvent(new Event('visibilitychange'));""")
    assert until(browser, "return [...document.querySelectorAll('.tile')].every((t) => t.dataset.state === 'stopped')")
    browser.execute_script("""
        delete document.visibilityState;
        document.dispatchEvent(new Event('visibilitychange'));""")
    assert until(browser, PLAYING, 2)


def test_the_page_comes_back_with_the_server(build_folder, tmp_path):
    binary = build_folder / "ovrtspd"
    config = CONFIG.replace("127.0.0.1:0", "127.0.0.1:8080")
    # The browser reports each attempt that fails.
    with chromium(tmp_path, quiet=False) as browser:
        with Server(binary, tmp_path / "first", config) as server:
            browser.get(page(server))
            assert until(browser, PLAYING, 2)
        waiting = "return [...document.querySelectorAll('.tile')].every((t) => t.dataset.state !== 'playing')"
        assert until(browser, waiting)
        with Server(binary, tmp_path / "second", config):
            assert until(browser, PLAYING, 2)


def test_state_shows_cameras(server, browser):
    browser.get(page(server))
    assert until(browser, PLAYING, 2)
    browser.get(page(server, "#/state"))
    rows = until(browser, """
        const rows = [...document.querySelectorAll('tbody tr')].map((row) => row.textContent);
        return rows.length >= 2 ? rows : null""")
    assert rows and "yard" in rows[0] and "running" in rows[0], rows


@pytest.mark.parametrize("width", [360, 1280, 3840])
def test_nothing_is_cut_off_at_any_width(server, tmp_path, width):
    with chromium(tmp_path) as browser:
        # Windows have a least width, which telephones are narrower than.
        browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
        for fragment in ["", "#/?camera=1", "#/state"]:
            browser.get(page(server, fragment))
            assert until(browser, "return document.querySelector('main').children.length > 0")
            assert browser.execute_script("return innerWidth") == width
            wide = browser.execute_script("return document.documentElement.scrollWidth - innerWidth")
            assert wide <= 0, (fragment, wide)
