# SPDX-License-Identifier: GPL-2.0-only
"""Scenarios of zelk-cardsim, with the telephone as the library's application."""
import os
import queue
import random
import struct
import subprocess
from pathlib import Path

import pytest
from conftest import LONGEST, checked
from junitparser import JUnitXml

SIMULATOR = os.environ["ZELK_CARDSIM"]


def write_sound(path, seed):
    """A second of A-law that are like nothing else."""
    sound = random.Random(seed).randbytes(8000)
    head = struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(sound), b"WAVE", b"fmt ", 16, 6, 1, 8000, 8000, 1, 8, b"data",
                       len(sound))
    path.write_bytes(head + sound)


class Application:
    """What it does with a call depends on the number that was called; it dials four."""

    def __init__(self, bench):
        self.folder = bench.folder
        self.phone = bench.serve()
        self.called = {}
        self.count = 0
        self.lines = []
        for channel, number in ((26, "901"), (27, "902"), (28, "903"), (29, "904")):
            self.send("dial", channel, number=number, **{"from": "0309"})

    def send(self, do, channel, **fields):
        self.count += 1
        self.phone.send(self.count, do, channel=channel, **fields)

    def on(self, line):
        channel, kind = line.get("channel"), line["type"]
        if kind == "incoming":
            self.called[channel] = line["called"]
            if line["called"] != "105":  # nobody answers that one
                self.send("reject" if line["called"] == "103" else "answer", channel)
        elif kind == "connected" and self.called.get(channel) == "102":
            self.send("play", channel, file=str(self.folder / "menu.wav"))
        elif kind == "connected" and self.called.get(channel) == "104":
            self.send("hangup", channel)
        elif kind == "digit" and line["digit"] == "2":
            self.send("play", channel, file=str(self.folder / "sales.wav"))
        elif kind == "played" and self.called.get(channel) == "106":
            self.send("hangup", channel)

    def run(self, simulator):
        """Until the simulator has ended; its exit code."""
        # What it said while the simulator was there is read in any case.
        while simulator.poll() is None or not self.phone.arrived.empty():
            try:
                text = self.phone.arrived.get(timeout=0.05)
            except queue.Empty:
                continue
            assert text is not None
            self.lines.append(checked(text))
            self.on(self.lines[-1])
        self.phone.process.kill()  # some of its calls went with the card; it would wait for their ends
        return simulator.returncode


