# SPDX-License-Identifier: GPL-2.0-only
"""The library as a whole: start, events, shut-down."""
import logging
import os
import threading
import time
from collections import deque
from typing import Callable, Deque, Dict, Iterator, List, Optional, Tuple, Type, TypeVar

from . import queue as native_queue
from .channel import Channel
from .constants import EventCode, Info, SampleFormat, Error
from .errors import ChannelError, LibraryError, SoundError, StateError, ZelkError
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
from .gate import Gate
from .interrupt import Interrupts
from .native import encode_path
from .raw import ZelkApi
from .recording import Recording, Sound, SoundReader
from .timers import Timers

E = TypeVar("E", bound=Event)

# Signals are looked after between waits of this length.
_SLICE = 0.2

_PLAIN: Dict[int, Type[ChannelEvent]] = {
    EventCode.CONNECTED: Connected,
    EventCode.PLAY_DONE: PlayDone,
    EventCode.ALERTING: Alerting,
    EventCode.PROCEEDING: Proceeding,
}

_in_use = threading.Lock()


class _Events(Iterator[Event]):
    """A loop over the events; signals are as before when it ends or is dropped."""

    def __init__(self, library: "Library") -> None:
        self._library = library
        self._interrupts = Interrupts(library.stop)
        self._interrupts.__enter__()

    def __next__(self) -> Event:
        try:
            while not self._library.stopping:
                event = self._library.next_event()
                if event is not None:
                    return event
        except StateError:
            pass  # shut down
        except BaseException:
            self._interrupts.__exit__()
            raise
        self._interrupts.__exit__()
        raise StopIteration

    def __del__(self) -> None:
        self._interrupts.__exit__()


