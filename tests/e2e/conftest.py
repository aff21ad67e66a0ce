import os
import pathlib
import subprocess
import warnings

import pytest

pytest.register_assert_rewrite("ffmpeg", "gstreamer", "network", "frames", "recordings", "rtsp_client", "server", "wire")

import recordings
from made_once import made_once
from processor import waited
from server import DEFAULT_CONFIG, Server

TRANSPORTS = ["tcp", "udp"]
VTEST = pathlib.Path("/usr/share/doc/opencv-doc/examples/data/vtest.avi")


def pytest_generate_tests(metafunc):
    marked = [mark.args[0] for mark in metafunc.definition.iter_markers("parametrize")]
    if "transport" in metafunc.fixturenames and not any("transport" in names for names in marked):
        metafunc.parametrize("transport", TRANSPORTS)


@pytest.fixture(scope="session")
def build_folder():
    """Where ovrtspd and rtsp_load of the tree under test stand."""
    folder = pathlib.Path(os.environ["OV_BUILD_DIR"])
    assert (folder / "ovrtspd").exists(), f"no ovrtspd in {folder}"
    return folder


@pytest.fixture
def serve(build_folder, tmp_path):
    """serve(config): one more server for this test, stopped and judged at its end."""
    servers = []

    def start(config=DEFAULT_CONFIG, **kwargs):
        folder = tmp_path / f"server{len(servers)}"
        servers.append(Server(build_folder / "ovrtspd", folder, config, **kwargs))
        return servers[-1]

    start.servers = servers
    yield start
    try:
        for server in reversed(servers):
            if server.process.poll() is None:
                server.stop()
    finally:
        for server in servers:
            server.kill()


@pytest.fixture(scope="module")
def server(build_folder, tmp_path_factory):
    """A server with the embedded cameras that the tests of one file share."""
    with Server(build_folder / "ovrtspd", tmp_path_factory.mktemp("server")) as instance:
        yield instance


@pytest.fixture(scope="module")
def recorded(build_folder, tmp_path_factory):
    """A server that has recorded some seconds of a film whose frames are all known."""
    film = recordings.film(build_folder)
    folder = tmp_path_factory.mktemp("recorded")
    with Server(build_folder / "ovrtspd", folder, recordings.config(film, folder / "recordings")) as instance:
        yield recordings.Recorded(instance, film)


@pytest.fixture
def real_time():
    """The test and what it starts go before other programs, where the system permits it: audio cannot wait.

    Where they still had to wait for a processor a failure says nothing, and pytest_pyfunc_call() repeats it.
    """
    try:
        os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(1))
    except PermissionError:
        yield
        return
    yield
    os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))


ATTEMPTS = 3
HARMFUL_SECONDS = 0.03  # half of what the output has ahead: less is inaudible


@pytest.hookimpl(tryfirst=True)
def pytest_pyfunc_call(pyfuncitem):
    """Runs tests that judge audio until one attempt is good, or is bad though nobody kept the server or the test waiting.

    What a server does wrong, it does wrong every time or when it had all the time that it needed.
    """
    if "real_time" not in pyfuncitem.fixturenames:
        return None
    arguments = {name: pyfuncitem.funcargs[name] for name in pyfuncitem._fixtureinfo.argnames}
    serve = pyfuncitem.funcargs["serve"]

    def all_waited():
        return waited() + sum(server.waited() for server in serve.servers)

    for attempt in range(1, ATTEMPTS + 1):
        before = all_waited()
        try:
            pyfuncitem.obj(**arguments)
            return True
        except AssertionError as failure:
            seconds = all_waited() - before
            if attempt == ATTEMPTS or seconds < HARMFUL_SECONDS:
                raise
            warnings.warn(f"attempt {attempt} had to wait {seconds:.3f} s for a processor: {failure}")
        for server in list(serve.servers):
            server.kill()
        for name, value in arguments.items():
            if isinstance(value, Server):
                arguments[name] = serve(value.config_path.read_text())
    return True


@pytest.fixture(scope="session")
def clip(build_folder):
    """Path of eight seconds of a real surveillance recording in H.264, made once for each build tree."""
    def encode(path):
        source = VTEST
        packed = VTEST.with_suffix(".avi.gz")
        if not source.exists() and packed.exists():
            source = build_folder / "vtest.avi"
            with open(source, "wb") as out:
                subprocess.run(["gzip", "-dc", packed], stdout=out, check=True)
        subprocess.run(
            ["ffmpeg", "-v", "error", "-y", "-i", source, "-an", "-frames:v", "80", "-pix_fmt", "yuv420p",
             "-c:v", "libx264", "-preset", "fast", "-crf", "23", "-g", "10", "-bf", "0", path],
            check=True)

    return made_once(build_folder / "e2e-clip.mp4", encode)
