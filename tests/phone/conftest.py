# SPDX-License-Identifier: GPL-2.0-only
"""The telephone with a library of its own, simulated cards, and the schema to which every line is held.

Run inside scripts/netns. The environment names the programs, see CMakeLists.txt.
"""
import json
import os
import queue
import shutil
import signal
import subprocess
import threading
from pathlib import Path

import jsonschema
import pytest

LONGEST = 30  # seconds that a line may be waited for

SCHEMA = json.loads(Path(os.environ["ZELK_PHONE_SCHEMA"]).read_text())


def validator(name):
    return jsonschema.Draft202012Validator({**SCHEMA, "$ref": f"#/$defs/{name}"})


COMMANDS = validator("command")
LINES = {kind: validator(f"lines/{kind}") for kind in SCHEMA["$defs"]["lines"]}
ANY_LINE = jsonschema.Draft202012Validator(SCHEMA)


def checked(text):
    """The line as an object; fails unless it is one of the schema, with type and time in front."""
    line = json.loads(text)
    assert list(line)[:2] == ["type", "time"], text
    LINES[line["type"]].validate(line)
    ANY_LINE.validate(line)
    return line


class Card:
    """A simulated card with one trunk."""

    def __init__(self, folder, *options):
        self.report = folder / f"report-{len(list(folder.glob('report-*')))}.json"
        self.report.touch()
        self.process = subprocess.Popen(
            [os.environ["ZELK_CARDSIM"], "--seconds", "100", "--report", str(self.report), *options],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        said = []
        for line in self.process.stdout:
            said.append(line)
            if line.startswith("card 1:"):
                return
        raise AssertionError("".join(said))

    def calls(self):
        """Ends it, and gives the calls of its report."""
        self.process.terminate()
        self.process.communicate(timeout=LONGEST)
        return json.loads(self.report.read_text())["calls"]

    def fall_silent(self):
        """As a card does whose network is cut. (One that closes its connection in good order is not missed.)"""
        self.process.send_signal(signal.SIGSTOP)

    def kill(self):
        self.process.kill()
        self.process.communicate()


class Phone:
    """A telephone that runs; lines are written to it and read from it, and nothing else."""

    def __init__(self, program, *words, stdout=subprocess.PIPE, **more):
        self.process = subprocess.Popen([program, *words], stdin=subprocess.PIPE, stdout=stdout, stderr=subprocess.PIPE,
                                        text=True, **more)
        self.lines = []  # all that were read
        self.arrived = queue.Queue()
        if stdout == subprocess.PIPE:
            threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.arrived.put(line)
        self.arrived.put(None)

    def next(self):
        """The next line; None at the end."""
        text = self.arrived.get(timeout=LONGEST)
        if text is None:
            return None
        self.lines.append(checked(text))
        return self.lines[-1]

    def until(self, kind, **fields):
        """Reads up to the line of this type with these fields; the lines are kept."""
        while (line := self.next()) is not None:
            if line["type"] == kind and all(line.get(name) == value for name, value in fields.items()):
                return line
        raise AssertionError(f"no {kind} {fields} in {self.lines}")

    def say(self, text):
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()

    def send(self, ident, do, /, **fields):
        command = {"id": ident, "do": do, **fields}
        COMMANDS.validate(command)
        self.say(json.dumps(command))

    def ask(self, ident, do, /, **fields):
        """Sends a command and reads up to its result."""
        self.send(ident, do, **fields)
        return self.until("result", id=ident)

    def finish(self, close=True):
        """Closes its input, reads the rest; the exit code, which the last line names too."""
        if close:
            self.process.stdin.close()
        while self.next() is not None:
            pass
        code = self.process.wait(timeout=LONGEST)
        assert self.lines[0]["type"] == "hello"
        assert self.lines[-1]["type"] == "end" and self.lines[-1]["code"] == code, self.lines[-1]
        assert [line["type"] for line in self.lines].count("end") == 1
        return code

    def signal(self, number=signal.SIGTERM):
        self.process.send_signal(number)


class Bench:
    """Starts telephones and cards, and ends what is left of them."""

    def __init__(self, folder):
        self.folder = folder
        self.started = []
        for place, program in (("bin", "ZELK_PHONE"), ("lib", "ZELKAPI_BUILT_LIBRARY")):
            (folder / place).mkdir()
            shutil.copy(os.environ[program], folder / place)

    def program(self):
        return str(self.folder / "bin" / "zelk-phone")

    def card(self, *options):
        self.started.append(Card(self.folder, *options))
        return self.started[-1]

    def phone(self, *words, **more):
        self.started.append(Phone(self.program(), *words, **more))
        return self.started[-1]

    def run(self, *words):
        """Runs a command with --json to its end; the exit code, and the lines."""
        phone = self.phone(*words, "--json")
        return phone.finish(), phone.lines

    def serve(self):
        phone = self.phone("serve", "--json")
        phone.until("snapshot")
        assert [line["type"] for line in phone.lines] == ["hello", "snapshot"]
        return phone

    def end(self):
        """Of the test."""
        for each in self.started:
            each.process.kill()
            each.process.wait()


@pytest.fixture
def bench(tmp_path):
    made = Bench(tmp_path)
    yield made
    made.end()
