"""The HTTP service as its users have it: curl, Prometheus' own judgement of the metrics, and the description of the routes."""

import json
import re
import shutil
import subprocess
import time
import urllib.parse

import jsonschema
import pytest

from server import wait_until

CONFIG = """
port = 0
log-level = "debug"

[http]
listen = "127.0.0.1:0"
"""

USERS = """
[auth]
basic = "always"

[[user]]
name = "boss"
password = "secret"
live = "*"
playback = "*"
talk = "*"
admin = "*"

[[user]]
name = "guest"
password = "guest"
live = "1"
"""


class Http:
    """curl against one server; every JSON answer is held against the server's own description."""

    def __init__(self, server):
        port = server.http_port()
        self.base = f"http://127.0.0.1:{port}"
        self.description = None
        self.description = self.ask("/api/v1/openapi.json")[1]

    def ask(self, path, *arguments, method="GET"):
        """Status and body of one answer, the body parsed where it is JSON."""
        run = subprocess.run(
            ["curl", "-sS", "-X", method, "-w", "\n%{http_code} %{content_type}", *arguments, self.base + path],
            capture_output=True, text=True, timeout=30, check=True)
        body, _, last = run.stdout.rpartition("\n")
        status, _, kind = last.partition(" ")
        if kind.startswith("application/") and "json" in kind:
            body = json.loads(body)
            self._check(method, path, status, kind, body)
        return int(status), body

    def _check(self, method, path, status, kind, body):
        if self.description is None:
            return
        path = urllib.parse.urlsplit(path).path
        for pattern, item in self.description["paths"].items():
            if re.fullmatch(re.sub(r"\{\w+\}", "[^/]+", pattern), path) and method.lower() in item:
                responses = item[method.lower()]["responses"]
                response = responses.get(status, responses["default"])
                break
        else:
            response = self.description["components"]["responses"]["Other"]
        response = self._resolve(response)
        if kind not in response["content"]:
            response = self._resolve(self.description["components"]["responses"]["Other"])
        self.validate(response["content"][kind]["schema"], body)

    def _resolve(self, node):
        while "$ref" in node:
            found = self.description
            for part in node["$ref"].removeprefix("#/").split("/"):
                found = found[part]
            node = found
        return node

    def validate(self, schema, body):
        whole = {**schema, "components": self.description["components"]}
        jsonschema.Draft202012Validator(whole).validate(body)


def test_every_route_answers_as_it_is_described(serve):
    server = serve(CONFIG)
    http = Http(server)
    assert http.ask("/healthz") == (200, {"status": "ok"})
    assert http.ask("/readyz")[0] in (200, 503)
    assert http.ask("/api/v1/cameras")[1]["cameras"][0]["id"] == 1
    assert len(http.ask("/api/v1/streams")[1]["streams"]) == 2
    assert http.ask("/api/v1/sessions") == (200, {"sessions": []})
    assert http.ask("/api/v1/recordings")[0] in (200, 503)
    assert "[http]" in http.ask("/api/v1/config")[1]["toml"]
    assert http.ask("/api/v1/nothing")[0] == 404
    assert http.ask("/api/v1/sessions/1", method="DELETE")[0] == 404
    assert http.ask("/api/v1/recordings?start=x")[0] == 400
    assert http.ask("/api/v1/cameras", method="PUT")[0] == 405
    assert http.ask("/api/v1/cameras/1/restart", method="POST")[0] == 415
    assert http.ask("/api/v1/cameras/1/restart", "-H", "Content-Type: application/json", method="POST")[0] == 202
    assert http.ask("/healthz", "-H", "X: " + "x" * 20000)[0] == 431
    assert http.ask("/healthz", "-H", "Host: evil.example")[0] == 421
    assert http.ask("/api/v1/sessions/1", "-H", "Origin: http://evil.example", method="DELETE")[0] == 403


def test_the_description_is_whole(serve):
    http = Http(serve(CONFIG))
    document = http.description
    assert re.fullmatch(r"3\.1\.\d+", document["openapi"])
    assert document["info"]["title"] and document["info"]["version"]
    identifiers = []
    for path, item in document["paths"].items():
        for operation in item.values():
            identifiers.append(operation["operationId"])
            declared = {each["name"] for each in operation.get("parameters", []) if each["in"] == "path"}
            assert declared == set(re.findall(r"\{(\w+)\}", path)), path
            assert all(each["required"] for each in operation.get("parameters", []) if each["in"] == "path")
            assert all(re.fullmatch(r"[1-5]\d\d|default", code) for code in operation["responses"])
            for response in operation["responses"].values():
                assert http._resolve(response)["description"]
    assert len(identifiers) == len(set(identifiers))
    for schema in document["components"]["schemas"].values():
        jsonschema.Draft202012Validator.check_schema(schema)
    for reference in re.findall(r'"\$ref": ?"([^"]*)"', json.dumps(document)):
        assert http._resolve({"$ref": reference})


