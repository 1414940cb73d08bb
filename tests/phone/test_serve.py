# SPDX-License-Identifier: GPL-2.0-only
"""zelk-phone serve: commands in, answers and events out."""
import json
import os
import signal
import wave

import pytest
from conftest import LONGEST, checked


def write_prompt(path):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1)
        file.setsampwidth(2)
        file.setframerate(8000)
        file.writeframes(bytes(8000))  # half a second
    return str(path)


class Script:
    """What a user would write: dials 15 calls, answers 15, on each of them plays, records and hangs up."""

    def __init__(self, phone, folder, prompt):
        self.phone, self.folder, self.prompt = phone, folder, prompt
        self.asked = {}  # by id: the command
        self.failed = []
        self.done = set()
        self.digits = {}

    def send(self, do, channel, **fields):
        number = len(self.asked) + 1
        self.asked[number] = do
        self.phone.send(number, do, channel=channel, **fields)

    def on(self, line):
        channel = line.get("channel")
        if line["type"] == "incoming":
            assert (line["calling"], line["called"]) == ("0301234", "0305678")
            self.send("answer", channel)
        elif line["type"] == "connected":
            self.send("record", channel, file=str(self.folder / f"{channel}.wav"))
            self.send("digits", channel, digits="1")
            self.send("play", channel, file=self.prompt)
        elif line["type"] == "played":
            self.send("state", channel)
        elif line["type"] == "digit":
            self.digits[channel] = self.digits.get(channel, "") + line["digit"]
            if self.digits[channel] == "42":
                self.send("hangup", channel)
        elif line["type"] == "disconnected":
            assert line["cause"] == 16
            self.done.add(channel)
        elif line["type"] == "result" and not line["ok"]:
            self.failed.append((self.asked[line["id"]], line))

    def run(self, calls):
        for channel in range(15, 30):
            self.send("dial", channel, number=f"040{channel}", **{"from": "0309"})
        while len(self.done) < calls:
            line = self.phone.next()
            assert line is not None, self.phone.lines
            self.on(line)


def test_thirty_calls_by_lines_alone(bench):
    """Every timeslot of a trunk at a time; what the card saw of them is what was asked for."""
    card = bench.card("--calls", "15", "--calls-per-second", "100", "--concurrent", "15", "--stay", "--calling", "0301234",
                      "--called", "0305678", "--digits", "42")
    phone = bench.serve()
    script = Script(phone, bench.folder, write_prompt(bench.folder / "prompt.wav"))
    script.run(30)
    assert phone.finish() == 0
    assert script.failed == []
    assert script.digits == {channel: "42" for channel in range(30)}
    results = [line["id"] for line in phone.lines if line["type"] == "result"]
    assert results == sorted(script.asked), "each command is answered once, in turn"
    recorded = [line for line in phone.lines if line["type"] == "recorded"]
    assert {line["channel"] for line in recorded} == set(range(30))
    for line in recorded:
        assert line["bytes"] > 1600 and os.path.getsize(line["file"]) >= line["bytes"] + 44
    calls = card.calls()
    assert len(calls) == 30
    assert all(call["connected"] and call["cause"] == 16 and call["clearedBy"] == "library" for call in calls)
    assert {(call["calling"], call["called"]) for call in calls} == {("0301234", "0305678")} | {
        ("0309", f"040{channel}") for channel in range(15, 30)}


