# SPDX-License-Identifier: GPL-2.0-only
"""Times that come among the events."""
import heapq
import threading
import time
from typing import TYPE_CHECKING, Callable, List, Optional, Tuple

if TYPE_CHECKING:
    from .channel import Channel


class Timer:
    """A time that was asked for."""

    def __init__(self, channel: "Channel", due: float, name: str) -> None:
        self.channel = channel
        self.due = due  # of time.monotonic
        self.name = name
        self.cancelled = False

    def cancel(self) -> None:
        """No Timeout comes any more, unless it was taken out already."""
        self.cancelled = True


class Timers:
    """The times that are under way. Thread: any."""

    def __init__(self, wake: Callable[[], None]) -> None:
        self._wake = wake  # who waits for a later one
        self._lock = threading.Lock()
        self._heap: List[Tuple[float, int, Timer]] = []
        self._count = 0

    def start(self, channel: "Channel", seconds: float, name: str) -> Timer:
        timer = Timer(channel, time.monotonic() + seconds, name)
        with self._lock:
            self._count += 1
            heapq.heappush(self._heap, (timer.due, self._count, timer))
            first = self._heap[0][2] is timer
        if first:
            self._wake()
        return timer

    def take_due(self) -> Optional[Timer]:
        """One whose time is over, None when there is none."""
        with self._lock:
            while self._heap:
                due, _, timer = self._heap[0]
                if not timer.cancelled and due > time.monotonic():
                    return None
                heapq.heappop(self._heap)
                if not timer.cancelled:
                    return timer
        return None

    def seconds_to_next(self, most: float) -> float:
        """How long to wait for the next one, `most` at most."""
        with self._lock:
            if not self._heap:
                return most
            return min(most, max(0.0, self._heap[0][0] - time.monotonic()))
