"""The column "When changed" of the manual, held against the program: each key is changed in a running server."""

import copy
import pathlib
import re

from reload import is_bye, reload
from rtsp_client import RtspClient, assert_no_gap
from server import wait_until

MANUAL = pathlib.Path(__file__).parents[2] / "docs" / "configuration.md"

AT_ONCE = "at once"
NEWCOMERS = "at once, for newcomers"
SOURCE = "restarts the source"
VIEWERS = "restarts the source, ends viewers"
IDENTITY = "ends the former, starts the new"
RESTART = "needs a restart"

LAUNCH = ("videotestsrc is-live=true pattern={pattern} ! video/x-raw,width=160,height=120,framerate=25/1 ! "
          "x264enc tune=zerolatency key-int-max=10 ! identity name=video")

# What is watched: camera 1. Section after section, with the keys that are written.
BASE = {
    "": {"port": 0, "log-level": "debug"},
    "limits": {},
    "http": {"listen": ""},
    "tls": {"port": 0, "self-signed": True, "directory": "tls"},
    "recording": {"directory": "recordings"},
    "group": {"name": "guards", "live": "*"},
    "user": {"name": "guard", "password": "one", "live": "*"},
    "camera": {"id": 1, "name": "yard"},
    "camera.stream": {"id": 0, "source": "launch", "location": LAUNCH.format(pattern="smpte"), "audio": "none"},
}
# Texts have no other value that can be made up.
TEXTS = {
    ("", "listen"): "127.0.0.2", ("", "realm"): "else", ("", "users-file"): "users.toml",
    ("tls", "listen"): "127.0.0.1", ("tls", "directory"): "tls2", ("tls", "ciphers"): "TLS_AES_128_GCM_SHA256:ECDHE+AESGCM",
    ("http", "listen"): "127.0.0.1:0", ("http", "names"): "else",
    ("talk-back", "device"): "else",
    ("multicast", "pool"): "239.7.0.0/16", ("multicast", "interface"): "lo",
    ("recording", "directory"): "else", ("recording", "min-free"): "3%",
    ("group", "name"): "others", ("user", "name"): "other", ("user", "password"): "two", ("user", "groups"): "guards",
    ("user", "password-hash"): "crypt:$y$j9T$salt$" + "a" * 43,
    ("camera", "name"): "garden",
    ("hooks", "on-camera-up"): "true", ("hooks", "on-session-end"): "https://127.0.0.1:1/",
    ("camera.stream", "location"): LAUNCH.format(pattern="ball"), ("camera.stream", "tls-fingerprint"): "AB" * 32,
    ("camera.stream", "multicast"): "239.1.2.3:5004",
}
# With what else they are changed, because alone they would be refused.
TOGETHER = {
    ("tls", "certificate"): {("tls", "self-signed"): False, ("tls", "key"): "tls/key.pem"},
    ("tls", "key"): {("tls", "self-signed"): False, ("tls", "certificate"): "tls/certificate.pem"},
    ("camera.stream", "source"): {("camera.stream", "location"): None},
    ("user", "name"): {},
    ("user", "password-hash"): {("user", "password"): None},
}
TEXTS[("tls", "certificate")] = "tls/certificate.pem"
TEXTS[("tls", "key")] = "tls/key.pem"
TEXTS[("tls", "client-ca")] = "tls/certificate.pem"

# Keys whose effect on others than the viewer is another test's.
MIN_KEYS = 80


def keys_of_the_manual():
    text = MANUAL.read_text()
    text = text[text.index("<!-- keys:"):text.index("<!-- end of keys -->")]
    for part in re.split(r"^### ", text, flags=re.M)[1:]:
        heading = re.match(r".*?\[{1,2}([a-z.-]+)\]{1,2}", part.splitlines()[0])
        section = heading.group(1) if heading else ""
        for row in re.findall(r"^\| `.*", part, re.M):
            cells = [cell.replace("\\|", "|").strip() for cell in re.split(r"(?<!\\)\|", row)[1:-1]]
            yield section, cells[0].strip("`"), cells[2], cells[3].strip("`"), cells[4]


def other_value(section, key, values, default, present):
    """A valid value that differs from the present one; None: none can be made up."""
    if (section, key) in TEXTS:
        return TEXTS[(section, key)]
    numbers = re.match(r"(\d+) to (\d+)(, even)?", values)
    if numbers:
        low, high, step = int(numbers.group(1)), int(numbers.group(2)), 2 if numbers.group(3) else 1
        now = int(default) if present is None else present
        return now + step if now + step <= high else max(low, now - step)
    if values == "true or false":
        return not (default == "true" if present is None else present)
    if values.startswith("a size"):
        return "7GiB"
    if values.startswith("a time"):
        return "9d"
    if values.startswith('"*"'):
        return "1-9"
    choices = re.findall(r'"([^"]*)"', values)
    now = default.strip('"') if present is None else present
    return next((choice for choice in choices if choice not in (now, "none")), None)


