# SPDX-License-Identifier: GPL-2.0-only
"""Calls through the library proper and a simulated card."""
import queue
import random
import struct
from pathlib import Path
from typing import Callable, List, Type, TypeVar

import pytest
import zelkapi
from conftest import Simulator
from zelkapi import raw

E = TypeVar("E", bound=zelkapi.ChannelEvent)
Start = Callable[..., Simulator]

SOUND = random.Random(5).randbytes(8000)  # a second that is like nothing else


def wait(zelk: zelkapi.Library, kind: Type[E]) -> E:
    """The next event of this class; others are passed over."""
    while True:
        event = zelk.next_event(60)
        assert event is not None, f"no {kind.__name__} came"
        if isinstance(event, kind):
            return event


def wait_up(zelk: zelkapi.Library) -> None:
    while zelk.channel(29).state != zelkapi.State.READY:
        wait(zelk, zelkapi.ChannelState)


def write_wave(path: Path, sound: bytes) -> Path:
    with zelkapi.WaveWriter(path) as file:
        file.write(sound)
    return path


def test_an_incoming_call(simulate: Start, library_path: Path, tmp_path: Path) -> None:
    """Numbers, digits and sound both ways, sample for sample."""
    said = write_wave(tmp_path / "said.wav", SOUND[::-1])
    simulator = simulate("--calls", "1", "--calls-per-second", "5", "--stay", "--calling", "0301", "--called", "0302", "--redirecting", "0303",
                         "--digits", "5#", "--play", str(said))  # fmt: skip
    with zelkapi.Library(library_path) as zelk:
        call = wait(zelk, zelkapi.IncomingCall)
        assert (call.calling, call.called, call.redirecting) == ("0301", "0302", "0303")
        channel = call.channel
        info = channel.info()
        assert (info.calling, info.state, info.trunk) == ("0301", zelkapi.State.INUSE, 0)
        assert info.timeslot == channel.number + (1 if channel.number < 15 else 2)
        assert info.serial == "100001" and info.open_type == "ALAW"
        recording = channel.record(tmp_path / "recorded.wav")
        channel.answer()
        assert wait(zelk, zelkapi.Connected).channel is channel
        channel.play(SOUND)
        assert channel.play_time_left > 0
        assert [wait(zelk, zelkapi.Digit).digit for _ in range(2)] == ["5", "#"]
        wait(zelk, zelkapi.PlayDone)
        recorded = (tmp_path / "recorded.wav").open("rb")
        while SOUND[::-1] not in recorded.read():  # the far end speaks behind its digits
            recorded.seek(0)
            assert zelk.next_event(0.05) is None
        recording.stop()
        channel.hangup()
        ended = wait(zelk, zelkapi.Disconnected)
        assert (ended.channel, ended.cause, ended.reason) == (channel, 16, "NORMAL_CLEARING")
        assert channel.state == zelkapi.State.READY
    assert recording.lost == 0
    assert simulator.finish()["totals"] is not None
    assert SOUND in simulator.heard()[0]


def test_outgoing_calls(simulate: Start, library_path: Path, tmp_path: Path) -> None:
    simulator = simulate("--alert-after", "0", "--answer-after", "50")
    prompt = write_wave(tmp_path / "prompt.wav", SOUND)
    with zelkapi.Library(library_path) as zelk:
        wait_up(zelk)
        channel = zelk.channel(29)
        channel.dial("0305551234", "0300")
        wait(zelk, zelkapi.Alerting)
        assert wait(zelk, zelkapi.Connected).channel is channel
        with pytest.raises(zelkapi.CallError):
            channel.dial("1")
        assert channel.reject() is False
        channel.play_file(prompt)
        wait(zelk, zelkapi.PlayDone)
        channel.hangup()
        assert wait(zelk, zelkapi.Disconnected).cause == 16
    (call,) = simulator.finish()["calls"]
    assert (call["called"], call["calling"], call["timeslot"]) == ("0305551234", "0300", 31)
    assert SOUND[:-44] in simulator.heard()[0]


def test_a_busy_number(simulate: Start, library_path: Path) -> None:
    simulate("--refuse", "17")
    with zelkapi.Library(library_path) as zelk:
        wait_up(zelk)
        zelk.channel(0).dial("1")
        ended = wait(zelk, zelkapi.Disconnected)
        assert (ended.cause, ended.reason) == (17, "USER_BUSY")


def test_a_rejected_call_and_a_channel_that_takes_none(simulate: Start, library_path: Path) -> None:
    with zelkapi.Library(library_path) as zelk:
        assert zelk.channels == () and zelk.next_event(0) is None
        with pytest.raises(zelkapi.ChannelError):
            zelk.channel(0)
    simulator = simulate("--calls", "2", "--calls-per-second", "5", "--concurrent", "1", "--stay")
    with zelkapi.Library(library_path) as zelk:
        for _ in range(2):
            assert wait(zelk, zelkapi.IncomingCall).channel.reject() is True
        zelk.channel(0).allow_incoming(False)
    calls = simulator.finish(connected=False)["calls"]
    assert [call["cause"] for call in calls] == [21, 21]


