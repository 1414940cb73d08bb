#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Dials the numbers of a list, plays a prompt to who answers, and writes what became of each. Ctrl-C ends.

Usage: dialler.py NUMBERS.csv RESULTS.csv PROMPT.wav [--at-once N] [--give-up S] [--tries N] [--retry-wait S]
ZELKAPI_LIBRARY names the library.
"""
import argparse
import sys
from typing import Callable, Dict, List, Optional, TextIO

import zelkapi

BUSY, NO_ANSWER = 17, (18, 19)


class Entry:
    """A number of the list and how far it is."""

    def __init__(self, place: int, number: str) -> None:
        self.place, self.number, self.tries = place, number, 0
        self.connected = self.played = self.given_up = False
        self.limit: Optional[zelkapi.Timer] = None


def read_numbers(path: str) -> List[str]:
    numbers = []
    with open(path, encoding="utf-8", errors="replace") as file:
        for line, text in enumerate(file, 1):
            number = text.split(",")[0].strip()
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
        try:
            channel.dial(entry.number)
            entry.limit = channel.after(self.options.give_up, "give up")
        except zelkapi.CallError:
            self.end(channel, None, lost=True)

    def end(self, channel: zelkapi.Channel, cause: Optional[int], lost: bool = False) -> None:
        entry = self.calls.pop(channel)
        channel.stop()  # what is left must not be heard in the next call
        if entry.limit:
            entry.limit.cancel()
        if entry.played or (entry.connected and not lost):
            result = "answered"
        elif entry.given_up or cause in NO_ANSWER:
            result = "no-answer"
        else:
            result = "lost" if lost else "busy" if cause == BUSY else "failed"
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
            self.waiting = sorted([*self.waiting, self.retries.pop(event.name)], key=lambda each: each.place)
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
            if entry.limit:
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


def whole(least: int) -> Callable[[str], int]:
    """A whole number of at least this, as an argument."""

    def convert(text: str) -> int:
        if not text.isdecimal() or int(text) < least:
            raise argparse.ArgumentTypeError(f"{text!r} is no whole number of at least {least}")
        return int(text)

    return convert


def main() -> int:
    parser = argparse.ArgumentParser(prog="dialler.py", description="dials the numbers of a list")
    parser.add_argument("numbers", metavar="NUMBERS.csv")
    parser.add_argument("results", metavar="RESULTS.csv")
    parser.add_argument("prompt", metavar="PROMPT.wav")
    for option, least, default in (("--at-once", 1, 2), ("--give-up", 1, 30), ("--tries", 1, 3), ("--retry-wait", 0, 60)):
        parser.add_argument(option, type=whole(least), default=default, help=f"({default})")
    options = parser.parse_args()
    try:
        options.list = read_numbers(options.numbers)
        # The last samples are on the line a moment after PlayDone: silence behind them keeps the hang-up off.
        serve(options, zelkapi.read_wave(options.prompt) + zelkapi.silence(20))
    except (zelkapi.ZelkError, OSError) as error:
        text = f"{error.filename}: {error.strerror}" if isinstance(error, OSError) else str(error)
        print(f"dialler: {text}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        return 1  # before the first event could come
    return 0


sys.exit(main())
