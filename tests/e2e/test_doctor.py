"""`ovrtspd doctor` on machines that are broken by configuration, and one that is not."""

import json
import os
import pwd
import re
import socket
import subprocess

import pytest
from server import DEFAULT_CONFIG

needs_root = pytest.mark.skipif(os.geteuid() != 0, reason="takes root")


@pytest.fixture
def doctor(build_folder, tmp_path):
    """doctor(config) -> (exit code, findings)."""
    def run(config, environment=None, prefix=()):
        path = tmp_path / "ovrtspd.toml"
        path.write_text(config)
        path.chmod(0o644)
        done = subprocess.run([*prefix, build_folder / "ovrtspd", "doctor", "--config", path, "--json"],
                              capture_output=True, text=True, timeout=60, env={**os.environ, **(environment or {})})
        assert done.stdout.startswith("{"), done.stdout + done.stderr
        report = json.loads(done.stdout)
        failures = [each for each in report["findings"] if each["kind"] == "failure"]
        assert report["failures"] == len(failures) == done.returncode, done.stdout
        assert all(each["mend"] for each in report["findings"] if each["kind"] != "ok"), done.stdout
        return report["findings"]
    return run


def found(findings, kind, subject, text, mend=""):
    """Whether there is such a finding; texts are parts of its own."""
    assert any(each["kind"] == kind and subject in each["subject"] and text in each["text"] and mend in each["mend"]
               for each in findings), json.dumps(findings, indent=1)


def camera(lines, number=1):
    return f"[[camera]]\nid = {number}\nname = \"yard\"\n[[camera.stream]]\nid = 0\n{lines}\n"


def test_text_is_one_line_each_and_the_code_counts_failures(build_folder):
    done = subprocess.run([build_folder / "ovrtspd", "doctor"], capture_output=True, text=True, timeout=60)
    lines = done.stdout.splitlines()
    assert done.returncode == len([line for line in lines if line.startswith("failure  ")])
    assert lines[-1].startswith(f"{done.returncode} failure")
    assert all(line.split()[0] in ("ok", "warning", "failure") for line in lines[:-1])
    assert done.stderr == ""


def test_invalid_configuration_is_named_line_by_line(doctor):
    findings = doctor('prot = 1\nport = "x"\n')
    found(findings, "failure", "configuration", "ovrtspd.toml:1:1:", "--dump-config")
    found(findings, "failure", "configuration", "ovrtspd.toml:2:")
    # The machine itself is checked all the same.
    assert any(each["subject"] == "kernel" for each in findings)


def test_a_port_that_another_program_has(doctor):
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = taken.getsockname()[1]
        program = open(f"/proc/{os.getpid()}/comm").read().strip()
        findings = doctor(f"port = {port}\n")
        found(findings, "failure", "ports", f"TCP port {port} (RTSP) at 127.0.0.1 is in use by {program} (process {os.getpid()})",
              "choose another port")


def test_a_port_that_a_running_server_has_is_good(doctor, serve):
    server = serve()
    found(doctor(f"port = {server.port}\n"), "ok", "ports", "is served by a running ovrtspd")


def test_a_udp_port_that_another_program_has(doctor):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as taken:
        taken.bind(("127.0.0.1", 0))
        port = taken.getsockname()[1] & ~1
        findings = doctor(f"port = 0\nrtp-port = {port}\n")
        found(findings, "failure", "ports", f"UDP port {taken.getsockname()[1]}", "choose another rtp-port")


def test_an_address_that_no_interface_has(doctor):
    found(doctor('listen = "192.0.2.77"\nport = 0\n'), "failure", "ports", "no interface of this machine has the address",
          "ip address")


@needs_root
def test_a_port_that_takes_a_capability(doctor):
    prefix = ["setpriv", "--bounding-set", "-net_bind_service", "--inh-caps", "-net_bind_service"]
    findings = doctor("port = 554\n", prefix=prefix)
    found(findings, "failure", "capabilities", "port = 554 needs CAP_NET_BIND_SERVICE", "ovrtspd.socket")
    found(findings, "failure", "ports", "TCP port 554 (RTSP) at 127.0.0.1 is for privileged programs", "ovrtspd.socket")


def test_missing_elements_and_their_packages(doctor, tmp_path):
    (tmp_path / "none").mkdir()
    findings = doctor(DEFAULT_CONFIG, {"GST_PLUGIN_SYSTEM_PATH_1_0": str(tmp_path / "none"),
                                       "GST_REGISTRY_1_0": str(tmp_path / "registry.bin")})
    for element, package in (("x264enc", "gstreamer1.0-plugins-ugly"), ("videotestsrc", "gstreamer1.0-plugins-base"),
                             ("mulawenc", "gstreamer1.0-plugins-good"), ("audiobuffersplit", "gstreamer1.0-plugins-bad"),
                             ("clockoverlay", "gstreamer1.0-x")):
        found(findings, "failure", "GStreamer", f"the element {element} is missing", f"apt-get install {package}")


