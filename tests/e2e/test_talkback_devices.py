import os
import subprocess

import pytest
from server import wait_until
from audio import RATE, decode, encode, likeness, speech, tone
from speaker import Speaker, talk_back, wait_for_end, wait_for_output

import numpy

pytestmark = pytest.mark.usefixtures("real_time")

ENOUGH = 0.9


class SoundServer:
    """A PulseAudio of the test's own with one sink, which only a recording reads."""

    def __init__(self, folder):
        self.socket = folder / "pulse-socket"
        self.environment = {"HOME": str(folder), "XDG_RUNTIME_DIR": str(folder), "PULSE_SERVER": f"unix:{self.socket}",
                            "PULSE_RUNTIME_PATH": str(folder), "PATH": os.environ["PATH"]}
        self.process = None
        self.start()

    def start(self):
        self.process = subprocess.Popen(
            ["pulseaudio", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "--use-pid-file=no", "-n",
             "-L", f"module-native-protocol-unix socket={self.socket} auth-anonymous=1",
             "-L", f"module-null-sink sink_name=hall rate={RATE} channels=1"],
            env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: subprocess.run(["pactl", "info"], env=self.environment, capture_output=True,
                                          timeout=20).returncode == 0, 20, "the sound server answers")

    def stop(self):
        self.process.kill()
        self.process.wait()

    def record(self, path):
        with open(path, "wb") as out:
            return subprocess.Popen(["parec", "--device=hall.monitor", "--format=s16le", f"--rate={RATE}",
                                     "--channels=1", "--latency-msec=20"], env=self.environment, stdout=out)


@pytest.fixture
def sound_server(tmp_path, monkeypatch):
    instance = SoundServer(tmp_path)
    for name in ("PULSE_SERVER", "XDG_RUNTIME_DIR", "HOME"):
        monkeypatch.setenv(name, instance.environment[name])
    # An ALSA device that plays in time without a sound card: alsa-lib hands its audio to the same sink.
    (tmp_path / "asound.conf").write_text('pcm.hall { type pulse device "hall" }\n')
    monkeypatch.setenv("ALSA_CONFIG_PATH", str(tmp_path / "asound.conf"))
    yield instance
    instance.stop()


@pytest.mark.parametrize("output, name", [("pulse", "PulseAudio sink hall"), ("alsa", "ALSA device hall")])
def test_speech_is_played_on_an_audio_device_and_again_when_it_comes_back(serve, sound_server, tmp_path, output, name):
    server = serve(talk_back(output=output, device="hall"))
    server.allow_problem(f"talk-back: {name} (failed|cannot be opened: Connection refused)")
    packets = encode("pcmu", speech("Hello there."))
    sent = decode("pcmu", packets)
    with Speaker(server.url(), "udp").open() as speaker:
        wait_for_output(server)
        for turn in range(2):
            recording = sound_server.record(tmp_path / f"captured{turn}")
            try:
                # A recording starts some time after it was asked for.
                wait_until(lambda: (tmp_path / f"captured{turn}").stat().st_size > 0, 10, "audio is recorded")
                speaker.speak(packets)
                speaker.rest(0.5)
            finally:
                recording.terminate()
                recording.wait()
            captured = numpy.frombuffer((tmp_path / f"captured{turn}").read_bytes(), "<i2").astype(float)
            assert likeness(sent, captured) > ENOUGH
            if turn == 0:
                sound_server.stop()
                speaker.speak(encode("pcmu", tone(seconds=0.5)))
                assert f"{name} failed" in server.log()
                sound_server.start()
                wait_for_output(server, times=2)
        speaker.tear_down()
    wait_until(lambda: server.sessions() == 0, 5, "no session is left")
    wait_for_end(server, times=2)