BAD_LINES = [
    ("", "bad-json"), ("dial 0 555", "bad-json"), ("[]", "bad-json"), ("null", "bad-json"), ('{"id":1', "bad-json"),
    ('{"id":1,"do":"state"}}', "bad-json"), ("[" * 60000, "bad-json"), ("\x00", "bad-json"),
    ("x" * 70000, "too-long"),
    ("{}", "bad-request"), ('{"do":"state"}', "bad-request"), ('{"id":1.5,"do":"state"}', "bad-request"),
    ('{"id":null,"do":"state"}', "bad-request"),
]
BAD_COMMANDS = [
    ({}, "bad-request"), ({"do": 5}, "bad-request"), ({"do": "explode"}, "bad-request"),
    ({"do": "state", "chan": 1}, "bad-request"), ({"do": "answer"}, "bad-request"),
    ({"do": "answer", "channel": -1}, "bad-request"), ({"do": "answer", "channel": 1.5}, "bad-request"),
    ({"do": "answer", "channel": "1"}, "bad-request"), ({"do": "answer", "channel": 10**30}, "bad-request"),
    ({"do": "answer", "channel": 2**32}, "bad-request"), ({"do": "answer", "channel": 30}, "no-channel"),
    ({"do": "state", "channel": 30}, "no-channel"), ({"do": "answer", "channel": 0}, "no-call"),
    ({"do": "reject", "channel": 0}, "no-call"), ({"do": "hangup", "channel": 0}, "no-call"),
    ({"do": "play", "channel": 0, "file": "x"}, "no-call"), ({"do": "digits", "channel": 0, "digits": "1"}, "no-call"),
    ({"do": "record", "channel": 0, "file": "x"}, "no-call"), ({"do": "stop", "channel": 0}, "no-call"),
    ({"do": "stop", "channel": 0, "what": "all"}, "bad-request"), ({"do": "dial", "channel": 0}, "bad-request"),
    ({"do": "dial", "channel": 0, "number": ""}, "bad-request"), ({"do": "dial", "channel": 0, "number": "12a"}, "bad-request"),
    ({"do": "dial", "channel": 0, "number": "1" * 32}, "bad-request"), ({"do": "dial", "channel": 0, "number": 12}, "bad-request"),
    ({"do": "dial", "channel": 0, "number": "1", "from": "x"}, "bad-request"),
    # On channel 5, which holds a call.
    ({"do": "dial", "channel": 5, "number": "1"}, "busy"), ({"do": "answer", "channel": 5}, "no-call"),
    ({"do": "digits", "channel": 5, "digits": "1x"}, "bad-request"), ({"do": "play", "channel": 5, "file": "/none.wav"}, "file"),
    ({"do": "play", "channel": 5, "file": "a\0b"}, "bad-request"), ({"do": "record", "channel": 5, "file": "/none/x.wav"}, "file"),
]


def test_a_bad_line_is_answered_and_changes_nothing(bench):
    bench.card()
    phone = bench.serve()
    assert phone.ask("call", "dial", channel=5, number="1")["ok"]
    phone.until("connected", channel=5)
    for text, error in BAD_LINES:
        phone.say(text)
        line = phone.until("result")
        assert (line["id"], line["ok"], line["error"]) == (None, False, error), text[:50]
    for fields, error in BAD_COMMANDS:
        phone.say(json.dumps({"id": "it", **fields}))
        line = phone.until("result")
        assert (line["id"], line["ok"], line["error"]) == ("it", False, error), fields
    phone.process.stdin.buffer.write(b'{"id":"\xff","do":"state"}\r\n')
    phone.process.stdin.buffer.flush()
    assert phone.until("result")["error"] == "bad-json"
    assert phone.ask(2**63, "state", channel=5)["channels"][0]["call"] == "connected"
    everything = phone.ask("", "state")["channels"]
    assert [each["channel"] for each in everything] == list(range(30))
    assert [each["channel"] for each in everything if each["call"] != "idle"] == [5]
    assert phone.finish() == 0


