#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Answers every call and lets the caller choose from a menu and a sub-menu. Ctrl-C ends.

Usage: ivr.py FOLDER [--wait S]      ZELKAPI_LIBRARY names the library
FOLDER holds the prompts: menu.wav, hours.wav, branches.wav, north.wav, south.wav, wrong.wav, goodbye.wav.
"""
import argparse
import os
import sys
from typing import Dict, Optional

import zelkapi

MOST_WRONG = 3
PROMPTS = ("menu", "hours", "branches", "north", "south", "wrong", "goodbye")
# Of each menu, named after its prompt: what an entry plays ("" for nothing), and the menu that follows it.
MENUS = {
    "menu": {"1": ("hours", "menu"), "2": ("", "branches"), "0": ("goodbye", "")},
    "branches": {"1": ("north", "branches"), "2": ("south", "branches"), "*": ("", "menu")},
}


class Caller:
    """A caller and where he is; menu is "" when he is on his way out."""

    def __init__(self, channel: zelkapi.Channel, prompts: Dict[str, bytes], wait: float) -> None:
        self.channel, self.prompts, self.wait = channel, prompts, wait
        self.menu, self.wrong = "menu", 0
        self.timer: Optional[zelkapi.Timer] = None
        self.connected = False

    def play(self, *names: str) -> None:
        """At once, in place of what is heard, one behind the other without a gap."""
        self.end_wait()
        self.channel.stop()
        self.channel.play(b"".join(self.prompts[name] for name in names if name))

    def end_wait(self) -> None:
        if self.timer:
            self.timer.cancel()
            self.timer = None

    def begin(self) -> None:
        if not self.connected:  # where we are the network side, it comes twice
            self.connected = True
            self.play(self.menu)

    def choose(self, digit: str) -> None:
        if not self.menu:
            return
        if digit in MENUS[self.menu]:
            self.wrong = 0
            prompt, self.menu = MENUS[self.menu][digit]
            self.play(prompt, self.menu)
        else:
            self.miss("wrong")

    def miss(self, prompt: str) -> None:
        """A wrong entry, or none."""
        self.wrong += 1
        if self.wrong == MOST_WRONG:
            self.menu = ""
        self.play(prompt, self.menu or "goodbye")

    def played(self) -> None:
        if self.channel.play_time_left:
            return  # the end of an earlier play
        if not self.menu:
            self.channel.hangup()
        else:
            self.end_wait()
            self.timer = self.channel.after(self.wait)


def show(channel: zelkapi.Channel, text: str) -> None:
    print(f"channel {channel.number}: {text}", flush=True)


def handle(event: zelkapi.Event, callers: Dict[zelkapi.Channel, Caller], prompts: Dict[str, bytes], wait: float) -> None:
    if isinstance(event, zelkapi.IncomingCall):
        show(event.channel, f"call from {event.calling}")
        callers[event.channel] = Caller(event.channel, prompts, wait)
        event.channel.answer()
        return
    caller = callers.get(event.channel) if event.channel else None
    if caller is None:
        return
    if isinstance(event, zelkapi.Connected):
        caller.begin()
    elif isinstance(event, zelkapi.Digit):
        caller.choose(event.digit)
    elif isinstance(event, zelkapi.PlayDone):
        caller.played()
    elif isinstance(event, zelkapi.Timeout):
        caller.miss("")
    elif isinstance(event, zelkapi.Disconnected) or (isinstance(event, zelkapi.ChannelState) and not event.up):
        caller.end_wait()
        caller.channel.stop()  # what is left must not be heard in the next call
        del callers[caller.channel]
        show(caller.channel, f"ended, {event.reason}" if isinstance(event, zelkapi.Disconnected) else "ended, trunk lost")


def serve(prompts: Dict[str, bytes], wait: float) -> None:
    callers: Dict[zelkapi.Channel, Caller] = {}
    with zelkapi.Library() as zelk:
        if not zelk.channels:
            raise zelkapi.ZelkError("no card found")
        events = zelk.events()
        print(f"waiting for calls on {len(zelk.channels)} channels, Ctrl-C ends", flush=True)
        for event in events:
            handle(event, callers, prompts, wait)


def main() -> int:
    parser = argparse.ArgumentParser(prog="ivr.py", description="lets callers choose from a menu")
    parser.add_argument("folder", metavar="FOLDER", help="where the prompts are")
    parser.add_argument("--wait", metavar="S", type=float, default=5.0, help="seconds for an entry (5)")
    arguments = parser.parse_args()
    try:
        prompts = {name: zelkapi.read_wave(os.path.join(arguments.folder, name + ".wav")) for name in PROMPTS}
        # The last samples are on the line a moment after PlayDone: silence behind them keeps the hang-up off.
        prompts["goodbye"] += zelkapi.silence(20)
        serve(prompts, arguments.wait)
    except zelkapi.ZelkError as error:
        print(f"ivr: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        pass  # before the first event could come
    return 0


sys.exit(main())
