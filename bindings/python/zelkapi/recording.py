# SPDX-License-Identifier: GPL-2.0-only
"""Received sound: to files, or to a thread of the application. One thread takes it out of the native rings."""
import os
import threading
from collections import deque
from typing import TYPE_CHECKING, Deque, Dict, Iterator, Optional, TypeVar

from .constants import BLOCK_BYTES, BLOCK_MS
from .errors import SoundError, StateError, ZelkError
from .queue import MOST_BLOCKS, Queue
from .sound import WaveWriter, silence

if TYPE_CHECKING:
    from .channel import Channel

S = TypeVar("S", bound="Sink")

_PIECE = 25  # blocks that are written at once
_ROOM = 500  # blocks that are read at once


class Sink:
    """Where a channel's sound goes. The thread of SoundReader and `stop` use it under its lock."""

    blocks = _PIECE

    def __init__(self, reader: "SoundReader", channel: "Channel", seconds: float) -> None:
        self.channel = channel
        self.lost = 0  # blocks of 20 ms that found no room
        self._told = 0  # of them, those that the ring told of
        self._reader = reader
        self._lock = threading.Lock()
        self._active = True
        self.ring = min(max(int(seconds * 1000) // BLOCK_MS, 1), MOST_BLOCKS)

    def take(self, data: bytes, lost: int) -> None:
        """Sound behind so many lost blocks."""
        raise NotImplementedError

    def finish(self) -> None:
        """There is no more."""
        raise NotImplementedError

    def drain(self, queue: Queue) -> None:
        """Takes what the ring holds. Thread: any."""
        with self._lock:
            while self._active:
                data, lost = queue.read_blocks(self.channel.number, _ROOM)
                if data:
                    self._count(lost)
                    self.take(data, lost)
                else:
                    break

    def drain_last(self, queue: Queue) -> None:
        """The same, with those that were lost behind the last one."""
        self.drain(queue)
        with self._lock:
            lost = queue.lost(self.channel.number) - self._told
            if lost > 0 and self._active:
                self._count(lost)
                self.take(b"", lost)

    def _count(self, lost: int) -> None:
        self._told += lost
        self.lost += lost

    def stop(self) -> None:
        """Takes what has arrived until now and ends. Again: nothing."""
        self._reader.stop(self)

    def end(self) -> None:
        with self._lock:
            if self._active:
                self._active = False
                self.finish()

    @property
    def active(self) -> bool:
        return self._active

    def __enter__(self: S) -> S:
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()


class Recording(Sink):
    """A WAV file that a channel's sound goes into; lost blocks are silence there, so that times stay true. When the disk
    fails, `error` says why, a RecordingFailed event comes, and what was written stays."""

    def __init__(self, reader: "SoundReader", channel: "Channel", path: "os.PathLike[str] | str", seconds: float) -> None:
        super().__init__(reader, channel, seconds)
        self.path = os.fspath(path)
        self.error: Optional[SoundError] = None
        self._file = WaveWriter(path)

    @property
    def length(self) -> int:
        """Samples written."""
        return self._file.length

    def _fail(self, error: SoundError) -> None:
        if self.error is None:
            self.error = error
            self._reader.tell_failed(self)

    def take(self, data: bytes, lost: int) -> None:
        if self.error is None:
            try:
                self._file.write(silence(lost * BLOCK_MS) + data)
            except SoundError as error:
                self._fail(error)

    def finish(self) -> None:
        try:
            self._file.close()
        except SoundError as error:
            self._fail(error)


class Sound(Sink):
    """A channel's sound for a thread of the application: `read`, or iterate over its pieces. What is not fetched in time
    is dropped from its beginning and counted in `lost`."""

    blocks = 1

    def __init__(self, reader: "SoundReader", channel: "Channel", seconds: float) -> None:
        super().__init__(reader, channel, seconds)
        self._arrived = threading.Condition()
        self._data = bytearray()

    def take(self, data: bytes, lost: int) -> None:
        with self._arrived:
            self._data += data
            surplus = len(self._data) - self.ring * BLOCK_BYTES
            if surplus > 0:
                del self._data[:surplus]
                self.lost += surplus // BLOCK_BYTES
            self._arrived.notify_all()

    def finish(self) -> None:
        with self._arrived:
            self._arrived.notify_all()

    def read(self, timeout: Optional[float] = None) -> bytes:
        """All that has arrived, A-law in whole blocks of 160 bytes; waits for some. Empty when the time is over, or at
        the end."""
        with self._arrived:
            self._arrived.wait_for(lambda: bool(self._data) or not self.active, timeout)
            data = bytes(self._data)
            self._data.clear()
            return data

    def __iter__(self) -> Iterator[bytes]:
        return iter(self.read, b"")


class SoundReader:
    """The sinks of a library and the thread that serves them, which begins with the first. Thread: any."""

    def __init__(self, queue: Queue) -> None:
        self._queue = queue
        self._lock = threading.Lock()
        self._sinks: Dict[int, Sink] = {}
        self._thread: Optional[threading.Thread] = None
        self._closed = False
        self.failed: "Deque[Recording]" = deque()

    def start(self, sink: Sink) -> None:
        """ZelkError when the ring cannot be had; the caller ends the sink then."""
        number = sink.channel.number
        with self._lock:
            if self._closed:
                raise StateError("the library is shut down")
            if number in self._sinks:
                raise StateError(f"the sound of channel {number} is being taken already")
            self._queue.set_ring(number, sink.ring)
            self._sinks[number] = sink
            if self._thread is None:
                self._thread = threading.Thread(target=self._run, name="zelkapi-sound", daemon=True)
                self._thread.start()
        self._queue.wake()  # the thread may wait for longer pieces than these

    def check_free(self, channel: "Channel") -> None:
        with self._lock:
            if channel.number in self._sinks:
                raise StateError(f"the sound of channel {channel.number} is being taken already")

    def stop(self, sink: Sink) -> None:
        with self._lock:
            if self._sinks.get(sink.channel.number) is not sink:
                return
            try:
                sink.drain_last(self._queue)
                self._queue.set_ring(sink.channel.number, 0)
            except ZelkError:
                pass  # shut down meanwhile, and the sound with it
            del self._sinks[sink.channel.number]
        sink.end()

    def tell_failed(self, recording: Recording) -> None:
        self.failed.append(recording)
        try:
            self._queue.wake()
        except ZelkError:
            pass  # nobody waits any more

    def close(self) -> None:
        """Ends all sinks. The thread ends when the queue is stopped, see join."""
        with self._lock:
            self._closed = True
            sinks = list(self._sinks.values())
        for sink in sinks:
            sink.stop()

    def join(self) -> None:
        if self._thread is not None:
            self._thread.join()

    def _run(self) -> None:
        try:
            while True:
                with self._lock:
                    blocks = min((sink.blocks for sink in self._sinks.values()), default=_PIECE)
                for number in self._queue.wait_blocks(blocks, 64, 60.0):
                    with self._lock:
                        sink = self._sinks.get(number)
                    if sink is not None:
                        self._drain(sink)
        except StateError:
            pass  # shut down

    def _drain(self, sink: Sink) -> None:
        try:
            sink.drain(self._queue)
        except StateError:
            raise
        except ZelkError:
            pass  # stopped meanwhile: the ring is gone
