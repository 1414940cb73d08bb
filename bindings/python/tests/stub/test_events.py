# SPDX-License-Identifier: GPL-2.0-only
"""Events as Python gets them, times among them, ends of loops, and handlers that fail."""
import logging
import os
import signal
import subprocess
import sys
import threading
import time
from typing import Callable, List, Tuple

import pytest
import zelkapi
from conftest import Stub

EXPECTED: List[Tuple[int, int, Callable[[zelkapi.Event], bool]]] = [
    (0x301, 0, lambda e: isinstance(e, zelkapi.IncomingCall) and (e.calling, e.called, e.redirecting)
     == ("text 2 of 5", "text 3 of 5", "text 4 of 5")),
    (0x302, 0, lambda e: isinstance(e, zelkapi.Connected)),
    (0x303, 17, lambda e: isinstance(e, zelkapi.Disconnected) and (e.cause, e.reason) == (17, "CAUSE_17")),
    (0x303, -1, lambda e: isinstance(e, zelkapi.Disconnected) and (e.cause, e.reason) == (None, "REASON_UNKNOWN")),
    (0x101, 0x23, lambda e: isinstance(e, zelkapi.Digit) and e.digit == "#"),
    (0x201, 0, lambda e: isinstance(e, zelkapi.PlayDone)),
    (0x401, 0, lambda e: isinstance(e, zelkapi.Alerting)),
    (0x402, 12345, lambda e: isinstance(e, zelkapi.Proceeding)),
    (0x403, 3, lambda e: isinstance(e, zelkapi.Progress) and e.cause == 3),
    (0x403, -1, lambda e: isinstance(e, zelkapi.Progress) and e.cause is None),
    (0x501, 1, lambda e: isinstance(e, zelkapi.ChannelState) and e.up),
    (0x501, 0, lambda e: isinstance(e, zelkapi.ChannelState) and not e.up),
]  # fmt: skip


def test_every_event(zelk: zelkapi.Library, stub: Stub) -> None:
    before = time.time()
    for code, param, _ in EXPECTED:
        stub.event(5, code, param)
    for code, param, fits in EXPECTED:
        event = zelk.next_event(5)
        assert isinstance(event, zelkapi.ChannelEvent) and fits(event), (code, param, event)
        assert event.channel is zelk.channel(5)
        assert before - 0.001 <= event.time <= time.time() + 0.001
    assert zelk.next_event(0) is None


def test_a_code_of_a_later_version_is_passed_over(zelk: zelkapi.Library, stub: Stub) -> None:
    stub.event(0, 0x999, 0)
    stub.event(1, 0x302, 0)
    event = zelk.next_event(5)
    assert isinstance(event, zelkapi.Connected) and event.channel.number == 1


def test_overflow_tells_how_many(zelk: zelkapi.Library, stub: Stub) -> None:
    for number in range(65536 + 10):
        stub.event(number % 30, 0x101, 0x31)
    seen, lost = 0, 0
    while True:
        event = zelk.next_event(0)
        if event is None:
            break
        if isinstance(event, zelkapi.Overflow):
            lost += event.lost
            assert event.channel is None
        else:
            seen += 1
    assert lost >= 10 and seen + lost == 65536 + 10


def test_many_threads_take_each_event_once(zelk: zelkapi.Library, stub: Stub) -> None:
    taken: List[zelkapi.Event] = []
    threads = [threading.Thread(target=lambda: taken.extend(zelk.events())) for _ in range(4)]
    for thread in threads:
        thread.start()
    for number in range(3000):
        stub.event(number % 30, 0x101, 0x31)
    while len(taken) < 3000:
        assert any(thread.is_alive() for thread in threads)
        threads[0].join(0.01)
    zelk.stop()
    for thread in threads:
        thread.join()
    assert len(taken) == 3000


def test_a_time(zelk: zelkapi.Library) -> None:
    channel = zelk.channel(2)
    late, early = channel.after(0.2, "late"), channel.after(0.1, "early")
    channel.after(0.15, "never").cancel()
    names = [event.name for event in (zelk.next_event(5), zelk.next_event(5)) if isinstance(event, zelkapi.Timeout)]
    assert names == ["early", "late"]
    assert time.monotonic() >= late.due and late.due > early.due
    assert zelk.next_event(0) is None


def test_a_shorter_time_from_another_thread(zelk: zelkapi.Library) -> None:
    thread = threading.Timer(0.05, lambda: zelk.channel(1).after(0.0, "now"))
    thread.start()
    event = zelk.next_event(30)
    thread.join()
    assert isinstance(event, zelkapi.Timeout) and event.name == "now"


def test_shut_down_ends_a_loop_of_another_thread(stub: Stub) -> None:
    library = zelkapi.Library(stub.path)
    ended: List[str] = []
    thread = threading.Thread(target=lambda: ended.append(f"{len(list(library.events()))} events"))
    thread.start()
    library.close()
    thread.join()
    assert ended == ["0 events"]


def test_a_handler_that_fails(zelk: zelkapi.Library, stub: Stub, caplog: pytest.LogCaptureFixture) -> None:
    digits: List[str] = []

    @zelk.on(zelkapi.Digit)
    def on_digit(event: zelkapi.Digit) -> None:
        digits.append(event.digit)
        if event.digit == "1":
            raise ZeroDivisionError("from the handler")
        if event.digit == "3":
            zelk.stop()

    for digit in "123":
        stub.event(0, 0x101, ord(digit))
    with caplog.at_level(logging.ERROR, "zelkapi"):
        zelk.run()
    assert digits == ["1", "2", "3"]
    assert "ZeroDivisionError: from the handler" in caplog.text and "Digit" in caplog.text


PROGRAM = """
import os, sys, zelkapi
with zelkapi.Library(sys.argv[1]) as zelk:
    events = zelk.events()
    print("ready", flush=True)
    for event in events:
        print(type(event).__name__, flush=True)
        {body}
print("ended", flush=True)
"""


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_signal_ends_the_loop(number: int, stub_path: str) -> None:
    """Also while it waits for events in native code."""
    program = PROGRAM.format(body="pass")
    with subprocess.Popen([sys.executable, "-c", program, stub_path], stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout is not None and process.stdout.readline() == "ready\n"
        process.send_signal(number)
        assert process.communicate(timeout=60)[0] == "ended\n"
    assert process.returncode == 0


def test_a_second_signal_interrupts_the_body(stub_path: str) -> None:
    body = "os.kill(os.getpid(), 2); os.kill(os.getpid(), 2)"
    program = PROGRAM.format(body=body).replace("events =", "zelk.channel(0).after(0.0); events =")
    done = subprocess.run([sys.executable, "-c", program, stub_path], capture_output=True, text=True)
    assert "KeyboardInterrupt" in done.stderr and done.stdout == "ready\nTimeout\n"


def test_a_forked_process_is_told(zelk: zelkapi.Library, stub: Stub) -> None:
    child = os.fork()
    if child == 0:
        try:
            zelk.next_event(0)
        except zelkapi.StateError:
            os._exit(7)
        os._exit(1)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 7