def test_each_command_does_what_it_says(bench):
    card = bench.card("--calls", "2", "--calls-per-second", "100", "--stay")
    phone = bench.serve()
    prompt = write_prompt(bench.folder / "prompt.wav")
    offered = [phone.until("incoming")["channel"] for _ in range(2)]
    assert phone.ask(1, "reject", channel=offered[0])["ok"]
    assert phone.ask(2, "answer", channel=offered[1])["ok"]
    phone.until("connected", channel=offered[1])
    # What is stopped is not told as played, and its recording ends.
    assert phone.ask(3, "digits", channel=offered[1], digits=",,,,,,,,,,")["ok"]
    assert phone.ask(4, "play", channel=offered[1], file=prompt)["ok"]
    assert phone.ask(5, "state", channel=offered[1])["channels"][0]["playLeftMs"] > 9000
    path = str(bench.folder / "heard.wav")
    assert phone.ask(6, "record", channel=offered[1], file=path)["ok"]
    assert phone.ask(7, "record", channel=offered[1], file=path)["error"] == "busy"
    assert phone.ask(8, "stop", channel=offered[1], what="play")["ok"]
    state = phone.ask(9, "state", channel=offered[1])["channels"][0]
    assert (state["playLeftMs"], state["recording"], state["state"]) == (0, True, "INUSE")
    assert phone.ask(10, "stop", channel=offered[1], what="record")["ok"]
    assert [line["file"] for line in phone.lines if line["type"] == "recorded"] == [path]
    assert not phone.ask(11, "state", channel=offered[1])["channels"][0]["recording"]
    assert phone.ask(12, "record", channel=offered[1], file=path)["ok"]
    assert phone.ask(13, "stop", channel=offered[1])["ok"]
    assert phone.ask(14, "hangup", channel=offered[1])["ok"]
    assert phone.until("disconnected", channel=offered[1])["cause"] == 16
    assert phone.ask(15, "hangup", channel=offered[1])["error"] == "no-call"
    assert phone.finish() == 0
    assert "played" not in {line["type"] for line in phone.lines}
    assert sorted(call["cause"] for call in card.calls()) == [16, 21]


def test_refused_unanswered_and_given_up_calls(bench):
    bench.card("--refuse", "17", "--calls", "1", "--calls-per-second", "100", "--give-up-after", "300", "--stay")
    phone = bench.serve()
    gone = phone.until("incoming")["channel"]
    assert phone.until("disconnected", channel=gone)["cause"] == 16
    assert phone.ask(1, "answer", channel=gone)["error"] == "no-call"
    assert phone.ask(2, "dial", channel=3, number="1")["ok"]
    assert phone.until("disconnected", channel=3)["causeName"] == "USER_BUSY"
    assert phone.finish() == 0


# How it is ended: a signal, or the end of its input.
@pytest.mark.parametrize("end", [None, signal.SIGINT, signal.SIGTERM])
def test_its_end_clears_every_call(bench, end):
    card = bench.card("--calls", "1", "--calls-per-second", "100", "--stay")
    phone = bench.serve()
    phone.until("incoming")
    assert phone.ask(1, "dial", channel=7, number="1")["ok"]
    phone.until("connected", channel=7)
    assert phone.ask(2, "record", channel=7, file=str(bench.folder / "heard.wav"))["ok"]
    if end is not None:
        phone.signal(end)
    assert phone.finish(close=end is None) == 0
    kinds = [line["type"] for line in phone.lines]
    assert "disconnected" in kinds and "recorded" in kinds
    assert sorted((call["direction"], call["cause"], call["clearedBy"])
                  for call in card.calls()) == [("from library", 16, "library"), ("to library", 21, "library")]


def test_a_reader_that_goes_away_ends_it_as_well(bench):
    card = bench.card()
    read, write = os.pipe()
    phone = bench.phone("serve", stdout=write)
    os.close(write)
    with os.fdopen(read) as lines:
        phone.send(1, "dial", channel=7, number="1")
        assert any(checked(line)["type"] == "connected" for line in lines)
    phone.send(2, "state")  # the answer finds nobody
    assert phone.process.wait(timeout=LONGEST) == 0
    assert phone.process.stderr.read() == ""
    assert [(call["cause"], call["clearedBy"]) for call in card.calls()] == [(16, "library")]


def test_a_full_disk_is_a_failure(bench):
    bench.card()
    with open("/dev/full", "w") as full:
        phone = bench.phone("serve", stdout=full)
        assert phone.process.wait(timeout=LONGEST) == 7
    assert phone.process.stderr.read() == "zelk-phone: cannot write standard output\n"


def test_a_card_that_fails_and_comes_back(bench):
    first = bench.card()
    phone = bench.serve()
    assert phone.ask(1, "dial", channel=7, number="1")["ok"]
    phone.until("connected", channel=7)
    first.fall_silent()
    phone.until("lost", channel=7)
    phone.until("channel", channel=7, usable=False)
    assert phone.ask(2, "dial", channel=7, number="1")["error"] == "down"
    first.kill()
    bench.card("--announce")
    phone.until("channel", channel=7, usable=True)
    assert phone.ask(3, "dial", channel=7, number="1")["ok"]
    phone.until("connected", channel=7)
    assert phone.finish() == 0
