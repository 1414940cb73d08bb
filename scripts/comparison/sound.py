# SPDX-License-Identifier: GPL-2.0-only
"""Sound on a timeslot, as what is heard: the sounds between stretches of idle codes.

How long an idle stretch lasts, where in a block of 20 ms a sound begins, and whether a thread that was late left its
idle code in a stretch of silence is a matter of when; the bytes of a sound and their order are not.
"""
import re

# 0xD5: silence of the play queue; 0x54: no sound was there; 0x00: timeslots that carry no channel.
IDLE_CODES = b"\xd5\x54\x00"
IDLE = re.compile(rb"[\xd5\x54\x00]{160,}")


def sounds(data):
    parts = (part.strip(IDLE_CODES) for part in IDLE.split(data))
    return [part for part in parts if part]


def wave_parts(data):
    """The chunks of a WAV file (their lengths follow the length of the sound), and the samples."""
    header, at, samples = [data[:4].decode("latin-1") + " " + data[8:12].decode("latin-1")], 12, b""
    while at + 8 <= len(data):
        name, length = data[at : at + 4], int.from_bytes(data[at + 4 : at + 8], "little")
        body = data[at + 8 : at + 8 + length]
        header.append(name.decode("latin-1") + (" " + body.hex(" ") if name == b"fmt " else ""))
        if name == b"data":
            samples = body
        at += 8 + length + length % 2
    return header, samples
