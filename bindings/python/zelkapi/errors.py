# SPDX-License-Identifier: GPL-2.0-only
"""What the package raises. Every class is a ZelkError."""


class ZelkError(Exception):
    """The base of all."""


class LibraryError(ZelkError):
    """A library could not be loaded or started. `file`: its path; `reason`: why."""

    def __init__(self, file: str, reason: str) -> None:
        super().__init__(f"{file}: {reason}")
        self.file = file
        self.reason = reason


class StateError(ZelkError, RuntimeError):
    """Something was asked of a library that is shut down, or a second one was started."""


class ChannelError(ZelkError, IndexError):
    """There is no channel of this number."""


class NumberError(ZelkError, ValueError):
    """A number that the line would not get as it stands."""


class CallError(ZelkError):
    """The library refused an operation on a call."""


class SoundError(ZelkError):
    """A sound that cannot be played, read or written. `file`: its path, "" for a buffer; `reason`: why."""

    def __init__(self, file: str, reason: str) -> None:
        super().__init__(f"{file}: {reason}" if file else reason)
        self.file = file
        self.reason = reason
