"""Users on the web page: signing in and out, what each may see and do, and administration."""

from selenium.webdriver.common.keys import Keys

import accessibility
from browser import PLAYING, chromium, page, until
from server import Server

CONFIG = """
port = 0
[http]
listen = "127.0.0.1:0"
[limits]
sessions = {sessions}
[[user]]
name = "boss"
password = "secret"
live = "*"
playback = "*"
admin = "*"
[[user]]
name = "guest"
password = "guest"
live = "1"
[[camera]]
id = 1
name = "yard"
talk-back = "pcmu"
  [[camera.stream]]
  id = 0
  width = 320
  height = 180
[[camera]]
id = 2
name = "door"
  [[camera.stream]]
  id = 0
  width = 320
  height = 180
"""
RESTART = """
    fetch('/api/v1/cameras/1/restart', { method: 'POST',
        headers: { 'Content-Type': 'application/json', 'X-Requested-With': 'page' } });"""
LINKS = "return [...document.querySelectorAll('nav a')].filter((a) => !a.hidden).map((a) => a.textContent).join(' ')"


def sign_in(browser, name, password):
    assert until(browser, "return document.querySelector('.sign-in') !== null")
    fields = browser.find_elements("css selector", ".sign-in input")
    fields[0].clear()
    fields[0].send_keys(name)
    fields[1].send_keys(password + Keys.ENTER)


def sign_out(browser):
    browser.find_element("xpath", "//button[text()='Sign out']").click()
    assert until(browser, "return document.querySelector('.sign-in') !== null")


def test_users_see_what_they_may_do_and_nothing_else(build_folder, tmp_path):
    # The browser reports each answer that refuses something.
    with Server(build_folder / "ovrtspd", tmp_path / "server", CONFIG.format(sessions=100)) as server, \
            chromium(tmp_path, quiet=False) as browser:
        server.allow_problem("it holds passwords and everybody can read it")
        browser.get(page(server))
        sign_in(browser, "boss", "wrong")
        assert until(browser, "return document.querySelector('.sign-in [role=alert]').textContent.includes('wrong')")
        accessibility.check(browser)
        sign_in(browser, "boss", "secret")
        assert until(browser, PLAYING, 2)
        assert browser.execute_script("return document.cookie") == "", "scripts must not see it"
        assert until(browser, LINKS + ".includes('Administration')")
        stops = accessibility.tab_stops(browser)
        assert ["Skip to the content", "Cameras", "Live", "Recordings", "State"] == stops[:5], stops
        assert {"Administration", "Sign out", "Enlarge yard", "Enlarge door"} <= set(stops), stops
        accessibility.check(browser)

        browser.get(page(server, "#/admin"))
        assert until(browser, "return document.querySelector('.quiet')?.textContent.startsWith('Events appear')")
        browser.execute_script(RESTART)
        assert until(browser, "return document.querySelector('.events').textContent.includes('camera')")
        server.write_config(CONFIG.format(sessions=99))
        browser.find_element("xpath", "//button[contains(text(), 'Read the configuration')]").click()
        assert until(browser, "return document.querySelector('.outcome').textContent.includes('[limits] sessions')")
        assert "sessions = 99" in browser.execute_script("return document.querySelector('pre').textContent")
        accessibility.check(browser)
        sign_out(browser)

        sign_in(browser, "guest", "guest")
        assert until(browser, PLAYING, 1)
        assert "Administration" not in browser.execute_script(LINKS)
        browser.get(page(server, "#/admin"))
        assert until(browser, "return document.querySelector('.notice')?.textContent.includes('right')")
        browser.get(page(server, "#/?camera=1"))
        assert until(browser, PLAYING, 1)
        assert browser.find_elements("css selector", ".talk") == []
        sign_out(browser)
