# SPDX-License-Identifier: GPL-2.0-only
"""The control connection of a card and the D-channel frames on it, as comparable lines.

Left out, because they follow timers and the moment at which the other side's frames arrive:
  - RR frames, N(R) and the poll/final bit; frames that repeat an N(S) that went out already
  - SABME and UA that repeat the one before in their direction (both sides begin layer 2, and may do so twice)
  - trunk status messages that repeat the one before (the card sends them for ever)
  - the library's audio port (the system picks it)
"""
import re

SUPERVISORY = {0: "RR", 1: "RNR", 2: "REJ"}
BODIES = {0x01: 22, 0x02: 4, 0x11: 2}
FROM_LIBRARY = {0x01: 0, 0x02: 4, 0x04: 0, 0x05: 3, 0x12: 7}


class Frames:
    """What one side of one D-channel says, without repetitions: call by call, as two threads may each be busy with a
    call of the trunk, and which of them is first is the scheduler's choice."""

    def __init__(self):
        self.said, self.expected = [], 0

    def lines(self):
        return [line for _, line in sorted(self.said, key=lambda said: said[0])]

    def add(self, frame):
        if len(frame) < 3:
            self.say("short " + frame.hex(" "))
            return
        control = frame[2]
        if control & 1 == 0:
            self.add_information(frame)
        elif control & 3 == 1:
            name = SUPERVISORY.get(control >> 2 & 3, "?")
            if name != "RR":
                self.add_once(frame[:2].hex(" ") + " " + name)
        else:
            if control & 0xEC in (0x6C, 0x60):  # SABME, UA
                self.expected = 0
            self.add_once(frame[:2].hex(" ") + f" U {control & 0xEF:02x} " + frame[3:].hex(" "))

    def add_once(self, line):
        if not self.said or self.said[-1] != ("", line):
            self.say(line)

    def say(self, line, call=""):
        self.said.append((call, line))

    def add_information(self, frame):
        number = frame[2] >> 1
        if number != self.expected:
            return
        self.expected = (number + 1) % 128
        message = frame[4:]
        # The number is left out: it is the expected one, and follows the order of the calls' messages.
        self.say(f"{frame[:2].hex(' ')} I {message.hex(' ')}", message[2:4].hex() if message[:2] == b"\x08\x02" else "")


class Stream:
    """One direction of a control connection: the messages, and the frames of each trunk."""

    def __init__(self):
        self.messages, self.frames = [], {}

    def add_message(self, kind, body):
        line = f"{kind:02x} {body.hex(' ')}"
        if kind == 0x05 and len(body) == 3:
            line = f"05 <port> {body[2]:02x}"
        if kind == 0x07 and line in [m for m in self.messages if m.startswith("07")][-1:]:
            return
        self.messages.append(line)

    def add_frame(self, trunk, frame):
        self.frames.setdefault(trunk, Frames()).add(frame)


def from_library(data):
    stream, at = Stream(), 0
    while at + 1 < len(data):
        if data[at] != 0xFF:
            raise ValueError("the library sent something that is no message: " + data[at : at + 16].hex(" "))
        kind = data[at + 1]
        if kind == 0x10:
            length = int.from_bytes(data[at + 3 : at + 5], "little")
            stream.add_frame(data[at + 2], data[at + 5 : at + 5 + length])
            at += 6 + length
        else:
            stream.add_message(kind, data[at + 2 : at + 2 + FROM_LIBRARY[kind]])
            at += 2 + FROM_LIBRARY[kind]
    return stream


def from_card(data):
    """Reads as docs/wire-format.md says that the library does."""
    stream, at, trunks, has_type = Stream(), 0, 0, False
    while at < len(data):
        byte = data[at]
        at += 1
        if not has_type:
            has_type = byte == 0xFF
            continue
        if byte == 0x10:
            length = int.from_bytes(data[at + 1 : at + 3], "little")
            if not 1 <= data[at] <= 8 or length >= 300:
                length = 0
            elif length > 0:
                stream.add_frame(data[at], data[at + 3 : at + 1 + length])
            at += 3 + length
            has_type = False
        elif byte in BODIES or byte == 0x07:
            length = BODIES.get(byte, trunks)
            stream.add_message(byte, data[at : at + length])
            if byte == 0x01 and at + 6 < len(data):
                trunks = data[at + 6]
            at += length
            has_type = byte == 0x02
    return stream


CAPTURE_LINE = re.compile(rb"^([IO]) \d{4}-\d\d-\d\d \d\d:\d\d:\d\d 0000 ((?:[0-9A-F]{2} )+)$")


def capture_lines(data):
    """A capture file: the form of every line is checked, the time left out, frames as above. One list a direction:
    which of two frames that cross stands first is a matter of time."""
    sides = {b"I": Frames(), b"O": Frames()}
    for line in data.split(b"\r\n"):
        found = CAPTURE_LINE.match(line)
        if found:
            sides[found[1]].add(bytes.fromhex(found[2].decode()))
        elif line:
            sides[b"O"].say("not a line of a capture: " + repr(line))
    return sides[b"I"].lines(), sides[b"O"].lines()