def test_users_log_in_with_digest_and_basic(serve):
    server = serve(CONFIG + USERS)
    server.allow_problem("it holds passwords and everybody can read it")
    http = Http(server)
    assert http.ask("/api/v1/config")[0] == 401
    assert http.ask("/api/v1/config", "--digest", "-u", "boss:secret")[0] == 200
    assert http.ask("/api/v1/config", "--basic", "-u", "boss:secret")[0] == 200
    assert http.ask("/api/v1/config", "--digest", "-u", "boss:wrong")[0] == 401
    assert http.ask("/api/v1/config", "--digest", "-u", "guest:guest")[0] == 403
    assert len(http.ask("/api/v1/cameras", "--digest", "-u", "guest:guest")[1]["cameras"]) == 1


@pytest.mark.skipif(shutil.which("promtool") is None, reason="Prometheus is not installed")
def test_prometheus_accepts_the_metrics(serve):
    status, text = Http(serve(CONFIG)).ask("/metrics")
    assert status == 200
    check = subprocess.run(["promtool", "check", "metrics"], input=text, capture_output=True, text=True, timeout=30)
    assert (check.returncode, check.stdout, check.stderr) == (0, "", "")


def test_a_viewer_is_listed_and_ended(serve):
    server = serve(CONFIG)
    http = Http(server)
    with subprocess.Popen(
            ["ffmpeg", "-v", "error", "-rtsp_transport", "tcp", "-i", server.url(), "-f", "null", "-"],
            stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as viewer:
        try:
            wait_until(lambda: any(one["playing"] and one["bytes"] > 0
                                   for one in http.ask("/api/v1/sessions")[1]["sessions"]), 20, "a viewer")
            session = http.ask("/api/v1/sessions")[1]["sessions"][0]
            assert (session["kind"], session["transport"], session["camera"]) == ("live", "tcp", 1)
            wait_until(lambda: http.ask("/readyz")[0] == 200, 20, "ready")
            assert 0 <= session["lag"] < 5
            metrics = dict(line.rsplit(" ", 1) for line in http.ask("/metrics")[1].splitlines() if line[0] != "#")
            for name in ("ovrtspd_live_join_seconds_count", "ovrtspd_live_join_seconds_sum"):
                assert float(metrics[name]) > 0, name
            for name in ("received_bytes_total", "key_frames_total"):
                assert float(metrics[f'ovrtspd_stream_{name}{{camera="1",stream="0"}}']) > 0, name
            assert http.ask(f"/api/v1/sessions/{session['id']}", method="DELETE")[0] == 204
            assert http.ask("/api/v1/sessions")[1]["sessions"] == []
        finally:
            viewer.kill()


def test_events_are_recorded_with_what_came_before(serve, tmp_path):
    server = serve(CONFIG + f"""
[recording]
directory = "{tmp_path}/kept"
[[camera]]
  [[camera.stream]]
  width = 320
  height = 240
  record = "events"
  pre-roll = 2
  post-roll = 1
""")
    http = Http(server)
    post = ["-H", "Content-Type: application/json"]

    def recording():
        return http.ask("/api/v1/cameras/1/recording")[1]["streams"][0]["recording"]

    def ranges():
        recordings = http.ask("/api/v1/recordings")[1].get("recordings", [])
        return [one for one in recordings[0]["ranges"] if not one["growing"]] if recordings else []

    wait_until(lambda: http.ask("/readyz")[0] == 200, 20, "the camera")
    assert ranges() == [] and not recording()
    time.sleep(3)  # so that there is something before
    status, answer = http.ask("/api/v1/cameras/1/events", *post, method="POST")
    assert status == 202 and answer["streams"][0]["recording"] and answer["streams"][0]["until"]
    wait_until(lambda: not recording(), 20, "the end of the event")
    wait_until(lambda: len(ranges()) == 1, 20, "the range")
    assert 2.9 < ranges()[0]["seconds"] < 6
    assert http.ask("/api/v1/cameras/1/recording", "-d", '{"recording": "off"}', *post, method="PUT")[0] == 202
    assert http.ask("/api/v1/cameras/1/events", *post, method="POST")[0] == 409


def test_the_configuration_is_read_again(serve):
    server = serve(CONFIG)
    http = Http(server)
    path = server.config_path
    good = path.read_text()
    post = ["-H", "Content-Type: application/json"]
    path.write_text('log-level = "info"\n' + good.replace('log-level = "debug"\n', ""))
    status, answer = http.ask("/api/v1/reload", *post, method="POST")
    assert (status, answer["applied"], answer["needRestart"]) == (200, ["log-level"], [])
    path.write_text("nonsense = 1\n" + good)
    server.allow_problem("nonsense")
    status, answer = http.ask("/api/v1/reload", *post, method="POST")
    assert status == 422 and "nonsense" in answer["detail"] and "Nothing changed" in answer["detail"]
    status, answer = http.ask("/api/v1/config")
    assert status == 200 and 'log-level = "info"' in answer["toml"]


def test_an_address_that_was_configured_must_be_free(serve, build_folder, tmp_path):
    first = serve(CONFIG)
    port = first.http_port()
    config = f'port = 0\n[http]\nlisten = "127.0.0.1:{port}"\n'
    path = tmp_path / "second.toml"
    path.write_text(config)
    second = subprocess.run([build_folder / "ovrtspd", "--config", path], capture_output=True, text=True, timeout=30)
    assert second.returncode != 0
    assert "http: cannot listen on 127.0.0.1 port" in second.stderr
