"""Is a camera by VLC's RTSP server, which sends over UDP: vlc_server.py FILE PORT. Plays the file again and again until
its standard input ends. Through the library, because the program refuses to run as root."""

import ctypes
import sys

OPTIONS = [b"--intf=dummy", b"--quiet", b"--sout-all", b"--rtsp-host=127.0.0.1"]


def main(path, port):
    vlc = ctypes.CDLL("libvlc.so.5")
    for function in (vlc.libvlc_new, vlc.libvlc_media_new_path, vlc.libvlc_media_player_new_from_media):
        function.restype = ctypes.c_void_p
    instance = vlc.libvlc_new(len(OPTIONS), (ctypes.c_char_p * len(OPTIONS))(*OPTIONS))
    media = vlc.libvlc_media_new_path(ctypes.c_void_p(instance), path.encode())
    for option in (f":sout=#rtp{{sdp=rtsp://127.0.0.1:{port}/camera}}", ":input-repeat=1000"):
        vlc.libvlc_media_add_option(ctypes.c_void_p(media), option.encode())
    player = vlc.libvlc_media_player_new_from_media(ctypes.c_void_p(media))
    vlc.libvlc_media_player_play(ctypes.c_void_p(player))
    sys.stdin.read()


if __name__ == "__main__":
    main(*sys.argv[1:])
