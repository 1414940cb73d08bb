#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""240 channels of a simulated card connected, 30 of them recorded, while another Python thread computes without pause.

Usage (inside scripts/netns, environment as in CMakeLists.txt): full_card.py [--seconds S] [--plain] [--idle]
Every recording has to hold what the far end said, sample for sample, and no reply to the card may be late: exit code 1
otherwise. --plain does the same by ctypes callbacks on the library's own threads, which wait for the interpreter, and
judges nothing; --idle leaves the computing thread out.
"""
import argparse
import contextlib
import ctypes
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import threading
from pathlib import Path
from typing import Any, Dict, Iterator, List, Set

import zelkapi
from zelkapi import raw

CHANNELS = 240
RECORDED = range(0, CHANNELS, 8)


@contextlib.contextmanager
def computing(wanted: bool) -> Iterator[List[int]]:
    """A thread that never gives the interpreter away by itself, and counts its turns."""
    turns, end = [0], threading.Event()

    def compute() -> None:
        while not end.is_set():
            for number in range(10000):
                turns[0] += number * number % 3 == 1

    thread = threading.Thread(target=compute)
    if wanted:
        thread.start()
    yield turns
    end.set()
    if wanted:
        thread.join()


class Card:
    """The simulated card, whose far ends all say the same sound once."""

    def __init__(self, folder: Path, sound: bytes) -> None:
        self.report = folder / "report.json"
        with zelkapi.WaveWriter(folder / "said.wav") as said:
            said.write(sound)
        self.process = subprocess.Popen(
            [os.environ["ZELK_CARDSIM"], "--cards", "1", "--trunks", "8", "--play", str(folder / "said.wav"), "--report",
             str(self.report)], stdout=subprocess.PIPE, text=True)  # fmt: skip
        assert self.process.stdout is not None
        while not self.process.stdout.readline().startswith("card 1:"):
            assert self.process.poll() is None

    def finish(self) -> Any:
        self.process.terminate()
        self.process.communicate()
        return json.loads(self.report.read_text())["cards"][0]["audio"]


def run_queued(path: Path, folder: Path, seconds: float) -> Dict[int, bytes]:
    """The recordings of the package."""
    connected: Set[zelkapi.Channel] = set()
    with zelkapi.Library(path) as zelk:
        recordings = {}
        for event in zelk.events():
            if isinstance(event, zelkapi.ChannelState) and event.up:
                number = event.channel.number
                if number in RECORDED:
                    recordings[number] = event.channel.record(folder / f"{number}.wav")
                event.channel.dial("0305551234")
            elif isinstance(event, zelkapi.Connected):
                connected.add(event.channel)
                if len(connected) == CHANNELS:
                    event.channel.after(seconds + 1)
            elif isinstance(event, (zelkapi.Disconnected, zelkapi.Overflow)):
                raise SystemExit(f"unexpected: {event}")
            elif isinstance(event, zelkapi.Timeout):
                zelk.stop()
        for recording in recordings.values():
            recording.stop()
        print(f"blocks lost on the way: {sum(recording.lost for recording in recordings.values())}")
    return {number: zelkapi.read_wave(folder / f"{number}.wav") for number in recordings}


def run_plain(path: Path, folder: Path, seconds: float) -> Dict[int, bytes]:
    """The same by callbacks into Python."""
    api = raw.ZelkApi(path)
    heard: Dict[int, bytearray] = {number: bytearray() for number in RECORDED}
    up, connected, all_up, all_connected = set(), set(), threading.Event(), threading.Event()

    def on_event(channel: int, code: int, param: int) -> None:
        if code == zelkapi.EventCode.CHANNEL_STATE and param == 1:
            up.add(channel)
            if len(up) == CHANNELS:
                all_up.set()
        elif code == zelkapi.EventCode.CONNECTED:
            connected.add(channel)
            if len(connected) == CHANNELS:
                all_connected.set()

    def on_sound(channel: int, data: Any, length: int) -> None:
        if channel in heard:
            heard[channel] += ctypes.string_at(data, length)

    api.ZELK_SetEventCallback(on_event)
    api.ZELK_SetRecordCallback(on_sound)
    api.ZELK_Init()
    if not all_up.wait(60):
        print(f"of {CHANNELS} channels {len(up)} came up")
    for channel in range(api.ZELK_GetChannelCount()):
        api.ZELK_Dial(channel, b"0305551234", None)
    if not all_connected.wait(60):
        print(f"of {CHANNELS} channels {len(connected)} were connected")
    threading.Event().wait(seconds + 1)
    api.ZELK_Shutdown()
    return {number: bytes(data) for number, data in heard.items()}


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("--plain", action="store_true")
    parser.add_argument("--idle", action="store_true")
    options = parser.parse_args()
    sound = random.Random(11).randbytes(int(options.seconds * 8000))
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        path = Path(shutil.copy(os.environ["ZELKAPI_BUILT_LIBRARY"], folder))
        card = Card(folder, sound)
        with computing(not options.idle) as turns:
            heard = (run_plain if options.plain else run_queued)(path, folder, options.seconds)
        audio = card.finish()
    exact = sum(sound in each for each in heard.values())
    blocks = {sound[at : at + 40] for at in range(0, len(sound), 40)}  # pieces of 5 ms, wherever they begin
    kept = sum(sum(each[at : at + 40] in blocks for at in range(len(each))) for each in heard.values())
    print(f"recordings: {len(heard)}, sample for sample: {exact}, of the sound there: {kept / len(blocks) / len(heard):.2%}")
    print(f"the other thread counted to {turns[0]}")
    print(", ".join(f"{key} {value}" for key, value in audio.items() if not isinstance(value, (dict, list))))
    good = exact == len(RECORDED) and audio["late"] == 0 and audio["missing"] == 0
    return int(not good and not options.plain)


sys.exit(main())
