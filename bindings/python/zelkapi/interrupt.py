# SPDX-License-Identifier: GPL-2.0-only
"""Ctrl-C as the end of a loop."""
import signal
import threading
from types import FrameType
from typing import Any, Callable, Dict, Optional


class Interrupts:
    """While it is entered, the first Ctrl-C or SIGTERM calls `act`, and what follows does what it did before: a second
    Ctrl-C raises KeyboardInterrupt. A program's own handlers are left alone, and so is all outside the main thread."""

    def __init__(self, act: Callable[[], None]) -> None:
        self._act = act
        self._before: Dict[int, Any] = {}

    def __enter__(self) -> "Interrupts":
        if threading.current_thread() is threading.main_thread():
            for number, untouched in ((signal.SIGINT, signal.default_int_handler), (signal.SIGTERM, signal.SIG_DFL)):
                if signal.getsignal(number) is untouched:
                    self._before[number] = signal.signal(number, self._handle)
        return self

    def _handle(self, number: int, frame: Optional[FrameType]) -> None:
        self._restore()
        self._act()

    def _restore(self) -> None:
        while self._before:
            signal.signal(*self._before.popitem())

    def __exit__(self, *_: object) -> None:
        self._restore()
