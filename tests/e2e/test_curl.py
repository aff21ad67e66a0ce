import io

import pycurl


class Curl:
    """libcurl's RTSP client, one request at a time on one connection."""

    def __init__(self, url, credentials=None):
        self.handle = pycurl.Curl()
        self.handle.setopt(pycurl.URL, url)
        self.handle.setopt(pycurl.TIMEOUT, 20)
        if credentials:
            self.handle.setopt(pycurl.HTTPAUTH, pycurl.HTTPAUTH_DIGEST)
            self.handle.setopt(pycurl.USERPWD, credentials)

    def ask(self, request, url, **options):
        """Returns status, header lines, body"""
        headers, body = io.BytesIO(), io.BytesIO()
        self.handle.setopt(pycurl.OPT_RTSP_REQUEST, request)
        self.handle.setopt(pycurl.OPT_RTSP_STREAM_URI, url)
        self.handle.setopt(pycurl.HEADERFUNCTION, headers.write)
        self.handle.setopt(pycurl.WRITEFUNCTION, body.write)
        for name, value in options.items():
            self.handle.setopt(getattr(pycurl, name), value)
        self.handle.perform()
        return self.handle.getinfo(pycurl.RESPONSE_CODE), headers.getvalue().decode(), body.getvalue()


def test_whole_session_with_interleaved_media(server):
    url = server.url()
    curl = Curl(url)
    status, headers, _ = curl.ask(pycurl.RTSPREQ_OPTIONS, url)
    assert status == 200
    for method in ("DESCRIBE", "SETUP", "PLAY", "PAUSE", "TEARDOWN", "GET_PARAMETER", "SET_PARAMETER"):
        assert method in headers

    status, headers, body = curl.ask(pycurl.RTSPREQ_DESCRIBE, url)
    assert status == 200
    assert "application/sdp" in headers
    assert body.startswith(b"v=0\r\n") and b"H264/90000" in body

    status, headers, _ = curl.ask(pycurl.RTSPREQ_SETUP, url + "/trackID=0",
                                  OPT_RTSP_TRANSPORT="RTP/AVP/TCP;unicast;interleaved=0-1")
    assert status == 200
    assert "interleaved=0-1" in headers
    assert curl.handle.getinfo(pycurl.INFO_RTSP_SESSION_ID) in headers

    status, headers, media = curl.ask(pycurl.RTSPREQ_PLAY, url, RANGE="npt=0-")
    assert status == 200
    assert "RTP-Info" in headers
    while len(media) < 200_000:
        status, _, more = curl.ask(pycurl.RTSPREQ_RECEIVE, url)
        media += more
    assert_whole_packets(media)

    status, _, _ = curl.ask(pycurl.RTSPREQ_TEARDOWN, url)
    assert status == 200


def assert_whole_packets(media):
    """Walks through what libcurl handed over: interleaved packets, one after the other."""
    at, sequences = 0, []
    while at + 4 <= len(media):
        assert media[at:at + 1] == b"$" and media[at + 1] in (0, 1)
        size = int.from_bytes(media[at + 2:at + 4], "big")
        if media[at + 1] == 0:
            sequences.append(int.from_bytes(media[at + 6:at + 8], "big"))
        at += 4 + size
    assert at == len(media)
    assert len(sequences) > 50
    assert all((b - a) & 0xFFFF == 1 for a, b in zip(sequences, sequences[1:]))
