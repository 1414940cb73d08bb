# SPDX-License-Identifier: GPL-2.0-only
"""What passes between a system test and its application host: every call of the library and every callback.

Left out:
  - all but the last of the same questions in a row of questions: a test that waits asks again and again
  - the number in a PROCEEDING event, which has no meaning (the signalling stack leaves it unset)
"""
import re
import struct

NAMES = """Init Shutdown GetChannelCount OpenChannel CloseChannel GetLastError GetChannelInfo GetChannelInfoString
SetChannelInfo SetChannelInfoString Reject Answer Hangup Dial Transfer DisconnectReasonToString PlayBuffer PlayFile
PlayTimeLeft StopPlay ConvertRawToWaveFile SetEventCallback SetPlayCallback SetRecordCallback
OnEvent OnPlay OnRecord NewThread Unload CpuSeconds PassRecord""".split()
QUESTIONS = ("GetChannelCount", "GetChannelInfo", "GetChannelInfoString", "PlayTimeLeft")
PROCEEDING = 0x402
CALLBACKS = ("OnEvent", "OnPlay", "OnRecord")
FOLDER = re.compile(rb"zelk-test-\w{6}")


def messages(connection):
    """(name, is a reply, from the host, bytes) in the order in which they were complete."""
    waiting = {True: b"", False: b""}
    for _, from_host, piece in connection.pieces:
        data = waiting[from_host] + piece
        while len(data) >= 8:
            length, kind, is_reply = struct.unpack_from("<IBB", data)
            if len(data) < 8 + length:
                break
            yield NAMES[kind], bool(is_reply), from_host, data[8 : 8 + length]
            data = data[8 + length :]
        waiting[from_host] = data


class Application:
    """calls: one list a thread of the test; events and blocks of sound: by channel."""

    def __init__(self, connections):
        self.calls, self.events, self.recorded, self.asked, self.played = [], {}, {}, {}, {}
        for connection in connections:
            lines = self.read(connection)
            if lines:
                self.calls.append(lines)

    def read(self, connection):
        lines, open_asks = [], []
        for name, is_reply, from_host, data in messages(connection):
            if not is_reply:
                open_asks.append((name, data))
                if name in CALLBACKS and from_host and data:  # without data: the greeting of a connection
                    self.take_callback(name, data, [ask for ask, _ in open_asks[:-1]])
            elif open_asks:
                asked, arguments = open_asks.pop()
                if name == "OnPlay" and data:
                    self.add(self.played, arguments, data[8:-1])
                if asked not in CALLBACKS and asked not in ("NewThread", "CpuSeconds"):
                    self.add_call(lines, asked, arguments, data)
        return lines

    def take_callback(self, name, data, inside):
        if name == "OnEvent":
            channel, event, param = struct.unpack("<qqq", data)
            param = "<any>" if event == PROCEEDING else param
            where = " inside " + inside[-1] if inside else ""
            self.events.setdefault(channel, []).append(f"event {event:#x} {param}{where}")
        else:
            self.add(self.recorded if name == "OnRecord" else self.asked, data, data[16:-1])

    @staticmethod
    def add(sound, arguments, block):
        channel = struct.unpack_from("<q", arguments)[0]
        sound[channel] = sound.get(channel, b"") + block

    @staticmethod
    def add_call(lines, name, arguments, reply):
        arguments, reply = FOLDER.sub(b"<folder>", arguments), FOLDER.sub(b"<folder>", reply)
        ask = f"{name} {arguments[:64].hex()}"
        for at in range(len(lines) - 1, -1, -1):
            if name not in QUESTIONS or lines[at].split()[0] not in QUESTIONS:
                break
            if lines[at].startswith(ask + " ->"):
                del lines[at]
                break
        lines.append(f"{ask} -> {reply.hex()}")
