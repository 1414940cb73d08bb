#!/usr/bin/python3
# SPDX-License-Identifier: GPL-2.0-only
"""Places one call and hangs up when it is connected: 0 when all of it happened within its time. The library is the one that
stands, or has a link, beside this file."""
import os
import sys
import time
from typing import Type

import zelkapi


def wait_for(zelk: zelkapi.Library, kind: Type[zelkapi.Event]) -> bool:
    end = time.monotonic() + 15
    while time.monotonic() < end:
        if isinstance(zelk.next_event(1), kind):
            return True
    return False


def wait_ready(zelk: zelkapi.Library) -> bool:
    while zelk.channel(0).state != zelkapi.State.READY:
        if not wait_for(zelk, zelkapi.ChannelState):
            return False
    return True


def make_call() -> bool:
    library = os.path.join(os.path.dirname(os.path.abspath(__file__)), "libZelkApi-64.so")
    with zelkapi.Library(library) as zelk:
        print(f"zelkapi: {os.path.dirname(zelkapi.__file__)}, queue library: {zelk.queue.path}")
        if not wait_ready(zelk):
            return False
        zelk.channel(0).dial("5551234", "8001000")
        if not wait_for(zelk, zelkapi.Connected):
            return False
        zelk.channel(0).hangup()
        return wait_for(zelk, zelkapi.Disconnected)


made = make_call()
print("a call was made" if made else "NO call was made")
sys.exit(not made)
