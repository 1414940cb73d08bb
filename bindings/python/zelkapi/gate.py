# SPDX-License-Identifier: GPL-2.0-only
"""What may be used until it is closed."""
import threading
from typing import Generic, TypeVar

from .errors import StateError

T = TypeVar("T")


class Gate(Generic[T]):
    """Lets threads use something until it is closed; closing waits until the last of them has left. `with gate as
    thing:` raises StateError afterwards. Thread: any; what is done inside must not close it, nor take long."""

    def __init__(self, thing: T) -> None:
        self._thing = thing
        self._changed = threading.Condition()
        self._inside = 0
        self._closed = False

    def __enter__(self) -> T:
        with self._changed:
            if self._closed:
                raise StateError("the library is shut down")
            self._inside += 1
        return self._thing

    def __exit__(self, *_: object) -> None:
        with self._changed:
            self._inside -= 1
            if self._closed and self._inside == 0:
                self._changed.notify_all()

    def close(self) -> bool:
        """False when it was closed already."""
        with self._changed:
            if self._closed:
                return False
            self._closed = True
            while self._inside:
                self._changed.wait()
        return True

    @property
    def closed(self) -> bool:
        return self._closed