def play(bench, toml, *options):
    """Plays a scenario against the application; exit code, what was said, and the report."""
    for seed, name in enumerate(("menu.wav", "sales.wav", "other.wav")):
        write_sound(bench.folder / name, seed)
    (bench.folder / "lib" / "libZelkApi.ini").write_text("[General]\nAudioBuffers=40\n")
    file, report = bench.folder / "scenario.toml", bench.folder / "junit.xml"
    file.write_text(toml)
    simulator = subprocess.Popen([SIMULATOR, "--scenario", str(file), "--junit", str(report), *options],
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    try:
        assert simulator.stdout.readline().startswith("card 1:")
        application = Application(bench)
        code = application.run(simulator)
        said = simulator.stdout.read()
    finally:
        simulator.kill()
    cases = [case for suite in JUnitXml.fromfile(str(report)) for case in suite]
    return code, said, {case.name: [fault.message for fault in case.result] for case in cases}, application.lines


# A far end each, all at once.
GOOD = """
[[call]]
name = "caller chooses 2"
trunk = 1
calling = "0305551234"
called = "102"
steps = [ {expect = "CONNECT", within = "5s"}, {hear = "menu.wav"}, {digits = "2"},
          {hear = "sales.wav", within = "10s"}, {hangup = 16}, {expect = "RELEASE"} ]
repeat = 3
rate = "20/s"

[[call]]
name = "tone"
called = "101"
steps = [ {expect = "CALL PROCEEDING"}, {expect = "ALERTING"}, {expect = "CONNECT"}, {tone = [350, 440], for = "100ms"}, {hangup = 31} ]

[[call]]
name = "one after another"
called = "101"
timeslot = 20
steps = [ {expect = "CONNECT", timeslot = 20}, {wait = "20ms"}, {hangup = 16}, {expect = "RELEASE"} ]
repeat = 3

[[call]]
name = "rejected"
called = "103"
steps = [ {expect = "DISCONNECT", cause = 21}, {expect = "RELEASE COMPLETE"} ]

[[call]]
name = "hung up"
called = "104"
steps = [ {expect = "CONNECT"}, {expect = "DISCONNECT", cause = 16} ]

[[call]]
name = "gives up"
called = "105"
steps = [ {expect = "ALERTING"}, {hangup = 16}, {expect = "RELEASE"} ]

[[call]]
name = "asks for its state"
called = "101"
steps = [ {expect = "CONNECT"}, {send = "STATUS ENQUIRY"}, {expect = "STATUS", cause = 30}, {hangup = 16} ]

[[call]]
name = "answers"
from = "library"
called = "901"
steps = [ {expect = "SETUP", called = "901", calling = "0309", timeslot = 28}, {alert = true}, {wait = "20ms"}, {answer = true},
          {expect = "CONNECT ACKNOWLEDGE"}, {play = "menu.wav"}, {hangup = 16}, {expect = "RELEASE"} ]

[[call]]
name = "busy"
from = "library"
called = "902"
steps = [ {hangup = 17}, {expect = "RELEASE"} ]

[[call]]
name = "progress"
from = "library"
called = "903"
steps = [ {progress = true, cause = 1}, {send = "PROGRESS", elements = "1e 02 81 88"}, {hangup = 1} ]

[[call]]
name = "rings"
from = "library"
called = "904"
calling = "0309"
steps = [ {alert = true}, {hangup = 19}, {expect = "RELEASE"} ]
"""


def test_calls_that_go_as_expected(bench):
    code, said, cases, _ = play(bench, GOOD, "--strict")
    assert code == 0, said
    assert cases == {name: [] for name in cases}
    assert sorted(name for name in cases if name.startswith(("caller", "one"))) == [
        f"{name} #{number}" for name in ("caller chooses 2", "one after another") for number in (1, 2, 3)]
    assert len(cases) == 15 and f"{len(cases)} calls, 0 not as expected" in said


BAD = [
    # what the far end wants; the step that fails; what was expected, what was got
    ('called = "103"\nsteps = [ {expect = "CONNECT"} ]', 1, "expected CONNECT within 5 s",
     "got CALL PROCEEDING, ALERTING, DISCONNECT with cause 21, RELEASE COMPLETE with cause 16; the call is over"),
    ('called = "105"\nsteps = [ {expect = "ALERTING"}, {expect = "CONNECT", within = "200ms"} ]', 2,
     "expected CONNECT within 0.2 s", "got no message"),
    ('called = "104"\nsteps = [ {expect = "CONNECT"}, {expect = "DISCONNECT", cause = 17} ]', 2,
     "expected DISCONNECT with cause 17", "got cause 16"),
    ('called = "101"\ntimeslot = 9\nsteps = [ {expect = "CONNECT", timeslot = 8} ]', 1, "expected CONNECT with timeslot 8", "got "),
    ('called = "102"\nsteps = [ {expect = "CONNECT"}, {hear = "other.wav", within = "1s"} ]', 2,
     "expected to hear other.wav within 1 s", "ms of other sound"),
    ('called = "104"\nsteps = [ {expect = "DISCONNECT"}, {wait = "5s"}, {hangup = 16} ]', 3, "expected a call", "; the call is over"),
    ('called = "104"\nsteps = [ {expect = "CONNECT"}, {play = "other.wav"} ]', 2, "expected the sound to be sent whole", "got DISCONNECT"),
    ('from = "library"\ncalled = "901"\nsteps = [ {expect = "SETUP", calling = "0308"} ]', 1,
     "expected SETUP with calling number 0308", "got calling number 0309"),
    ('from = "library"\ncalled = "999"\nwithin = "300ms"\nsteps = [ {answer = true} ]', 0, "expected a call from the library", "got none came"),
]


def test_calls_that_go_otherwise_name_the_step(bench):
    toml = "".join(f'[[call]]\nname = "{number}"\n{text}\n' for number, (text, *_) in enumerate(BAD))
    code, said, cases, _ = play(bench, toml, "--strict")
    assert code == 1, said
    for number, (text, step, expected, got) in enumerate(BAD):
        assert cases[f"{number} #1"], (text, said)
        [message] = cases[f"{number} #1"]
        assert message.startswith(f"step {step}, " if step else "the begin: "), (text, message)
        assert expected in message and got in message, (text, message)
    # Three more calls of the application were expected by nobody.
    assert cases["calls #1"] == ["strict: expected no further calls, got 3 from the library"]


def test_a_cut_line_and_lost_packets_are_felt_by_the_call(bench):
    code, said, cases, _ = play(bench, """
[[call]]
name = "lost"
called = "102"
steps = [ {expect = "CONNECT"}, {loss = 100}, {wait = "300ms"}, {hear = "menu.wav", within = "1500ms"} ]

[[call]]
name = "cut"
called = "105"
steps = [ {expect = "ALERTING"}, {wait = "3s"}, {line = "cut"}, {hangup = 16}, {expect = "RELEASE", within = "500ms"} ]
""")
    assert code == 1, said
    assert cases["lost #1"][0].startswith("step 4, "), said
    assert cases["cut #1"][0].startswith("step 5, ") and "got no message" in cases["cut #1"][0], said


TROUBLE = """
[[call]]
name = "bytes of one's own"
trunk = 1
called = "101"
steps = [ {expect = "CONNECT"}, {raw = "08 02 00 01 75"}, {expect = "STATUS", cause = 30}, {hangup = 16}, {expect = "RELEASE"} ]

[[call]]
name = "alarm"
trunk = 2
called = "101"
steps = [ {expect = "CONNECT"}, {alarm = 1}, {hdlc_errors = 9}, {alarm = 0}, {hdlc_errors = 3}, {wait = "100ms"} ]

[[call]]
name = "errors"
trunk = 3
called = "101"
steps = [ {expect = "CONNECT"}, {hdlc_errors = 7}, {wait = "100ms"}, {hangup = 16}, {expect = "RELEASE"} ]

[[call]]
name = "timeslot restarted"
trunk = 4
called = "101"
timeslot = 5
steps = [ {expect = "CONNECT"}, {restart = "timeslot"}, {wait = "5s"} ]

[[call]]
name = "trunk restarted"
trunk = 5
called = "101"
timeslot = 6
steps = [ {expect = "CONNECT"}, {restart = "trunk"}, {send = "STATUS ENQUIRY"}, {expect = "STATUS", cause = 30}, {hangup = 31},
          {expect = "RELEASE"} ]
"""


def test_a_far_end_that_makes_trouble(bench):
    code, said, cases, lines = play(bench, TROUBLE, "--trunks", "5")
    assert code == 0, said
    assert len(cases) == 5
    log = (bench.folder / "lib" / "libZelkApi.log").read_text(encoding="latin-1")
    assert log.count("Trunk 1 - HDLC CRC Error") == 3, log  # those of a line out of service are not reported
    assert log.count("Trunk 2 - HDLC CRC Error") == 7, log
    causes = {line["channel"]: line["cause"] for line in lines if line["type"] == "disconnected"}
    assert causes[90 + 4] == 16  # the timeslot's call is gone with the restart, not after 5 s
    assert causes[120 + 5] == 31  # the trunk's was not touched by it


def test_a_card_that_begins_anew_is_called_again(bench):
    code, said, _, lines = play(bench, """
[[call]]
name = "before and after"
called = "101"
steps = [ {expect = "CONNECT"}, {restart = "card"} ]
repeat = 2
""")
    assert code == 0, said
    of_channel = [line["type"] for line in lines if line.get("channel") == 0]
    assert of_channel.count("incoming") == 2 and "lost" in of_channel, lines


FILES = [
    ("[[call]", 1, 1), ("", 1, 1), ("name = 'x'\n", 1, 1), ("[[call]]\nsteps = []\n", 2, 9), ("[[call]]\nname = 5\n", 2, 8),
    ('[[call]]\nsteps = [ {expect = "HELLO"} ]', 2, 21), ('[[call]]\nsteps = [\n {wait = "1s"},\n {wait = 1} ]', 4, 10),
    ('[[call]]\nrepeet = 2\nsteps = [ {wait = "1s"} ]', 2, 10), ('[[call]]\ntimeslot = 16\nsteps = [ {wait = "1s"} ]', 2, 12),
    ('[[call]]\nsteps = [ {wait = "1s", cause = 5} ]', 2, 33), ('[[call]]\nsteps = [ {hear = "none.wav"} ]', 2, 19),
    ('[[call]]\nsteps = [ {hangup = 128} ]', 2, 21), ('[[call]]\nsteps = [ {answer = true} ]', 2, 21),
    ('[[call]]\nsteps = [ {send = "NOTIFY", elements = "1e0"} ]', 2, 40), ('[[call]]\nrate = "0/s"\nsteps = [ {wait = "1s"} ]', 2, 8),
]


def ended(*options):
    done = subprocess.run([SIMULATOR, *options], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=LONGEST)
    return done.returncode, done.stdout, done.stderr


@pytest.fixture(name="file")
def scenario_file(tmp_path):
    return tmp_path / "scenario.toml"


def test_a_file_that_is_wrong_is_pointed_at(file):
    for text, line, column in FILES:
        file.write_text(text)
        code, _, said = ended("--scenario", str(file))
        assert (code, said.startswith(f"zelk-cardsim: {file}:{line}:{column}: ")) == (2, True), (text, said)
    assert ended("--scenario", "/none.toml")[0] == 2
    assert ended("--scenario", "builtin:none")[0] == 2


def test_what_cannot_be_run(file):
    file.write_text('[[call]]\nwithin = "100ms"\nsteps = [ {wait = "1s"} ]')
    assert ended("--scenario", str(file)) == (3, "card 1: 127.0.1.1:5854, serial 100001, 1 trunks\n",
                                              "zelk-cardsim: no library opened a card in 100 ms\n")
    for place in ("card = 2", "trunk = 2"):
        file.write_text(f'[[call]]\n{place}\nsteps = [ {{wait = "1s"}} ]')
        assert ended("--scenario", str(file))[0] == 3
    assert ended("--scenario", "builtin:answers", "--address", "10.9.9.9")[0] == 3


@pytest.mark.parametrize("words", ["caller: answer", "caller-stays: answer --hold 1", "any-channel: answer", "gives-up: answer --wait 1 --calls 0",
                                   "answers: dial 0 5 --hold 1", "busy: dial 0 5", "rings: dial 0 5 --answer-within 1"])
def test_built_in_scenarios(bench, file, words):
    name, _, command = words.partition(": ")
    code, listed, _ = ended("--list")
    assert code == 0 and f"\n{name} " in "\n" + listed
    code, printed, _ = ended("--print", name)
    assert code == 0
    file.write_text(printed)
    simulator = subprocess.Popen([SIMULATOR, "--scenario", str(file) if name == "busy" else f"builtin:{name}"],
                                 stdout=subprocess.PIPE, text=True)
    try:
        assert simulator.stdout.readline().startswith("card 1:")
        code, lines = bench.run(*command.split())
        assert code == {"busy": 5, "rings": 6, "gives-up": 6}.get(name, 0), lines
        said, _ = simulator.communicate(timeout=LONGEST)
        assert simulator.returncode == 0, said
    finally:
        simulator.kill()


def test_strict_calls_without_a_scenario(bench):
    """One call of two that is not connected makes it fail."""
    for options, code in ((["--strict"], 1), ([], 0)):
        simulator = subprocess.Popen([SIMULATOR, "--calls", "2", "--calls-per-second", "100", *options], stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, text=True)
        try:
            assert simulator.stdout.readline().startswith("card 1:")
            phone = bench.serve()
            offered = [phone.until("incoming")["channel"] for _ in range(2)]
            phone.ask(1, "reject", channel=offered[0])
            phone.ask(2, "answer", channel=offered[1])
            phone.until("connected")
            phone.finish()
            assert (simulator.communicate(timeout=LONGEST)[1] != "", simulator.returncode) == (code == 1, code)
        finally:
            simulator.kill()


def test_every_built_in_scenario_is_tried():
    listed = {line.split()[0] for line in ended("--list")[1].splitlines()}
    tried = {each.partition(":")[0] for each in test_built_in_scenarios.pytestmark[0].args[1]}
    assert listed == tried
    assert Path(SIMULATOR).exists()
