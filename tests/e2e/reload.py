"""Having a running server read its configuration again."""

import subprocess


def reload(server, binary, config=None, timeout=30):
    """`ovrtspd --reload` for `server`, with another configuration where one is given. Returns the finished process."""
    if config is not None:
        server.write_config(config)
    return subprocess.run([binary, "--reload", "--config", str(server.config_path)], capture_output=True, text=True,
                          timeout=timeout, check=False)


def is_bye(rtcp):
    """Whether a compound RTCP packet holds a BYE (RFC 3550, section 6.6)."""
    at = 0
    while at + 4 <= len(rtcp):
        if rtcp[at + 1] == 203:
            return True
        at += 4 + 4 * int.from_bytes(rtcp[at + 2:at + 4], "big")
    return False
