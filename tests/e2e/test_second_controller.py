import pytest

from rtsp_client import RtspClient

MTU = 1000
CONFIG = f"""
port = 0
log-level = "debug"
live-controller = "{{controller}}"
mtu = {MTU}
"""
USUAL = 1364


@pytest.mark.parametrize("controller, expected", [("first", {"tcp": USUAL, "udp": USUAL}),
                                                  ("second", {"tcp": USUAL, "udp": MTU - 76})])
def test_the_second_controller_fits_udp_packets_to_the_path(serve, transport, controller, expected):
    server = serve(CONFIG.format(controller=controller))
    with RtspClient(server.url(), transport) as client:
        client.open()
        client.receive(lambda: len(client.packets(client.video())) > 100, "video")
        largest = max(len(packet.payload) for packet in client.packets(client.video()))
        assert expected[transport] - 4 <= largest <= expected[transport]


def test_with_both_the_second_has_urls_of_its_own(serve, transport):
    server = serve(CONFIG.format(controller="both"))
    for family in ("orv/live", "second/orv/live"):
        with RtspClient(server.url(family=family), transport) as client:
            info = client.open()
            client.receive(lambda: len(client.packets(client.video())) > 20, "video")
            packet = client.packets(client.video())[0]
            assert (packet.sequence, packet.timestamp) == info[client.video()]
