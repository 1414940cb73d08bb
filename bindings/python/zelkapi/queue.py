# SPDX-License-Identifier: GPL-2.0-only
"""The functions of zelk/ZelkQueue.h, declared for ctypes: events and received sound wait in queues of native code, so that
no thread of the library ever waits for the interpreter."""
import ctypes
import os
from ctypes import POINTER, byref, c_char_p, c_int32, c_int64, c_uint8, c_uint32, c_uint64
from typing import Any, Dict, List, Optional, Tuple

from .constants import BLOCK_BYTES
from .errors import LibraryError, StateError, ZelkError
from .native import load

VERSION = 1
EVENT_ROOM = 65536
MOST_BLOCKS = 65536
NO_CHANNEL = -1
EVENT_OVERFLOW = 0x10001

STOPPED, BAD_ARGUMENT, ALREADY_STARTED, INIT_FAILED, NO_MEMORY, NO_TEXT, NO_RING, FORKED = range(-1, -9, -1)

_TEXTS = {
    STOPPED: "the library is shut down",
    BAD_ARGUMENT: "an argument is out of range",
    ALREADY_STARTED: "the library is in use by something else in this process",
    INIT_FAILED: "ZELK_Init failed: the library found neither its own file nor a thread for its work",
    NO_MEMORY: "there is no memory for it",
    NO_RING: "the channel's sound is not kept",
    FORKED: "a process that used the library has forked this one: start a new program instead",
}


class QueueEvent(ctypes.Structure):
    """An event as it waits to be read."""

    sequence: int
    timeUs: int
    channel: int
    event: int
    param: int
    _fields_ = [
        ("sequence", c_uint64),
        ("timeUs", c_int64),
        ("channel", c_int32),
        ("event", c_uint32),
        ("param", c_int32),
        ("reserved", c_uint32),
    ]


DECLARATIONS: Dict[str, Tuple[Any, Tuple[Any, ...]]] = {
    "ZELKQ_Start": (c_int32, ()),
    "ZELKQ_Stop": (c_int32, ()),
    "ZELKQ_WaitEvents": (c_int32, (POINTER(QueueEvent), c_int32, c_int32)),
    "ZELKQ_Wake": (c_int32, ()),
    "ZELKQ_GetText": (c_int32, (c_int32, c_uint32, c_char_p, c_int32)),
    "ZELKQ_GetNumber": (c_int32, (c_int32, c_uint32, POINTER(c_uint32))),
    "ZELKQ_SetRing": (c_int32, (c_int32, c_int32)),
    "ZELKQ_ReadBlocks": (c_int32, (c_int32, POINTER(c_uint8), c_int32, POINTER(c_uint64))),
    "ZELKQ_WaitBlocks": (c_int32, (c_int32, POINTER(c_int32), c_int32, c_int32)),
    "ZELKQ_GetLost": (c_int64, (c_int32,)),
    "ZELKQ_GetVersion": (c_int32, ()),
}


def file_name() -> str:
    """The queue library's name on this system."""
    return "zelkqueue.dll" if os.name == "nt" else "libzelkqueue.so"


def find(beside: str) -> str:
    """The path of the queue library: ZELKQUEUE_LIBRARY, that of this package, one in the folder of the library `beside`,
    or its name alone for the system to find."""
    named = os.environ.get("ZELKQUEUE_LIBRARY")
    if named:
        return named
    for folder in (os.path.dirname(os.path.abspath(__file__)), os.path.dirname(os.path.abspath(beside))):
        path = os.path.join(folder, file_name())
        if os.path.exists(path):
            return path
    return file_name()


def _check(result: int) -> int:
    if result >= 0:
        return result
    text = _TEXTS.get(result, f"the queue library said {result}")
    raise (StateError if result in (STOPPED, ALREADY_STARTED, FORKED) else ZelkError)(text)


class Queue:
    """The loaded queue library. The library proper has to be loaded before: this one takes it by its name.

    Thread: any. StateError after `stop`.
    """

    def __init__(self, path: str) -> None:
        self.path = path
        self.dll = load(path, DECLARATIONS, search=os.path.dirname(path) == "")
        for name, (result, arguments) in DECLARATIONS.items():
            function = getattr(self.dll, name)
            function.restype = result
            function.argtypes = arguments
        version = self.dll.ZELKQ_GetVersion()
        if version < VERSION:
            raise LibraryError(path, f"has version {version} of its interface, {VERSION} is needed")

    def start(self) -> None:
        _check(self.dll.ZELKQ_Start())

    def stop(self) -> None:
        _check(self.dll.ZELKQ_Stop())

    def wake(self) -> None:
        _check(self.dll.ZELKQ_Wake())

    def wait_events(self, room: int, seconds: float) -> List[QueueEvent]:
        """Up to `room` events, none when the time is over or `wake` was called."""
        events = (QueueEvent * room)()
        count = _check(self.dll.ZELKQ_WaitEvents(events, room, _milliseconds(seconds)))
        return list(events[:count])

    def text(self, channel: int, key: int) -> Optional[bytes]:
        buffer = ctypes.create_string_buffer(256)
        length = self.dll.ZELKQ_GetText(channel, key, buffer, len(buffer))
        if length >= len(buffer):
            buffer = ctypes.create_string_buffer(length + 1)
            length = self.dll.ZELKQ_GetText(channel, key, buffer, len(buffer))
        return None if length == NO_TEXT else buffer.raw[: min(_check(length), len(buffer) - 1)]

    def number(self, channel: int, key: int) -> int:
        value = c_uint32()
        _check(self.dll.ZELKQ_GetNumber(channel, key, byref(value)))
        return value.value

    def set_ring(self, channel: int, blocks: int) -> None:
        _check(self.dll.ZELKQ_SetRing(channel, blocks))

    def read_blocks(self, channel: int, room: int) -> Tuple[bytes, int]:
        """A-law of up to `room` blocks, and how many blocks were lost in front of them."""
        data = (c_uint8 * (room * BLOCK_BYTES))()
        lost = c_uint64()
        count = _check(self.dll.ZELKQ_ReadBlocks(channel, data, room, byref(lost)))
        return bytes(memoryview(data)[: count * BLOCK_BYTES]), lost.value

    def wait_blocks(self, blocks: int, room: int, seconds: float) -> List[int]:
        """Up to `room` channels that have so many blocks."""
        channels = (c_int32 * room)()
        count = _check(self.dll.ZELKQ_WaitBlocks(blocks, channels, room, _milliseconds(seconds)))
        return list(channels[:count])

    def lost(self, channel: int = NO_CHANNEL) -> int:
        return _check(self.dll.ZELKQ_GetLost(channel))


def _milliseconds(seconds: float) -> int:
    """Rounded up, so that a time is over when the wait is."""
    return max(0, min(-int(-seconds * 1000 // 1), 0x7FFFFFFF))