def written(config):
    def lines(values):
        return "".join(f"{key} = {repr(value).lower() if isinstance(value, (bool, int)) else quoted(value)}\n"
                       for key, value in values.items() if value is not None)

    text = lines(config[""])
    for section, values in config.items():
        if section and section not in ("group", "user", "camera", "camera.stream"):
            text += f"[{section}]\n{lines(values)}"
    text += '[[user]]\nname = "anonymous"\nlive = "*"\n'
    for section in ("group", "user", "camera", "camera.stream"):
        text += f"[[{section}]]\n{lines(config[section])}"
    return text


def quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def reported_name(section, key):
    if section == "camera":
        return f"camera 1: {key}"
    if section == "camera.stream":
        return f"camera 1, stream 0: {key}"
    if section in ("user", "group"):
        return f'{section} "{BASE[section]["name"]}": {key}'
    return f"[{section}] {key}" if section else key


def watch(server):
    client = RtspClient(server.url())
    client.open()
    client.receive(lambda: client.rtp, "media")
    return client


def starts(server):
    return len(re.findall(r"camera 1/0 .*: starting", server.log()))


class Watched:
    """The server, and a viewer who is there again whenever it was sent away."""

    def __init__(self, server, binary):
        self.server, self.binary = server, binary
        self.viewer = watch(server)

    def change(self, config):
        before = starts(self.server)
        run = reload(self.server, self.binary, written(config))
        assert run.returncode == 0, run.stderr + written(config)
        return run, before

    def expect(self, effect, starts_before):
        if effect == SOURCE:
            wait_until(lambda: starts(self.server) > starts_before, 15, "the source starts again")
            count = len(self.viewer.rtp)
            self.viewer.receive(lambda: len(self.viewer.rtp) > count + 5, "media go on")
        elif effect in (VIEWERS, IDENTITY):
            self.viewer.receive(lambda: any(is_bye(data) for _, data in self.viewer.rtcp), "BYE")
        else:
            self.viewer.receive_for(0.05)
            assert starts(self.server) == starts_before
        if effect not in (VIEWERS, IDENTITY):
            assert not any(is_bye(data) for _, data in self.viewer.rtcp)

    def again(self):
        self.viewer.close()
        self.viewer = watch(self.server)


def test_each_key_does_what_the_manual_says(serve, build_folder):
    server = serve(written(BASE))
    server.allow_problem("needs a restart|everybody can read|nobody watch|lets nobody|may do everything|can read its SRTP keys|there is no TLS|no client-ca|without effect")
    (server.folder / "users.toml").write_text('[[user]]\nname = "further"\npassword = "three"\nlive = "*"\n')
    pair = sorted((server.folder / "tls").glob("*.pem")) if (server.folder / "tls").exists() else []
    watched = Watched(server, build_folder / "ovrtspd")
    tried, untried = 0, []
    for section, key, values, default, effect in keys_of_the_manual():
        assert effect in (AT_ONCE, NEWCOMERS, SOURCE, VIEWERS, IDENTITY, RESTART), (section, key, effect)
        value = other_value(section, key, values, default, BASE.get(section, {}).get(key))
        config = copy.deepcopy(BASE)
        config.setdefault(section, {})[key] = value
        for (other_section, other_key), other in TOGETHER.get((section, key), {}).items():
            config[other_section][other_key] = other
        if section == "tls" and key in ("certificate", "key", "client-ca"):
            if not pair:
                untried.append((section, key, effect))
                continue
        if value is None:
            untried.append((section, key, effect))
            continue
        print(section, key, value, effect)
        run, before = watched.change(config)
        name = reported_name(section, key)
        if effect == RESTART:
            assert f"{name}: needs a restart of the server" in run.stderr, (section, key)
        elif effect == IDENTITY:
            assert "removed" in run.stdout and "added" in run.stdout, (section, key)
        else:
            assert f"changed: {name}\n" in run.stdout, (section, key, run.stdout, run.stderr)
        viewers_of = effect if section in ("camera", "camera.stream") else AT_ONCE
        watched.expect(viewers_of, before)
        ended = viewers_of in (VIEWERS, IDENTITY)
        _, before = watched.change(BASE)
        if ended:
            watched.again()
        elif viewers_of == SOURCE:
            watched.expect(SOURCE, before)
            watched.again()
        tried += 1
    for track in range(len(watched.viewer.tracks)):
        assert_no_gap(watched.viewer.packets(track))
    assert all(effect == RESTART or section == "tls" for section, _, effect in untried), untried
    assert tried >= MIN_KEYS
    watched.viewer.close()
