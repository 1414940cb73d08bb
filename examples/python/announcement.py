#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Answers every call, plays a prompt from its first to its last sample and hangs up. Ctrl-C ends.

Usage: announcement.py PROMPT.wav      ZELKAPI_LIBRARY names the library
"""
import sys
from typing import Set

import zelkapi


def show(channel: zelkapi.Channel, text: str) -> None:
    print(f"channel {channel.number}: {text}", flush=True)


def handle(event: zelkapi.Event, prompt: bytes, calls: Set[zelkapi.Channel]) -> None:
    """calls: the channels with a call that was told of."""
    if isinstance(event, zelkapi.IncomingCall):
        show(event.channel, f"call from {event.calling}")
        calls.add(event.channel)
        event.channel.answer()
    elif isinstance(event, zelkapi.Connected) and event.channel in calls:
        if event.channel.play_time_left == 0:  # where we are the network side, it comes twice
            event.channel.play(prompt)
    elif isinstance(event, zelkapi.PlayDone):
        if event.channel.play_time_left == 0:  # and not the end of an earlier play
            event.channel.hangup()
    elif isinstance(event, zelkapi.Disconnected) or (isinstance(event, zelkapi.ChannelState) and not event.up):
        event.channel.stop()  # what is left must not be heard in the next call
        if event.channel in calls:
            calls.remove(event.channel)
            show(event.channel, f"ended, {event.reason}" if isinstance(event, zelkapi.Disconnected) else "ended, trunk lost")


def serve(prompt: bytes) -> None:
    calls: Set[zelkapi.Channel] = set()
    with zelkapi.Library() as zelk:
        if not zelk.channels:
            raise zelkapi.ZelkError("no card found")
        events = zelk.events()
        print(f"waiting for calls on {len(zelk.channels)} channels, Ctrl-C ends", flush=True)
        for event in events:
            handle(event, prompt, calls)


def main() -> int:
    if len(sys.argv) != 2:
        print("usage: announcement.py PROMPT.wav", file=sys.stderr)
        return 2
    try:
        # The last samples are on the line a moment after PlayDone: silence behind them keeps the hang-up off.
        serve(zelkapi.read_wave(sys.argv[1]) + zelkapi.silence(20))
    except zelkapi.ZelkError as error:
        print(f"announcement: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        pass  # before the first event could come
    return 0


sys.exit(main())
