#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Dials the numbers of a list, plays a prompt to who answers, and writes what became of each. Ctrl-C ends.

Usage: dialler.py NUMBERS.csv RESULTS.csv PROMPT.wav [--at-once N] [--give-up S] [--tries N] [--retry-wait S]
ZELKAPI_LIBRARY names the library.
"""
import argparse
import sys
from typing import Dict, List, Optional, TextIO

import zelkapi


class Entry:
    """A number of the list and how far it is."""

    def __init__(self, place: int, number: str) -> None:
        self.place, self.number, self.tries = place, number, 0
        self.connected = self.played = self.given_up = False
        self.limit: zelkapi.Timer  # for the answer, of this try


def read_numbers(path: str) -> List[str]:
    numbers = []
    with open(path, encoding="utf-8", errors="replace") as file:
        for line, text in enumerate(file, 1):
            number = text.rstrip("\n").split(",")[0]
            if not text.strip() or (line == 1 and number == "number"):
                continue
            try:
                zelkapi.check_number(number)
            except zelkapi.NumberError as error:
                raise zelkapi.ZelkError(f"{path}:{line}: {error}") from None
            numbers.append(number)
    return numbers


class Dialler:
    def __init__(self, zelk: zelkapi.Library, options: argparse.Namespace, prompt: bytes, results: TextIO) -> None:
        self.zelk, self.options, self.prompt, self.results = zelk, options, prompt, results
        self.waiting = [Entry(place, number) for place, number in enumerate(options.list)]
        self.calls: Dict[zelkapi.Channel, Entry] = {}
        self.retries: Dict[str, Entry] = {}  # by the name of their time
        self.left = len(self.waiting)

    def fill(self) -> None:
        """Begins as many calls as there may be."""
        for channel in self.zelk.channels:
            if not self.waiting or len(self.calls) >= self.options.at_once:
                return
            if channel not in self.calls and channel.state == zelkapi.State.READY:
                self.dial(channel, self.waiting.pop(0))

    def dial(self, channel: zelkapi.Channel, entry: Entry) -> None:
        print(f"channel {channel.number}: dialling {entry.number}", flush=True)
        entry.tries += 1
        entry.connected = entry.played = entry.given_up = False
        self.calls[channel] = entry
        entry.limit = channel.after(self.options.give_up)
        try:
            channel.dial(entry.number)
        except zelkapi.CallError:
            self.end(channel, None, lost=True)

    def end(self, channel: zelkapi.Channel, cause: Optional[int], lost: bool = False) -> None:
        entry = self.calls.pop(channel)
        channel.stop()  # what is left must not be heard in the next call
        entry.limit.cancel()
        result = "lost" if lost else "busy" if cause == 17 else "failed"
        if entry.played or (entry.connected and not lost):
            result = "answered"
        elif entry.given_up or cause in (18, 19):
            result = "no-answer"
        if result in ("lost", "busy") and entry.tries < self.options.tries:
            self.retries[channel.after(self.options.retry_wait, f"retry {entry.place}").name] = entry
            return
        name = self.zelk.reason(cause)
        print(f"channel {channel.number}: {entry.number} {result}, {name}", flush=True)
        print(f"{entry.number},{result},{entry.tries},{-1 if cause is None else cause},{name}", file=self.results, flush=True)
        self.left -= 1

    def handle(self, event: zelkapi.Event) -> None:
        channel = event.channel if isinstance(event, zelkapi.ChannelEvent) else self.zelk.channels[0]
        entry = self.calls.get(channel)
        if isinstance(event, zelkapi.Timeout) and event.name in self.retries:
            self.waiting.append(self.retries.pop(event.name))
        elif isinstance(event, zelkapi.IncomingCall):
            channel.reject()
            if entry:
                self.end(channel, None, lost=True)
        elif entry is None:
            return
        elif isinstance(event, zelkapi.Timeout):
            entry.given_up = True
            channel.hangup()
        elif isinstance(event, zelkapi.Connected) and not entry.given_up and not entry.connected:
            entry.connected = True
            entry.limit.cancel()
            channel.play(self.prompt)
        elif isinstance(event, zelkapi.PlayDone) and entry.connected and channel.play_time_left == 0:
            entry.played = True
            channel.hangup()
        elif isinstance(event, zelkapi.Disconnected):
            self.end(channel, event.cause)
        elif isinstance(event, zelkapi.ChannelState) and not event.up:
            self.end(channel, None, lost=True)


def serve(options: argparse.Namespace, prompt: bytes) -> None:
    with open(options.results, "w", encoding="utf-8") as results, zelkapi.Library() as zelk:
        if not zelk.channels:
            raise zelkapi.ZelkError("no card found")
        print("number,result,tries,cause,name", file=results, flush=True)
        for channel in zelk.channels:
            channel.allow_incoming(False)
        dialler = Dialler(zelk, options, prompt, results)
        events = zelk.events()
        print(f"dialling {dialler.left} numbers", flush=True)
        dialler.fill()
        while dialler.left:
            event = next(events, None)
            if event is None:
                raise zelkapi.ZelkError(f"{dialler.left} numbers are left")
            dialler.handle(event)
            dialler.fill()


def main() -> int:
    parser = argparse.ArgumentParser(prog="dialler.py", description="dials the numbers of a list")
    for name in ("NUMBERS.csv", "RESULTS.csv", "PROMPT.wav"):
        parser.add_argument(name[:-4].lower(), metavar=name)
    for option, default in (("--at-once", 2), ("--give-up", 30), ("--tries", 3), ("--retry-wait", 60)):
        parser.add_argument(option, metavar="N", type=int, default=default, help=f"({default})")
    options = parser.parse_args()
    if min(options.at_once, options.give_up, options.tries, options.retry_wait + 1) < 1:
        parser.error("these are whole numbers of at least 1, --retry-wait of at least 0")
    try:
        options.list = read_numbers(options.numbers)
        # The last samples are on the line a moment after PlayDone: silence behind them keeps the hang-up off.
        serve(options, zelkapi.read_wave(options.prompt) + zelkapi.silence(20))
    except (zelkapi.ZelkError, OSError, KeyboardInterrupt) as error:
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) else str(error)
        print(f"dialler: {text or 'interrupted'}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