def test_packages_of_elements_are_those_that_debian_has_them_in(build_folder):
    table = (build_folder.parent.parent / "refhost/doctor/ElementsCheck.cpp").read_text()
    names = {"core": "libgstreamer1.0-0", "base": "gstreamer1.0-plugins-base", "good": "gstreamer1.0-plugins-good",
             "bad": "gstreamer1.0-plugins-bad"}
    entries = re.findall(r'\{"(\w+)",\s*("?[\w.-]+"?)\}', table)
    assert len(entries) > 30
    for element, package in entries:
        printed = subprocess.run(["gst-inspect-1.0", element], capture_output=True, text=True).stdout
        file = re.search(r"^\s*Filename\s+(\S+)", printed, re.M).group(1)
        owner = subprocess.run(["dpkg", "-S", "*/" + os.path.basename(file)], capture_output=True, text=True).stdout.split(":")[0]
        assert owner == names.get(package, package.strip('"')), element


def make_certificate(folder, days=365):
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
                    "/CN=localhost", "-days", str(days), "-keyout", folder / "key.pem", "-out", folder / "cert.pem"],
                   check=True, capture_output=True)


def tls(folder, key="key.pem"):
    return f'port = 0\n[tls]\nport = 0\ncertificate = "{folder}/cert.pem"\nkey = "{folder}/{key}"\n'


def test_certificates(doctor, tmp_path):
    found(doctor(tls(tmp_path)), "failure", "certificate", "cert.pem: No such file", "Correct the path")
    make_certificate(tmp_path)
    found(doctor(tls(tmp_path)), "ok", "certificate", "is valid for 36")
    subprocess.run(["openssl", "genpkey", "-algorithm", "ED25519", "-out", tmp_path / "other.pem"], check=True)
    found(doctor(tls(tmp_path, "other.pem")), "failure", "certificate", "other.pem is not the one of the certificate",
          "Name the key")
    (tmp_path / "key.pem").chmod(0o644)
    found(doctor(tls(tmp_path)), "warning", "certificate", "everybody can read the key", "chmod o=")
    make_certificate(tmp_path, days=3)
    found(doctor(tls(tmp_path)), "warning", "certificate", "expires in", "renewed")
    (tmp_path / "cert.pem").write_text("nothing")
    found(doctor(tls(tmp_path)), "failure", "certificate", "holds no certificate", "PEM")


def test_an_expired_certificate(doctor, tmp_path):
    # Valid for a day of 2020.
    subprocess.run(["openssl", "genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out",
                    tmp_path / "key.pem"], check=True, capture_output=True)
    subprocess.run(["openssl", "req", "-new", "-key", tmp_path / "key.pem", "-subj", "/CN=localhost", "-out",
                    tmp_path / "request.pem"], check=True)
    (tmp_path / "index.txt").write_text("")
    (tmp_path / "serial").write_text("01\n")
    (tmp_path / "ca.cnf").write_text(f"""[ca]
default_ca = own
[own]
dir = {tmp_path}
database = {tmp_path}/index.txt
serial = {tmp_path}/serial
new_certs_dir = {tmp_path}
default_md = sha256
policy = any
[any]
commonName = supplied
""")
    subprocess.run(["openssl", "ca", "-batch", "-selfsign", "-config", tmp_path / "ca.cnf", "-startdate", "20200101000000Z",
                    "-enddate", "20200102000000Z", "-keyfile", tmp_path / "key.pem", "-in", tmp_path / "request.pem", "-out",
                    tmp_path / "cert.pem", "-notext"], check=True, capture_output=True)
    found(doctor(tls(tmp_path)), "failure", "certificate", "expired", "renewed")


@needs_root
def test_folders_and_files_that_this_user_may_not_use(doctor, tmp_path, build_folder):
    closed = tmp_path / "closed"
    closed.mkdir(mode=0o755)
    film = closed / "film.mp4"
    film.write_text("")
    film.chmod(0o600)
    for parent in tmp_path.parents:
        if parent != parent.parent and not parent.stat().st_mode & 0o001:
            pytest.skip(f"others may not enter {parent}")
    tmp_path.chmod(0o755)
    nobody = pwd.getpwnam("nobody").pw_uid
    findings = doctor(f'port = 0\n[recording]\ndirectory = "{closed}/recordings"\n'
                      + camera(f'source = "file"\nlocation = "{film}"\nrecord = true'),
                      {"HOME": "/nonexistent"}, ["setpriv", "--reuid", str(nobody), "--clear-groups"])
    found(findings, "failure", "permissions", "closed cannot be written: Permission denied", "chown")
    found(findings, "failure", "permissions", "film.mp4 cannot be opened by this user", "chgrp")


