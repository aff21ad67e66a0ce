"""Talk-back from the web page: what a browser's microphone hears is played by the server."""

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

import audio
from browser import PLAYING, chromium, page, until
from server import Server, wait_until

CONFIG = """
port = 0
[http]
listen = "127.0.0.1:0"
[talk-back]
output = "wav"
device = "talk.wav"
[[camera]]
id = 1
name = "door"
talk-back = "pcma"
  [[camera.stream]]
  id = 0
  width = 320
  height = 180
"""
STATUS = "return document.querySelector('.talk-status').textContent"


def test_the_microphone_is_played_while_the_button_is_held(build_folder, tmp_path):
    sentence = audio.speech("Please leave the parcel.")
    audio.write_wav(tmp_path / "microphone.wav", sentence)
    with Server(build_folder / "ovrtspd", tmp_path / "server", CONFIG) as server:
        with chromium(tmp_path, microphone=tmp_path / "microphone.wav") as browser:
            browser.get(page(server, "#/?camera=1"))
            assert until(browser, PLAYING, 1)
            button = browser.find_element("css selector", "button.talk")
            ActionChains(browser).click_and_hold(button).perform()
            assert until(browser, STATUS + " === 'They can hear you.'"), browser.execute_script(STATUS)
            assert until(browser, "return document.querySelector('.talk-back meter').value > 0.3")
            path = server.folder / "talk.wav"
            # Wherever in the sentence the hold begins.
            wait_until(lambda: len(audio.read_wav(path)) > 2 * len(sentence) + audio.RATE, 30, "the sentence is played")
            ActionChains(browser).release(button).perform()
            assert until(browser, STATUS + " === ''")
            wait_until(lambda: "talk-back-taken" in server.log(), 5, "the audit says who talked")
            # By keyboard, too.
            ActionChains(browser).key_down(Keys.SPACE, button).perform()
            assert until(browser, STATUS + " === 'They can hear you.'")
            ActionChains(browser).key_up(Keys.SPACE).perform()
            assert until(browser, STATUS + " === ''")
        captured = audio.read_wav(server.folder / "talk.wav")
    similar = audio.likeness(sentence, captured)
    print("likeness:", similar)
    assert similar > 0.5
