#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0-only
"""Answers every call and records what the caller says, a WAV file a call. Ctrl-C ends.

Usage: recorder.py FOLDER      ZELKAPI_LIBRARY names the library
"""
import os
import re
import sys
from datetime import datetime, timezone
from typing import Dict, Optional

import zelkapi


def show(channel: zelkapi.Channel, text: str) -> None:
    print(f"channel {channel.number}: {text}", flush=True)


def complain(text: str) -> None:
    print(f"recorder: {text}", file=sys.stderr, flush=True)


def name_of(call: zelkapi.IncomingCall) -> str:
    """By time (UTC), channel and caller: 20260131-235959-042_7_0305551234.wav"""
    at = datetime.fromtimestamp(call.time, timezone.utc)
    number = re.sub(r"[^0-9*#+]", "", call.calling) or "unknown"
    return f"{at:%Y%m%d-%H%M%S}-{at.microsecond // 1000:03d}_{call.channel.number}_{number}.wav"


class Call:
    """A call and its file, which has another name until it is complete."""

    def __init__(self, folder: str, event: zelkapi.IncomingCall) -> None:
        self.channel = event.channel
        self.path = os.path.join(folder, name_of(event))
        self.recording: Optional[zelkapi.Recording] = None
        show(self.channel, f"call from {event.calling}")
        try:
            self.recording = event.channel.record(self.path + ".part")
        except zelkapi.SoundError as error:
            complain(f"{self.path}: {error.reason}")
        event.channel.answer()

    def complete(self) -> int:
        """The blocks that the disk was too slow for."""
        if self.recording is None:
            return 0
        self.recording.stop()
        try:
            os.rename(self.path + ".part", self.path)
        except OSError as error:
            complain(f"{self.path}: {error.strerror}")
        else:
            show(self.channel, f"recorded {self.path}")
        return self.recording.lost


def handle(event: zelkapi.Event, folder: str, calls: Dict[zelkapi.Channel, Call]) -> int:
    """The blocks that were lost of a call that has ended."""
    if isinstance(event, zelkapi.IncomingCall):
        calls[event.channel] = Call(folder, event)
    elif isinstance(event, zelkapi.RecordingFailed) and event.channel in calls:
        complain(f"{calls[event.channel].path}: {event.reason}")
    elif isinstance(event, zelkapi.Disconnected) and event.channel in calls:
        show(event.channel, f"ended, {event.reason}")
        return calls.pop(event.channel).complete()
    elif isinstance(event, zelkapi.ChannelState) and not event.up and event.channel in calls:
        show(event.channel, "ended, trunk lost")
        return calls.pop(event.channel).complete()
    return 0


def serve(folder: str) -> None:
    calls: Dict[zelkapi.Channel, Call] = {}
    with zelkapi.Library() as zelk:
        if not zelk.channels:
            raise zelkapi.ZelkError("no card found")
        events = zelk.events()
        print(f"waiting for calls on {len(zelk.channels)} channels, Ctrl-C ends", flush=True)
        lost = sum(handle(event, folder, calls) for event in events)
        lost += sum(call.complete() for call in calls.values())
        if lost:
            print(f"the disk was too slow for {lost} blocks", flush=True)


def main() -> int:
    if len(sys.argv) != 2:
        print("usage: recorder.py FOLDER", file=sys.stderr)
        return 2
    try:
        os.scandir(sys.argv[1]).close()
        serve(sys.argv[1])
    except OSError as error:
        complain(f"{sys.argv[1]}: {error.strerror}")
        return 1
    except zelkapi.ZelkError as error:
        complain(str(error))
        return 1
    except KeyboardInterrupt:
        pass  # before the first event could come
    return 0


sys.exit(main())