def test_sources_that_are_missing(doctor, tmp_path):
    findings = doctor("port = 0\n" + camera(f'source = "file"\nlocation = "{tmp_path}"'))
    found(findings, "failure", "configuration", "location is a folder: name a media file in it", "Correct that line")
    findings = doctor("port = 0\n" + camera('source = "v4l2"\nlocation = "/dev/video77"', 2)
                      + camera('source = "launch"\nlocation = "nosuchelement ! fakesink name=video"', 3))
    found(findings, "failure", "permissions", "/dev/video77: No such file", "v4l2-ctl --list-devices")
    found(findings, "failure", 'camera 3/0 "yard"', "nosuchelement", "gst-launch-1.0")


def test_cameras_that_do_not_answer_refuse_and_answer(doctor, serve):
    server = serve()
    guarded = serve(DEFAULT_CONFIG + '[[user]]\nname = "viewer"\npassword = "horse"\n')
    guarded.allow_problem("passwords|may do everything|grants|nothing is given")
    with socket.create_server(("127.0.0.1", 0)) as silent:
        closed = socket.create_server(("127.0.0.1", 0))
        port = closed.getsockname()[1]
        closed.close()
        findings = doctor("port = 0\n" + "".join(
            camera(f'source = "rtsp"\nlocation = "{url}"', number) for number, url in enumerate((
                server.url(), server.url(camera=9), guarded.url(credentials="viewer:wrong"), f"rtsp://127.0.0.1:{port}/",
                f"rtsp://127.0.0.1:{silent.getsockname()[1]}/", "rtsp://nowhere.invalid/"), 1)))
    found(findings, "ok", 'camera 1/0 "yard"', "its media can be read")
    found(findings, "failure", 'camera 2/0 "yard"', "404", "Correct the path")
    found(findings, "failure", 'camera 3/0 "yard"', "", "Correct user and password")
    found(findings, "failure", 'camera 4/0 "yard"', "refused", "firewall")
    found(findings, "failure", 'camera 5/0 "yard"', "", "firewall")
    found(findings, "failure", 'camera 6/0 "yard"', "", "Correct the host")
    assert "wrong" not in json.dumps(findings).replace("wrong password", "")


def test_a_talk_back_output_that_does_not_open(doctor):
    findings = doctor('port = 0\n[talk-back]\noutput = "alsa"\ndevice = "hw:77"\n'
                      + camera("").replace("[[camera.stream]]", 'talk-back = "pcmu"\n[[camera.stream]]'))
    found(findings, "failure", "talk-back", "hw:77", "aplay -L")


@needs_root
def test_a_full_and_a_read_only_disk(doctor, tmp_path):
    disk = tmp_path / "disk"
    disk.mkdir()
    config = f'port = 0\n[recording]\ndirectory = "{disk}"\n' + camera("record = true")
    mounted = ["unshare", "--mount", "sh", "-c",
               'mount -t tmpfs -o size=8m tmpfs "$0" && head -c 8100000 /dev/zero >"$0/full"; eval "$1"; shift; exec "$@"',
               str(disk)]
    found(doctor(config, prefix=[*mounted, "true"]), "failure", "disk", "less than min-free", "Make room")
    found(doctor(config, prefix=[*mounted, f"mount -o remount,ro {disk}"]), "failure", "permissions", "read-only",
          "ReadWritePaths=")


@needs_root
def test_multicast_without_a_route(doctor):
    findings = doctor('listen = "0.0.0.0"\nport = 0\n' + camera('multicast = "239.1.2.3:5004"'),
                      prefix=["unshare", "--net"])
    found(findings, "failure", "multicast", "packets to 239.1.2.3 have no route", "ip route add 224.0.0.0/4")
    found(doctor('port = 0\n[multicast]\ninterface = "eth77"\n'), "failure", "multicast", "eth77: there is none", "ip address")


def test_a_machine_without_faults_has_none_but_its_own(doctor, serve, tmp_path):
    server = serve()
    findings = doctor("port = 0\n" + camera(f'source = "rtsp"\nlocation = "{server.url()}"'))
    assert [each["text"] for each in findings if each["subject"] == "clock"]
    assert [each for each in findings if each["kind"] == "failure" and each["subject"] != "clock"] == []
