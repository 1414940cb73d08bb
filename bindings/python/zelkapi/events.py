# SPDX-License-Identifier: GPL-2.0-only
"""What happens on channels, as Library.events() brings it."""
from dataclasses import dataclass
from typing import TYPE_CHECKING, Optional

if TYPE_CHECKING:
    from .channel import Channel
    from .recording import Recording


@dataclass(frozen=True)
class Event:
    """The base of all. `time`: when it came, in seconds since 1970-01-01 UTC."""

    channel: "Optional[Channel]"
    time: float = 0.0


@dataclass(frozen=True)
class ChannelEvent(Event):
    """The base of all that happen on a channel: of all but Overflow."""

    channel: "Channel"


@dataclass(frozen=True)
class IncomingCall(ChannelEvent):
    """A call is offered: answer or reject it. The numbers were read when the event was taken out; they are empty when
    the caller had given up by then."""

    calling: str = ""
    called: str = ""
    redirecting: str = ""


@dataclass(frozen=True)
class Connected(ChannelEvent):
    """The call is connected. Where the library is the network side, it may come twice."""


@dataclass(frozen=True)
class Disconnected(ChannelEvent):
    """The call has ended and the channel is free. `cause`: ITU-T Q.850, None when the network gave none."""

    cause: Optional[int] = None
    reason: str = ""  # the cause's name


@dataclass(frozen=True)
class Digit(ChannelEvent):
    """A DTMF digit was heard: one of 0-9, A-D, * and #."""

    digit: str = ""


@dataclass(frozen=True)
class PlayDone(ChannelEvent):
    """All that was queued back to back was played."""


@dataclass(frozen=True)
class Alerting(ChannelEvent):
    """The far end rings."""


@dataclass(frozen=True)
class Proceeding(ChannelEvent):
    """The network has all it needs of the call."""


@dataclass(frozen=True)
class Progress(ChannelEvent):
    """The network plays tones or announcements. `cause`: that of the message, None without one."""

    cause: Optional[int] = None


@dataclass(frozen=True)
class ChannelState(ChannelEvent):
    """The channel's trunk came up, or went down. A call on it is lost then, without Disconnected."""

    up: bool = False


@dataclass(frozen=True)
class Timeout(ChannelEvent):
    """A time that Channel.after was given is over. `name`: what it was named."""

    name: str = ""


@dataclass(frozen=True)
class Overflow(Event):
    """Events were lost because nobody took them out in time. `lost`: how many. It stands where they would have."""

    lost: int = 0


@dataclass(frozen=True)
class RecordingFailed(ChannelEvent):
    """A recording's file could not be written any more; what was written stays. `reason`: why."""

    recording: Optional["Recording"] = None
    reason: str = ""
