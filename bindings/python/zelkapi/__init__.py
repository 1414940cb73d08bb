# SPDX-License-Identifier: GPL-2.0-only
"""Voice calls on ISDN primary-rate trunks from Python, through the ZelkApi64 library.

    with zelkapi.Library("/opt/app/libZelkApi-64.so") as zelk:
        for event in zelk.events():
            if isinstance(event, zelkapi.IncomingCall):
                event.channel.answer()
            elif isinstance(event, zelkapi.Connected):
                event.channel.play_file("prompt.wav")

zelkapi.raw has the 24 functions as they are, zelkapi.queue those of the queue library.
"""
from .channel import Channel, ChannelInfo
from .constants import CallType, Error, EventCode, Info, SampleFormat, SetInfo, State
from .errors import CallError, ChannelError, LibraryError, NumberError, SoundError, StateError, ZelkError
from .events import (
    Alerting,
    ChannelEvent,
    ChannelState,
    Connected,
    Digit,
    Disconnected,
    Event,
    IncomingCall,
    Overflow,
    PlayDone,
    Proceeding,
    Progress,
    RecordingFailed,
    Timeout,
)
from .library import Library
from .numbers import check_number
from .recording import Recording, Sound
from .sound import WaveWriter, digits, encode_alaw, read_wave, silence
from .timers import Timer

__all__ = [
    "Alerting",
    "CallError",
    "CallType",
    "Channel",
    "ChannelError",
    "ChannelEvent",
    "ChannelInfo",
    "ChannelState",
    "Connected",
    "Digit",
    "Disconnected",
    "Error",
    "Event",
    "EventCode",
    "IncomingCall",
    "Info",
    "Library",
    "LibraryError",
    "NumberError",
    "Overflow",
    "PlayDone",
    "Proceeding",
    "Progress",
    "Recording",
    "RecordingFailed",
    "SampleFormat",
    "SetInfo",
    "Sound",
    "SoundError",
    "State",
    "StateError",
    "Timeout",
    "Timer",
    "WaveWriter",
    "ZelkError",
    "check_number",
    "digits",
    "encode_alaw",
    "read_wave",
    "silence",
]