class Library:
    """The library, started. One at a time in a process; shut down by `close`, or at the end of `with`.

    `path`: the library's file, ZELKAPI_LIBRARY when None. Log and ini stand beside it. `queue`: the queue library, see
    zelkapi.queue.find. `open_channels`: whether all channels are opened, so that they can play.
    LibraryError names a file that does not serve and the reason; StateError when a Library exists already.
    Thread: any. The interpreter is free while the library works, and no thread of the library waits for it.
    """

    def __init__(
        self,
        path: "os.PathLike[str] | str | None" = None,
        queue: "os.PathLike[str] | str | None" = None,
        open_channels: bool = True,
    ) -> None:
        file = os.fspath(path) if path is not None else os.environ.get("ZELKAPI_LIBRARY", "")
        if not file:
            raise LibraryError("ZELKAPI_LIBRARY", "is not set, and no path was given")
        if not _in_use.acquire(blocking=False):
            raise StateError("a Library is in use already in this process")
        try:
            self.api = ZelkApi(file)
            self.api.check_first()
            self.queue = native_queue.Queue(os.fspath(queue) if queue is not None else native_queue.find(file))
            self.queue.start()
        except BaseException:
            _in_use.release()
            raise
        self._gate: Gate[ZelkApi] = Gate(self.api)
        self._stopping = False
        self._ready: Deque[native_queue.QueueEvent] = deque()
        self._sound = SoundReader(self.queue)
        self.timers = Timers(self._wake)
        self.handlers: Dict[Type[Event], Callable[..., None]] = {}
        count = self.api.ZELK_GetChannelCount()
        self.channels: Tuple[Channel, ...] = tuple(Channel(self, number) for number in range(count))
        if open_channels:
            for channel in self.channels:
                channel.open()

    def use(self) -> Gate[ZelkApi]:
        """`with zelk.use() as api:` gives the 24 functions as they are, and keeps the shut-down waiting. StateError after
        it. zelkapi.raw has the callbacks."""
        return self._gate

    def channel(self, number: int) -> Channel:
        """ChannelError for a number that no channel has."""
        if not 0 <= number < len(self.channels):
            raise ChannelError(f"there is no channel {number}: there are {len(self.channels)}")
        return self.channels[number]

    # ---- Events

    def next_event(self, timeout: Optional[float] = None) -> Optional[Event]:
        """The next event; waits for one. None when the time (seconds) is over, or when `stop` was called. StateError after
        the shut-down. Several threads may wait: each event goes to one."""
        due = None if timeout is None else time.monotonic() + timeout
        looked = False
        while True:
            event = self._take()
            if event is not None or self._stopping:
                return event
            left = _SLICE if due is None else min(_SLICE, max(due - time.monotonic(), 0.0))
            if looked and not left:
                return None
            looked = True
            self._ready.extend(self.queue.wait_events(64, self.timers.seconds_to_next(left)))

    def _take(self) -> Optional[Event]:
        """What is there already."""
        timer = self.timers.take_due()
        if timer is not None:
            return Timeout(timer.channel, time.time(), timer.name)
        try:
            recording = self._sound.failed.popleft()
            return RecordingFailed(recording.channel, time.time(), recording, recording.error.reason if recording.error else "")
        except IndexError:
            pass
        while True:
            try:
                raw = self._ready.popleft()
            except IndexError:
                return None
            event = self._event_of(raw)
            if event is not None:
                return event  # codes of later versions of the library are passed over

    def _event_of(self, raw: native_queue.QueueEvent) -> Optional[Event]:
        if raw.event == native_queue.EVENT_OVERFLOW:
            return Overflow(None, raw.timeUs / 1e6, raw.param)
        channel, at, param = self.channel(raw.channel), raw.timeUs / 1e6, raw.param
        cause = None if param < 0 else param
        if raw.event == EventCode.INCOMING_CALL:
            numbers = [channel.text(key) or "" for key in (Info.CLI, Info.DLI, Info.RLI)]
            return IncomingCall(channel, at, *numbers)
        if raw.event == EventCode.DISCONNECTED:
            return Disconnected(channel, at, cause, self.reason(param))
        if raw.event == EventCode.DTMF:
            return Digit(channel, at, chr(param))
        if raw.event == EventCode.PROGRESS:
            return Progress(channel, at, cause)
        if raw.event == EventCode.CHANNEL_STATE:
            return ChannelState(channel, at, param == 1)
        plain = _PLAIN.get(raw.event)
        return plain(channel, at) if plain else None

    def events(self) -> Iterator[Event]:
        """The events, one after the other, until `stop`, Ctrl-C, SIGTERM or the shut-down ends the loop. Signals count from
        this call on; a second Ctrl-C raises KeyboardInterrupt wherever the program is."""
        return _Events(self)

    @property
    def stopping(self) -> bool:
        """Whether `stop` was called."""
        return self._stopping

    def stop(self) -> None:
        """Ends `events` and `run`, for good, from any thread or handler. The library goes on."""
        self._stopping = True
        self._wake()

    def on(self, kind: Type[E]) -> Callable[[Callable[[E], None]], Callable[[E], None]]:
        """`@zelk.on(zelkapi.IncomingCall)`: the function is called by `run` for events of this class."""

        def register(handler: Callable[[E], None]) -> Callable[[E], None]:
            self.handlers[kind] = handler
            return handler

        return register

    def run(self) -> None:
        """Calls the handlers, on this thread, until `events` ends. A handler's exception is reported, and the events go
        on."""
        for event in self.events():
            handler = self.handlers.get(type(event))
            if handler is not None:
                try:
                    handler(event)
                except Exception as error:  # whatever a handler raises
                    self.report(event, error)

    def report(self, event: Event, error: Exception) -> None:
        """Where the exception of a handler goes: the logger "zelkapi", which is stderr unless logging was set up.
        Replace it to have it elsewhere."""
        logging.getLogger("zelkapi").error("the handler of %r failed", event, exc_info=error)

    # ---- Sound

    def listen(self, channel: Channel, seconds: float) -> Sound:
        """See Channel.listen."""
        with self.use():
            sound = Sound(self._sound, channel, seconds)
            self._sound.start(sound)
            return sound

    def record(self, channel: Channel, path: "os.PathLike[str] | str", seconds: float) -> Recording:
        """See Channel.record."""
        with self.use():
            self._sound.check_free(channel)
            recording = Recording(self._sound, channel, path, seconds)
            try:
                self._sound.start(recording)
            except ZelkError:
                recording.end()
                raise
            return recording

    def raw_to_wave(self, path: "os.PathLike[str] | str", sample_format: SampleFormat = SampleFormat.ALAW) -> None:
        """Writes a WAV header over the first 44 bytes of a raw recording, which left them free."""
        with self.use() as api:
            result = api.ZELK_ConvertRawToWaveFile(encode_path(path), sample_format)
        if result:
            raise SoundError(os.fspath(path), f"cannot be made a WAV file: {Error(result).name}")

    # ---- The rest

    def reason(self, cause: Optional[int]) -> str:
        """The name of an ITU-T Q.850 cause, REASON_UNKNOWN for None and any other number."""
        with self.use() as api:
            return api.ZELK_DisconnectReasonToString(-1 if cause is None else cause).decode("ascii", "replace")

    def _wake(self) -> None:
        try:
            self.queue.wake()
        except StateError:
            pass  # nobody waits any more

    @property
    def closed(self) -> bool:
        return self._gate.closed

    def close(self) -> None:
        """Completes recordings and shuts the library down; calls in progress are dropped. Again: nothing."""
        self._sound.close()
        if not self._gate.close():
            return
        try:
            self.queue.stop()
            self._sound.join()
        finally:
            _in_use.release()

    def __enter__(self) -> "Library":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()
