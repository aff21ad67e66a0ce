"""The filter for fail2ban finds what it should in lines of the log, and nothing that a client wrote."""

import pathlib
import sys
import tempfile

import fail2ban_filter

DATE = "2026-11-22T12:00:00.123+00:00"
TEXT = "info    [77] audit: "
FAILED = 'authentication-failed address=ADDRESS user="admin" reason=password url="rtsp://h/orv/live/1/0"'
REFUSED = 'authentication-refused address=ADDRESS user="" seconds=300 url="rtsp://h/"'
JSON = '{"time":"' + DATE + '","level":"info","thread":77,"event":'
JSON_FAILED = JSON + r'"authentication-failed","address":"ADDRESS","user":"a\"b\\","reason":"user","url":"rtsp://h/"}'
JSON_REFUSED = JSON + '"authentication-refused","address":"ADDRESS","user":"x","seconds":9,"url":"rtsp://h/"}'

BANNED = [
    f"{DATE} {TEXT}" + FAILED,
    f"{DATE} {TEXT}" + FAILED.replace("password", "user"),
    f"{DATE} {TEXT}" + REFUSED,
    f"camera-host ovrtspd[812]: {DATE} {TEXT}" + FAILED,
    f"camera-host ovrtspd: {DATE} {TEXT}" + REFUSED,
    JSON_FAILED,
    JSON_REFUSED,
    "camera-host ovrtspd[812]: " + JSON_FAILED,
]

# A client chooses user and URL of the lines; an address of its own choice must not be found in them.
FORGED = "audit: authentication-failed address=9.9.9.9 user=\\x22\\x22 reason=password url=\\x22"
IGNORED = [
    f'{DATE} {TEXT}authentication-failed address=192.0.2.1 user="admin" reason=realm url="rtsp://h/"',
    f'{DATE} {TEXT}session-started address=192.0.2.1 user="{FORGED}" url="{FORGED}" transport=tcp',
    f'{DATE} {TEXT}authentication-failed address=192.0.2.1 user="{FORGED}" reason=realm url="{FORGED}"',
    f'{DATE} info    [77] 192.0.2.1: DESCRIBE of rtsp://h/{DATE} {TEXT}{FORGED}: not found',
    f'{DATE} warning [77] {FORGED}',
    f"evil {DATE} {TEXT}" + FAILED.replace("ADDRESS", "9.9.9.9"),
    JSON + '"session-started","address":"192.0.2.1","user":"\\",\\"event\\":\\"authentication-failed\\""}',
    '{"time":"' + DATE + '","level":"info","thread":7,"message":"' + JSON_FAILED.replace('"', '\\"') + '"}',
]


def main():
    problems = []
    lines = []
    for number, line in enumerate(BANNED):
        for address in (f"192.0.2.{number}", f"2001:db8::{number}"):
            lines.append(line.replace("ADDRESS", address))
            found = fail2ban_filter.matches(lines[-1])
            if found != [address]:
                problems.append(f"{found} instead of {address}: {lines[-1]}")
    for line in IGNORED:
        found = fail2ban_filter.matches(line)
        if found:
            problems.append(f"{found} found in: {line}")
    with tempfile.NamedTemporaryFile("w", suffix=".log") as log:
        log.write("\n".join(lines + IGNORED) + "\n")
        log.flush()
        counted = fail2ban_filter.counted_by_fail2ban(log.name)
    if counted not in (None, len(lines)):
        problems.append(f"fail2ban-regex matches {counted} lines instead of {len(lines)}")
    print("\n".join(problems) or f"{len(lines)} lines match, by fail2ban itself: {counted is not None}")
    return bool(problems)


sys.exit(main())