def test_files_that_cannot_be_played(simulate: Start, library_path: Path, tmp_path: Path) -> None:
    simulate()
    path = tmp_path / "a.wav"
    with zelkapi.Library(library_path) as zelk:
        channel = zelk.channel(0)
        for change, reason in (
            ((22, "<H", 2), "is not 8000 Hz mono (8000 Hz, 2 channels)"),
            ((24, "<I", 16000), "is not 8000 Hz mono (16000 Hz, 1 channels)"),
            ((20, "<H", 17), "has neither 8 or 16 bits linear, A-law nor mu-law (format 17, 8 bits)"),
            ((40, "<I", 8001), "is cut short"),
        ):
            data = bytearray(write_wave(path, SOUND).read_bytes())
            struct.pack_into(change[1], data, change[0], change[2])
            path.write_bytes(data)
            with pytest.raises(zelkapi.SoundError) as caught:
                channel.play_file(path)
            assert (caught.value.file, caught.value.reason) == (str(path), reason)
        with pytest.raises(zelkapi.SoundError, match="No such file"):
            channel.play_file(tmp_path / "none.wav")


def test_files_are_read_as_the_library_reads_them(simulate: Start, library_path: Path, tmp_path: Path) -> None:
    """Every linear sample of 16 and of 8 bits but -32768, which the library does not clip, and every mu-law code: the line gets what read_wave makes of the file."""
    files: List[Path] = []
    for tag, bits, data in (
        (1, 16, struct.pack("<65535h", *range(-32767, 32768))),
        (1, 8, bytes(range(1, 256))),
        (7, 8, bytes(range(256))),
    ):
        record = struct.pack("<HHIIHH", tag, 1, 8000, 8000 * bits // 8, bits // 8, bits)
        body = b"WAVEfmt " + struct.pack("<I", 16) + record + b"data" + struct.pack("<I", len(data)) + data
        files.append(tmp_path / f"{tag}-{bits}.wav")
        files[-1].write_bytes(b"RIFF" + struct.pack("<I", len(body)) + body)
    simulator = simulate()
    with zelkapi.Library(library_path) as zelk:
        wait_up(zelk)
        channel = zelk.channel(0)
        channel.dial("1")
        wait(zelk, zelkapi.Connected)
        for file in files:
            channel.play_file(file)
        channel.play(zelkapi.silence(20))
        wait(zelk, zelkapi.PlayDone)
        channel.hangup()
        wait(zelk, zelkapi.Disconnected)
    simulator.finish()
    assert b"".join(map(zelkapi.read_wave, files)) in simulator.heard()[0]


def test_a_raw_recording_becomes_what_the_writer_writes(simulate: Start, library_path: Path, tmp_path: Path) -> None:
    path = tmp_path / "a.raw"
    path.write_bytes(bytes(44) + SOUND)
    with zelkapi.Library(library_path) as zelk:
        zelk.raw_to_wave(path)
        with pytest.raises(zelkapi.SoundError, match="FILE_OPEN"):
            zelk.raw_to_wave(tmp_path / "none.raw")
    assert path.read_bytes() == write_wave(tmp_path / "b.wav", SOUND).read_bytes()


def test_the_rest_of_the_24_functions(simulate: Start, library_path: Path) -> None:
    """Those that nothing above called, and the three callbacks as they are."""
    simulate("--tone", "425")
    api = raw.ZelkApi(library_path)
    heard: "queue.SimpleQueue[str]" = queue.SimpleQueue()
    api.ZELK_SetEventCallback(lambda channel, code, param: heard.put(f"event {code:x}"))
    api.ZELK_SetPlayCallback(lambda channel, data, length: heard.put(f"play {length}"))
    api.ZELK_SetRecordCallback(lambda channel, data, length: heard.put(f"record {length}"))
    assert api.ZELK_Init() is True
    try:
        assert api.ZELK_GetChannelCount() == 30
        assert api.ZELK_OpenChannel(0) is True and api.ZELK_OpenChannel(30) is False
        assert api.ZELK_GetLastError(0) == 0 and api.ZELK_GetLastError(30) == zelkapi.Error.BAD_CHANNEL
        assert api.ZELK_GetChannelInfo(16, zelkapi.Info.TIMESLOT) == 18
        assert api.ZELK_GetChannelInfoString(16, zelkapi.Info.LINETYPE) == b"PRI"
        assert api.ZELK_GetChannelInfoString(16, zelkapi.Info.TIMESLOT) is None
        assert api.ZELK_SetChannelInfo(0, zelkapi.SetInfo.ALLOWINCOMING, 1) == 1 and api.ZELK_SetChannelInfo(0, 2, 1) == 0
        assert api.ZELK_SetChannelInfoString(0, 1, b"x") == 0
        assert api.ZELK_Transfer(0) is False
        assert api.ZELK_PlayBuffer(0, SOUND, len(SOUND)) is True and api.ZELK_PlayTimeLeft(0) > 0
        api.ZELK_StopPlay(0)
        assert api.ZELK_PlayTimeLeft(0) == 0
        api.ZELK_CloseChannel(0)
        assert api.ZELK_DisconnectReasonToString(1) == b"UNALLOCATED" and api.ZELK_DisconnectReasonToString(-1) == b"REASON_UNKNOWN"
        missing = {"event 501", "play 160", "record 160"}
        while missing:
            missing.discard(heard.get(timeout=60))
    finally:
        api.ZELK_SetPlayCallback(None)
        api.ZELK_SetRecordCallback(None)
        api.ZELK_Shutdown()
        api.ZELK_SetEventCallback(None)
