# SPDX-License-Identifier: GPL-2.0-only
"""One recorded run of a scenario as named fields, each a list of lines or of sounds that another run must have too."""
import glob
import os
import re

import application
import signalling
import sound
from traffic import Traffic

PORT = 5854
TEST_ADDRESS = "127.9.9.9"  # where the application host finds the test
# Of the demo's output: how long it ran, how many packets that took, when the simulator looked at its state,
# and that the script looked for the simulator's output before it was there.
MEASURED = re.compile(r"trunks up |Summary after |  packets |grep: ")
SAMPLE = re.compile(r"from sample \d+ on")
FOLDER = re.compile(r"/\S*/demo-out")
LOG_TIME = re.compile(rb"^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d")


class AudioLine:
    """The packets between one card and one audio port of the library."""

    def __init__(self):
        self.numbers = []
        self.headers = []  # from the library: everything but number and samples
        self.samples = []
        self.asked = []  # lengths of what came from the card


def audio_lines(datagrams):
    lines = {}
    for source, source_port, destination, port, payload in datagrams:
        if payload[:2] != b"\xff\x55":
            continue
        if port == PORT:
            line = lines.setdefault((destination, source_port), AudioLine())
            number = int.from_bytes(payload[2:6], "little")
            line.numbers.append(number)
            line.headers.append(f"number {number - line.numbers[0]}, {payload[6:8].hex(' ')}, {len(payload)} bytes")
            line.samples.append(payload[8:])
        elif (source, port) in lines or source_port == PORT:
            lines.setdefault((source, port), AudioLine()).asked.append(len(payload))
    return lines


def timeslots(line, trunks):
    """The bytes of each timeslot of each trunk, in the order of the packets."""
    width = trunks * 32
    whole = b"".join(line.samples)
    return {(at // 32, at % 32): whole[at::width] for at in range(width)}


class Run:
    """fields: name -> lines, compared as they are. ends: the same, of which the run that ended sooner may have fewer.
    sounds: name -> the sounds of a timeslot, a callback or a file."""

    def __init__(self, folder):
        self.fields, self.ends, self.sounds = {}, {}, {}
        recording = os.path.join(folder, "traffic.pcap")
        self.trunks = {}
        if os.path.exists(recording):
            traffic = Traffic(recording)
            self.add_control(traffic)
            self.add_datagrams(traffic)
            self.add_application(traffic)
        self.add_files(folder)

    def add_control(self, traffic):
        count = {}
        for connection in traffic.connections:
            card, port = connection.server
            if port != PORT:
                continue
            count[card] = count.get(card, 0) + 1
            name = f"card {card} connection {count[card]}"
            for who, stream in (("library", signalling.from_library(connection.bytes(True))),
                                ("card", signalling.from_card(connection.bytes(False)))):
                self.fields[f"control stream, {name}, {who}"] = stream.messages
                for trunk, frames in sorted(stream.frames.items()):
                    self.fields[f"D-channel, {name}, trunk {trunk}, {who}"] = frames.lines()
                for message in stream.messages:
                    if who == "card" and message.startswith("01 ") and len(message.split()) > 7:
                        self.trunks[card] = int(message.split()[7], 16)

    def add_datagrams(self, traffic):
        # One field a side: on a busy machine a card's reply may come after the next probe.
        for source, _, destination, port, payload in traffic.datagrams:
            if payload[:5] == b"ZELK ":
                lines = self.fields.setdefault(f"discovery, {source}", [])
                lines.append(f"-> {destination}:{port} {payload.hex(' ')}")
        count, next_number = {}, {}
        for (card, _), line in audio_lines(traffic.datagrams).items():
            count[card] = count.get(card, 0) + 1
            name = f"card {card} generation {count[card]}"
            if not line.numbers:
                continue
            # The library counts on when it opens a card again.
            first = "goes on" if line.numbers[0] == next_number.get(card, 0) else f"begins with {line.numbers[0]}"
            next_number[card] = line.numbers[-1] + 1
            self.ends[f"audio headers, {name}"] = [first] + line.headers
            for (trunk, timeslot), data in timeslots(line, self.trunks.get(card, 1)).items():
                if line.numbers[0] == 0:
                    self.fields[f"first byte, {name}, trunk {trunk}, timeslot {timeslot}"] = [data[:1].hex()]
                self.sounds[f"line, {name}, trunk {trunk}, timeslot {timeslot}"] = sound.sounds(data)

    def add_application(self, traffic):
        hosts = [connection for connection in traffic.connections if connection.server[0] == TEST_ADDRESS]
        seen = application.Application(hosts)
        for thread, lines in enumerate(seen.calls):
            self.fields[f"calls and results, thread {thread}"] = lines
        for channel, lines in seen.events.items():
            self.fields[f"events, channel {channel}"] = lines
        for what, by_channel in (("recorded", seen.recorded), ("play callback got", seen.asked),
                                 ("play callback gave", seen.played)):
            for channel, data in by_channel.items():
                self.sounds[f"{what}, channel {channel}"] = sound.sounds(data)

    def add_files(self, folder):
        for path in sorted(glob.glob(os.path.join(folder, "files-*", "*"))):
            name = os.path.relpath(path, folder)
            with open(path, "rb") as file:
                data = file.read()
            if path.endswith(".log"):
                self.fields[name] = [
                    LOG_TIME.sub(b"<time>", line).decode("latin-1") for line in data.split(b"\n")]
            elif path.endswith(".hdlc"):
                received, sent = signalling.capture_lines(data)
                self.fields[name + " received"], self.fields[name + " sent"] = received, sent
            elif path.endswith(".wav"):
                header, samples = sound.wave_parts(data)
                self.fields[name + " header"], self.sounds[name] = header, sound.sounds(samples)
            elif path.endswith("output.txt"):
                self.fields[name] = [
                    FOLDER.sub("<folder>", SAMPLE.sub("from sample <when> on", line)) for line in data.decode().split("\n")
                    if not MEASURED.match(line)]
            else:
                self.fields[name] = data.decode("latin-1").split("\n")
