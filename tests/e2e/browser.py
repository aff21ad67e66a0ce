"""A headless Chromium, driven by Selenium."""

import contextlib
import json

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

START_SECONDS = 60
# Whether so many tiles play, for until().
PLAYING = """
    const videos = [...document.querySelectorAll('.tile video')];
    return videos.length === $0 && videos.every((video) =>
        video.closest('.tile').dataset.state === 'playing' && video.getVideoPlaybackQuality().totalVideoFrames > 10)
"""


@contextlib.contextmanager
def chromium(folder, quiet=True, microphone=None):
    """A browser with a profile in `folder`. In a `with` statement; its console must be empty at the end if `quiet`.
    `microphone`: a WAV file that it hears, again and again."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    # The tests run as root in a network of their own: the sandbox of the browser needs another user.
    for argument in ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--mute-audio",
                     "--disable-background-networking", f"--user-data-dir={folder}/profile",
                     "--window-size=1280,800"]:
        options.add_argument(argument)
    if microphone is not None:
        for argument in ["--use-fake-device-for-media-stream", "--use-fake-ui-for-media-stream",
                         f"--use-file-for-fake-audio-capture={microphone}"]:
            options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
    try:
        driver.set_page_load_timeout(START_SECONDS)
        driver.set_script_timeout(START_SECONDS)
        yield driver
        # What the browser says of its own pages does not count.
        messages = [json.dumps(entry) for entry in driver.get_log("browser")
                    if entry["level"] in ("WARNING", "SEVERE") and "chrome://" not in entry["message"]]
        assert not (quiet and messages), "\n".join(messages)
    finally:
        driver.quit()


def until(driver, script, *values, seconds=30):
    """Waits, bounded, until a script's value is true, and returns it; None when it does not become so. The script finds the
    values as $0, $1 and so on. It is no text for the page to evaluate: the page's policy forbids that."""
    names = ", ".join(f"${i}" for i in range(len(values)))
    return driver.execute_async_script(f"""
        const [values, seconds, done] = arguments;
        const check = ({names}) => {{ {script} }};
        const end = performance.now() + seconds * 1000;
        const turn = () => {{
          const value = check(...values);
          if (value || performance.now() > end) {{
            done(value || null);
          }} else {{
            setTimeout(turn, 20);
          }}
        }};
        turn();
        """, list(values), seconds)


def page(server, fragment=""):
    """The address of the web page; `fragment`: what stands behind it."""
    return f"http://127.0.0.1:{server.http_port()}/{fragment}"
