"""Users, what they may watch, and how their passwords are kept."""

import pathlib
import subprocess

import ffmpeg
import pytest

CAMERAS = """
[[camera]]
id = 1
[[camera.stream]]
width = 320
height = 180

[[camera]]
id = 2
[[camera.stream]]
width = 320
height = 180
"""


def hashed(build_folder, name, password, *options):
    """The line that the program prints for a password."""
    run = subprocess.run([build_folder / "ovrtspd", "--hash-password", name, *options], input=password + "\n",
                         capture_output=True, text=True, timeout=20, check=True)
    return run.stdout


@pytest.fixture(scope="module")
def server(build_folder, tmp_path_factory):
    from server import Server

    folder = tmp_path_factory.mktemp("server")
    users = folder / "users.toml"
    users.write_text(
        f'[[user]]\nname = "guard"\nlive = "1"\n{hashed(build_folder, "guard", "correct-horse")}'
        f'[[user]]\nname = "slow"\nlive = "2"\n{hashed(build_folder, "slow", "battery-staple", "--basic-only")}'
        '[[user]]\nname = "anonymous"\nlive = "2"\n')
    users.chmod(0o600)
    config = f'port = 0\nlog-level = "trace"\nusers-file = "{users}"\n[tls]\nport = 0\nself-signed = true\ndirectory = "tls"\n{CAMERAS}'
    with Server(build_folder / "ovrtspd", folder, config) as instance:
        yield instance
        everything = instance.log() + instance.output() + pathlib.Path(f"/proc/{instance.pid}/cmdline").read_text()
        for secret in ("correct-horse", "battery-staple", "$y$", "md5:"):
            assert secret not in everything


def outcome(url, transport="tcp"):
    return ffmpeg.probe(url, transport, check=False)


def test_a_user_watches_its_own_camera(server, transport):
    frames = ffmpeg.decode(server.url(1, credentials="guard:correct-horse"), transport, limits=("-frames:v", "5"), maps=("0:v",))
    assert len(frames) == 5


def test_another_camera_is_forbidden(server):
    # ffmpeg logs in once it is asked to; camera 2 is anonymous' as well, so the user's name is what counts there.
    run = outcome(server.url(3, credentials="guard:correct-horse"))
    assert run.returncode != 0
    assert "403 Forbidden" in run.stderr
    assert 'right-refused address=127.0.0.1 user="guard" right=live url="' in server.log()


def test_whoever_does_not_log_in_watches_what_anonymous_may(server):
    assert outcome(server.url(2)).returncode == 0
    run = outcome(server.url(1))
    assert "401 Unauthorized" in run.stderr


def test_a_memory_hard_hash_logs_in_over_tls(server):
    url = server.tls_url("orv/live/1/0")
    run = outcome(url.replace("rtsps://", "rtsps://slow:battery-staple@"))
    assert "403 Forbidden" in run.stderr
    run = outcome(url.replace("rtsps://", "rtsps://guard:correct-horse@"))
    assert run.returncode == 0, run.stderr
    run = outcome(url.replace("rtsps://", "rtsps://slow:wrong@"))
    assert "401 Unauthorized" in run.stderr
