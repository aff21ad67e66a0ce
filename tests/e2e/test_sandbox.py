"""What a running server denies itself."""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import pytest
from rtsp_client import RtspClient
from server import DEFAULT_CONFIG, wait_until

# Tries forbidden calls in a thread that runs before the server's own code, once a file asks for it.
INTRUDER = r"""
#define _GNU_SOURCE
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <unistd.h>

static void *intrude(void *unused)
{
    const char *ask = getenv("INTRUDER_ASK");
    const char *answer = getenv("INTRUDER_ANSWER");
    char *arguments[] = {(char *)"/bin/true", NULL};
    while (access(ask, F_OK) != 0)
        usleep(10000);
    int tracing = ptrace(PTRACE_TRACEME, 0, 0, 0) < 0 ? errno : 0;
    int leaving = unshare(CLONE_NEWNS) < 0 ? errno : 0;
    execve(arguments[0], arguments, NULL);
    int starting = errno;
    FILE *out = fopen(answer, "w");
    fprintf(out, "%d %d %d\n", tracing, leaving, starting);
    fclose(out);
    return unused;
}

__attribute__((constructor)) static void start(void)
{
    pthread_t thread;
    if (getenv("INTRUDER_ASK") != NULL)
        pthread_create(&thread, NULL, intrude, NULL);
}
"""

# Starts a program where the kernel has neither Landlock nor seccomp.
OLD_KERNEL = """
import ctypes, errno, os, sys
seccomp = ctypes.CDLL("libseccomp.so.2")
seccomp.seccomp_init.restype = ctypes.c_void_p
ALLOW, ERRNO, PR_SET_SECCOMP = 0x7fff0000, 0x00050000, 22
class Compare(ctypes.Structure):
    _fields_ = [("arg", ctypes.c_uint), ("op", ctypes.c_int), ("a", ctypes.c_uint64), ("b", ctypes.c_uint64)]
context = ctypes.c_void_p(seccomp.seccomp_init(ALLOW))
for name in (b"landlock_create_ruleset", b"seccomp"):
    assert seccomp.seccomp_rule_add(context, ERRNO | errno.ENOSYS, seccomp.seccomp_syscall_resolve_name(name), 0) == 0
number = seccomp.seccomp_syscall_resolve_name(b"prctl")
compare = Compare(0, 4, PR_SET_SECCOMP, 0)
assert seccomp.seccomp_rule_add_array(context, ERRNO | errno.EINVAL, number, 1, ctypes.byref(compare)) == 0
assert seccomp.seccomp_load(context) == 0
os.execv(sys.argv[1], sys.argv[1:])
"""


