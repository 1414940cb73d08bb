# SPDX-License-Identifier: GPL-2.0-only
"""One voice channel."""
import os
from dataclasses import dataclass
from typing import TYPE_CHECKING, Optional, Union

from .constants import CallType, Error, Info, SetInfo, State
from .errors import CallError, SoundError
from .native import encode_path
from .numbers import check_number
from .sound import read_wave

if TYPE_CHECKING:
    from .library import Library
    from .recording import Recording, Sound
    from .timers import Timer

_WORDS = {
    Error.NO_MEMORY: "there is no memory for it",
    Error.FILE_OPEN: "cannot be opened",
    Error.FILE_READ: "cannot be read",
    Error.BAD_FORMAT: "is not 8000 Hz mono of a known format",
    Error.CONVERSION: "cannot be converted",
}


@dataclass(frozen=True)
class ChannelInfo:
    """What a channel tells of itself and its call; the texts are copies."""

    serial: str
    calling: str
    called: str
    redirecting: str
    state: State
    call_type: CallType
    open_type: str
    firmware_version: str
    firmware_date: str
    burn_date: str
    trunk: int  # of the card, from 0
    timeslot: int  # 1-15 or 17-31


class Channel:
    """A voice channel of a Library, which makes them all; compare them with `is` or `==`.

    Thread: any. After the library's shut-down every method raises StateError, and none calls the library.
    """

    def __init__(self, library: "Library", number: int) -> None:
        self.library = library
        self.number = number

    def __repr__(self) -> str:
        return f"<channel {self.number}>"

    # ---- Calls

    def dial(self, number: str, calling: Optional[str] = None) -> None:
        """Places a call. `calling`: the own number shown, None for the one given last on this channel. Proceeding,
        Alerting, Connected or Disconnected follow. NumberError for what the line would get otherwise than written;
        CallError when the channel has a call or its trunk cannot place one."""
        called = check_number(number)
        own = None if calling is None else check_number(calling, "calling number", empty=True)
        with self.library.use() as api:
            if not api.ZELK_Dial(self.number, called, own):
                raise CallError(f"channel {self.number} cannot dial {number}: it has a call, or its trunk places none")

    def answer(self) -> None:
        """Accepts the offered call; Connected follows when the network confirms."""
        with self.library.use() as api:
            api.ZELK_Answer(self.number)

    def reject(self) -> bool:
        """Refuses the offered call, without a Disconnected of its own. False, with nothing done, when it is connected."""
        with self.library.use() as api:
            return not api.ZELK_Reject(self.number)

    def hangup(self) -> None:
        """Ends the call; the channel is free at Disconnected. What is queued for playing stays: see stop."""
        with self.library.use() as api:
            api.ZELK_Hangup(self.number)

    def transfer(self) -> bool:
        """Not available: False."""
        with self.library.use() as api:
            return api.ZELK_Transfer(self.number)

    # ---- The channel

    def open(self) -> None:
        """Opens the channel for playing and for calls that name no channel. Library opens all unless told otherwise."""
        with self.library.use() as api:
            api.ZELK_OpenChannel(self.number)

    def close(self) -> None:
        """Drops what is queued for playing and closes the channel, which reads DOWN until its trunk next comes up."""
        with self.library.use() as api:
            api.ZELK_CloseChannel(self.number)

    def text(self, key: int) -> Optional[str]:
        """The text of a key of Info, None for one that has none."""
        with self.library.use():
            text = self.library.queue.text(self.number, key)
        return None if text is None else text.decode("latin-1")

    def value(self, key: int) -> int:
        """The number of a key of Info, 0 for one that has none."""
        with self.library.use():
            return self.library.queue.number(self.number, key)

    @property
    def state(self) -> State:
        """What the channel is doing. Dial those that are READY."""
        return State(self.value(Info.CHANNELSTATE))

    def info(self) -> ChannelInfo:
        """All that the channel tells of itself and its call, now."""
        return ChannelInfo(
            serial=self.text(Info.SERIALNO) or "",
            calling=self.text(Info.CLI) or "",
            called=self.text(Info.DLI) or "",
            redirecting=self.text(Info.RLI) or "",
            state=self.state,
            call_type=CallType(self.value(Info.CALLTYPE)),
            open_type=self.text(Info.OPENTYPE) or "",
            firmware_version=self.text(Info.FIRMWAREVER) or "",
            firmware_date=self.text(Info.FIRMWAREDATE) or "",
            burn_date=self.text(Info.BURNDATE) or "",
            trunk=self.value(Info.TRUNK),
            timeslot=self.value(Info.TIMESLOT),
        )

    def allow_incoming(self, allowed: bool) -> None:
        """Whether calls to the channel are offered, or refused with no event."""
        with self.library.use() as api:
            api.ZELK_SetChannelInfo(self.number, SetInfo.ALLOWINCOMING, int(allowed))

    def set_text(self, key: int, value: str) -> int:
        """Reserved: does nothing and returns 0."""
        with self.library.use() as api:
            return api.ZELK_SetChannelInfoString(self.number, key, value.encode("latin-1"))

    @property
    def last_error(self) -> Error:
        """Why the last function on this channel failed, of whatever thread."""
        with self.library.use() as api:
            return Error(api.ZELK_GetLastError(self.number))

    def after(self, seconds: float, name: str = "") -> "Timer":
        """Brings a Timeout among the events when the time is over, unless it is cancelled before."""
        return self.library.timers.start(self, seconds, name)

    # ---- Sound

    def play(self, sound: Union[bytes, bytearray, memoryview]) -> None:
        """Queues A-law (8000 Hz, a byte a sample) behind what is queued. PlayDone comes once for all that was queued
        back to back."""
        data = bytes(sound)
        with self.library.use() as api:
            if not api.ZELK_PlayBuffer(self.number, data, len(data)):
                raise SoundError("", f"channel {self.number} has no memory for {len(data)} bytes of sound")

    def play_file(self, path: "os.PathLike[str] | str") -> None:
        """Queues a WAV file of 8000 Hz mono. Reads it whole. SoundError with the reason for one that cannot be played."""
        name = os.fspath(path)
        encoded = encode_path(name)
        with self.library.use() as api:
            if api.ZELK_PlayFile(self.number, encoded):
                return
            error = api.ZELK_GetLastError(self.number)
        read_wave(name)  # knows more of what is wrong
        raise SoundError(name, _WORDS.get(Error(error), "cannot be played"))

    @property
    def play_time_left(self) -> int:
        """Milliseconds queued, at least 1 until PlayDone."""
        with self.library.use() as api:
            return api.ZELK_PlayTimeLeft(self.number)

    def stop(self) -> None:
        """Drops what is queued for playing and silences what already waits for the line. No PlayDone follows."""
        with self.library.use() as api:
            api.ZELK_StopPlay(self.number)

    def listen(self, seconds: float = 10.0) -> "Sound":
        """What is received from now on, in a ring of this length, for a thread that takes it out in time."""
        return self.library.listen(self, seconds)

    def record(self, path: "os.PathLike[str] | str", seconds: float = 10.0) -> "Recording":
        """Writes what is received from now on into a WAV file, on the library's recording thread. `seconds`: for how
        long the disk may stand still before sound is lost."""
        return self.library.record(self, path, seconds)