@pytest.fixture
def elsewhere(build_folder):
    """A folder that is not among the temporary ones, which the server may always use."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="sandbox-", dir=build_folder))
    yield folder
    shutil.rmtree(folder)


def file_camera(path):
    return f'{DEFAULT_CONFIG}[[camera]]\nid = 1\n[[camera.stream]]\nid = 0\nsource = "file"\nlocation = "{path}"\n'


def statuses(server):
    for thread in pathlib.Path(f"/proc/{server.pid}/task").iterdir():
        yield dict(re.findall(r"^(\w+):\s*(.*)$", (thread / "status").read_text(), re.M))


def test_every_thread_is_filtered_and_one_line_says_so(serve):
    server = serve()
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
        for status in statuses(server):
            assert (status["Seccomp"], status["NoNewPrivs"]) == ("2", "1"), status
    lines = [line for line in server.log().splitlines() if " sandbox: " in line]
    assert len(lines) == 1
    assert "sandbox: no new privileges; system calls filtered; files limited to the configuration's and the system's" in lines[0]


def test_calls_of_an_intruder_are_refused_in_a_thread_that_ran_before(serve, tmp_path):
    source = tmp_path / "intruder.c"
    source.write_text(INTRUDER)
    library = tmp_path / "intruder.so"
    subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source, "-lpthread"], check=True)
    ask, answer = tmp_path / "ask", tmp_path / "answer"
    preloaded = ["env", f"LD_PRELOAD={library}", f"INTRUDER_ASK={ask}", f"INTRUDER_ANSWER={answer}"]
    server = serve(start=lambda command, **kwargs: subprocess.Popen([*preloaded, *map(str, command)], **kwargs))
    ask.touch()
    wait_until(lambda: answer.exists() and answer.read_text(), 20, "the intruder has tried")
    assert answer.read_text().split() == ["1", "1", "1"]  # EPERM
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")


def test_a_file_beside_the_configured_folders_is_refused(serve, clip, elsewhere):
    (elsewhere / "films").mkdir()
    (elsewhere / "other").mkdir()
    shutil.copy(clip, elsewhere / "other" / "film.mp4")
    # What the configuration names leads out of its folder.
    (elsewhere / "films" / "film.mp4").symlink_to(elsewhere / "other" / "film.mp4")
    config = file_camera(elsewhere / "films" / "film.mp4")
    limited = serve(config)
    limited.allow_problem("film.mp4|camera 1/0")
    with RtspClient(limited.url()) as client:
        assert client.request("DESCRIBE", limited.url()).status != 200
    free = serve(config, arguments=["--no-sandbox"])
    assert "sandbox: off: switched off" in free.log()
    with RtspClient(free.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")


def test_what_the_configuration_names_can_be_used_anywhere(serve, clip, elsewhere):
    (elsewhere / "films").mkdir()
    shutil.copy(clip, elsewhere / "films" / "film.mp4")
    server = serve(f'{DEFAULT_CONFIG}[tls]\nport = 0\nself-signed = true\ndirectory = "{elsewhere}/state/tls"\n'
                   f'[recording]\ndirectory = "{elsewhere}/recorded/here"\nsegment = 2\n'
                   f'[[camera]]\nid = 1\n[[camera.stream]]\nid = 0\nsource = "file"\nrecord = true\n'
                   f'location = "{elsewhere}/films/film.mp4"\n')
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
        # The film is replaced, as files are that somebody edits.
        shutil.copy(clip, elsewhere / "films" / "next.mp4")
        (elsewhere / "films" / "next.mp4").rename(elsewhere / "films" / "film.mp4")
        wait_until(lambda: len(list((elsewhere / "recorded/here").rglob("*.mkv"))) >= 2, 40, "segments are recorded")
    assert list((elsewhere / "state/tls").iterdir())
    server.stop()


def test_a_launch_line_may_use_any_file(serve, elsewhere):
    server = serve(f'''{DEFAULT_CONFIG}
[[camera]]
id = 1
[[camera.stream]]
id = 0
source = "launch"
location = """videotestsrc is-live=true ! video/x-raw,width=160,height=90 ! x264enc tune=zerolatency ! tee name=both
both. ! queue ! filesink location={elsewhere}/copy.h264 buffer-mode=unbuffered async=false
both. ! queue ! identity name=video"""
''')
    assert "files not limited: camera 1/0 is a launch line, which may use any" in server.log()
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
        wait_until(lambda: (elsewhere / "copy.h264").stat().st_size > 0, 20, "the line writes")


def test_the_configuration_switches_it_off(serve):
    server = serve("sandbox = false\n" + DEFAULT_CONFIG)
    assert "sandbox: off: switched off" in server.log()
    own = dict(re.findall(r"^(\w+):\s*(.*)$", pathlib.Path("/proc/self/status").read_text(), re.M))
    for status in statuses(server):
        assert (status["Seccomp"], status["NoNewPrivs"]) == (own["Seccomp"], "1")


def test_a_kernel_without_it_serves_with_a_warning(serve):
    server = serve(start=lambda command, **kwargs: subprocess.Popen(
        [sys.executable, "-c", OLD_KERNEL, *map(str, command)], **kwargs))
    server.allow_problem("sandbox: files are not limited: the kernel has no Landlock: Function not implemented")
    server.allow_problem("sandbox: system calls are not filtered: ")
    with RtspClient(server.url()) as client:
        client.open()
        client.receive(lambda: client.rtp, "media")
    server.stop()
    assert len(re.findall("warning .* sandbox: ", server.log())) == 2
