# SPDX-License-Identifier: GPL-2.0-only
"""What a Channel does reaches the library as it should, and what it must refuse never does."""
import ctypes
import re
from pathlib import Path
from typing import Any, Callable, Dict, List, NamedTuple

import pytest
import zelkapi
from conftest import Stub
from zelkapi import raw


class Operation(NamedTuple):
    do: Callable[[zelkapi.Channel], object]
    result: object
    calls: List[str]


OPERATIONS: Dict[str, Operation] = {
    "open": Operation(lambda channel: channel.open(), None, ["OpenChannel 7"]),
    "close": Operation(lambda channel: channel.close(), None, ["CloseChannel 7"]),
    "dial": Operation(lambda channel: channel.dial("0*#+9"), None, ["Dial 7 0*#+9 null"]),
    "dial_as": Operation(lambda channel: channel.dial("1", "2"), None, ["Dial 7 1 2"]),
    "answer": Operation(lambda channel: channel.answer(), None, ["Answer 7"]),
    "reject": Operation(lambda channel: channel.reject(), False, ["Reject 7"]),
    "hangup": Operation(lambda channel: channel.hangup(), None, ["Hangup 7"]),
    "transfer": Operation(lambda channel: channel.transfer(), True, ["Transfer 7"]),
    "play": Operation(lambda channel: channel.play(b"\1\2"), None, ["PlayBuffer 7 2 33"]),
    "play_file": Operation(lambda channel: channel.play_file("a.wav"), None, ["PlayFile 7 a.wav"]),
    "play_time_left": Operation(lambda channel: channel.play_time_left, 120, ["PlayTimeLeft 7"]),
    "stop": Operation(lambda channel: channel.stop(), None, ["StopPlay 7"]),
    "state": Operation(lambda channel: channel.state, zelkapi.State.READY, ["GetChannelInfo 7 6"]),
    "value": Operation(lambda channel: channel.value(263), 2630, ["GetChannelInfo 7 263"]),
    "text": Operation(lambda channel: channel.text(2), "text 2 of 7", ["GetChannelInfoString 7 2"]),
    "no_text": Operation(lambda channel: channel.text(262), None, ["GetChannelInfoString 7 262"]),
    "allow": Operation(lambda channel: channel.allow_incoming(False), None, ["SetChannelInfo 7 1 0"]),
    "set_text": Operation(lambda channel: channel.set_text(3, "x"), 0, ["SetChannelInfoString 7 3 x"]),
    "last_error": Operation(lambda channel: channel.last_error, zelkapi.Error.NONE, ["GetLastError 7"]),
}


@pytest.mark.parametrize("name", OPERATIONS)
def test_operation(name: str, zelk: zelkapi.Library, stub: Stub) -> None:
    operation = OPERATIONS[name]
    assert operation.do(zelk.channel(7)) == operation.result
    assert stub.take() == operation.calls


@pytest.mark.parametrize("name", OPERATIONS)
def test_operation_after_the_shut_down(name: str, stub: Stub) -> None:
    with zelkapi.Library(stub.path) as library:
        channel = library.channel(7)
    stub.take()
    with pytest.raises(zelkapi.StateError, match="shut down"):
        OPERATIONS[name].do(channel)
    assert stub.take() == []


def test_the_life_of_a_library(stub: Stub) -> None:
    with zelkapi.Library(stub.path) as library:
        assert stub.take() == ["Init", *(f"OpenChannel {number}" for number in range(30))]
        assert [channel.number for channel in library.channels] == list(range(30))
        assert library.reason(17) == "CAUSE_17" and library.reason(None) == "REASON_UNKNOWN"
    assert stub.take() == ["Shutdown"]
    assert library.closed
    library.close()
    assert stub.take() == []
    operations: List[Callable[[], object]] = [
        lambda: library.reason(1),
        library.next_event,
        lambda: library.raw_to_wave("x"),
    ]
    for late in operations:
        with pytest.raises(zelkapi.StateError):
            late()
    assert list(library.events()) == []
    with zelkapi.Library(stub.path, open_channels=False):
        assert stub.take() == ["Init"]


def test_a_second_library(zelk: zelkapi.Library, stub: Stub) -> None:
    with pytest.raises(zelkapi.StateError, match="in use already"):
        zelkapi.Library(stub.path)
    assert stub.take() == []
    zelk.channel(0).answer()
    assert stub.take() == ["Answer 0"]


@pytest.mark.parametrize("number", [-1, 30, 1 << 40])
def test_channel_out_of_range(number: int, zelk: zelkapi.Library, stub: Stub) -> None:
    with pytest.raises(zelkapi.ChannelError, match=f"no channel {number}: there are 30"):
        zelk.channel(number)
    assert stub.take() == []


@pytest.mark.parametrize("number", ["", "1" * 32, "030-5551234", "0 30", "12a", "1\0", "\u0661", "12\n", 30, None])
def test_numbers_that_are_refused(number: Any, zelk: zelkapi.Library, stub: Stub) -> None:
    with pytest.raises(zelkapi.NumberError):
        zelk.channel(0).dial(number)
    if number not in ("", None):
        with pytest.raises(zelkapi.NumberError, match="calling"):
            zelk.channel(0).dial("1", number)
    assert stub.take() == []


def test_the_longest_number(zelk: zelkapi.Library, stub: Stub) -> None:
    zelk.channel(0).dial("1" * 31, "2" * 31)
    assert stub.take() == [f"Dial 0 {'1' * 31} {'2' * 31}"]


def test_a_call_that_is_refused(zelk: zelkapi.Library, stub: Stub) -> None:
    stub.say(False)
    with pytest.raises(zelkapi.CallError, match="channel 3 cannot dial 12"):
        zelk.channel(3).dial("12")
    assert zelk.channel(3).reject() is True


def test_what_a_channel_tells(zelk: zelkapi.Library) -> None:
    info = zelk.channel(4).info()
    assert (info.serial, info.calling, info.called, info.redirecting) == tuple(f"text {key} of 4" for key in (1, 2, 3, 4))
    assert (info.firmware_version, info.firmware_date, info.burn_date) == tuple(f"text {key} of 4" for key in (259, 260, 261))
    assert (info.trunk, info.timeslot, info.open_type) == (2620, 2630, "text 258 of 4")
    assert (info.state, info.call_type) == (zelkapi.State.READY, zelkapi.CallType.VOICE)


def test_raw_to_wave(zelk: zelkapi.Library, stub: Stub, tmp_path: Path) -> None:
    zelk.raw_to_wave("sound.raw", zelkapi.SampleFormat.MULAW)
    assert stub.take() == ["ConvertRawToWaveFile sound.raw 1"]
    stub.say(False, 3)
    with pytest.raises(zelkapi.SoundError, match="x.raw: cannot be made a WAV file: FILE_OPEN"):
        zelk.raw_to_wave("x.raw")


def test_every_function_by_its_own_name(stub: Stub) -> None:
    """The plain declarations: each of the 24 reaches its function with its arguments in their places."""
    api = raw.ZelkApi(stub.path)
    assert api.ZELK_Init() is True
    assert api.ZELK_GetChannelCount() == 30
    assert api.ZELK_OpenChannel(1001) is True
    api.ZELK_CloseChannel(1002)
    assert api.ZELK_GetLastError(1003) == 0
    assert api.ZELK_GetChannelInfo(1004, 263) == 2630
    assert api.ZELK_GetChannelInfoString(1005, 2) == b"text 2 of 1005"
    assert api.ZELK_GetChannelInfoString(1005, 263) is None
    assert api.ZELK_SetChannelInfo(1006, 1, -1) == 1
    assert api.ZELK_SetChannelInfoString(1007, 1, b"text") == 0
    assert api.ZELK_Dial(1008, b"12", None) is True
    assert [api.ZELK_Answer(1009), api.ZELK_Reject(1010), api.ZELK_Hangup(1011), api.ZELK_Transfer(1012)] == [True] * 4
    assert api.ZELK_DisconnectReasonToString(16) == b"CAUSE_16"
    assert api.ZELK_PlayBuffer(1013, b"\1\0", 2) is True
    assert api.ZELK_PlayFile(1014, b"a") is True
    assert api.ZELK_PlayTimeLeft(1015) == 120
    api.ZELK_StopPlay(1016)
    assert api.ZELK_ConvertRawToWaveFile(b"b", 2) == 0
    api.ZELK_Shutdown()
    assert stub.take() == (
        "Init;OpenChannel 1001;CloseChannel 1002;GetLastError 1003;GetChannelInfo 1004 263;GetChannelInfoString 1005 2;"
        "GetChannelInfoString 1005 263;SetChannelInfo 1006 1 -1;SetChannelInfoString 1007 1 text;Dial 1008 12 null;Answer 1009;Reject 1010;"
        "Hangup 1011;Transfer 1012;PlayBuffer 1013 2 31;PlayFile 1014 a;PlayTimeLeft 1015;StopPlay 1016;ConvertRawToWaveFile b 2;Shutdown"
    ).split(";")


def test_callbacks_by_their_own_names(stub: Stub) -> None:
    api = raw.ZelkApi(stub.path)
    heard: List[Any] = []

    def on_play(channel: int, data: Any, length: int) -> None:
        data[0] = channel
        heard.append((channel, length))

    api.ZELK_SetEventCallback(lambda *event: heard.append(event))
    api.ZELK_SetRecordCallback(lambda channel, data, length: heard.append((channel, bytes(data[:length]))))
    api.ZELK_SetPlayCallback(on_play)
    stub.event(3, 0x303, -1)
    stub.sound(4, bytes(range(160)))
    block = (ctypes.c_uint8 * 160)()
    stub.dll.STUB_Play(5, block)
    assert heard == [(3, 0x303, -1), (4, bytes(range(160))), (5, 160)]
    assert block[0] == 5
    for register in (api.ZELK_SetEventCallback, api.ZELK_SetRecordCallback):
        register(None)
    api.ZELK_SetPlayCallback(None)
    assert not stub.dll.STUB_Hears()


def test_every_function_is_declared() -> None:
    header = Path(__file__).parents[4] / "include" / "zelk" / "ZelkApi.h"
    exported = re.findall(r"^ZELK_API [^;]*?(ZELK_\w+)\(", header.read_text(), re.M)
    assert len(exported) == 24 and sorted(exported) == sorted(raw.DECLARATIONS)
    header = header.with_name("ZelkQueue.h")
    exported = re.findall(r"^ZELKQ_API [^;]*?(ZELKQ_[A-Z]\w+)\(", header.read_text(), re.M)
    assert sorted(exported) == sorted(zelkapi.queue.DECLARATIONS)


def test_constants_are_those_of_the_header() -> None:
    text = (Path(__file__).parents[4] / "include" / "zelk" / "ZelkApi.h").read_text()
    stated = {name: int(value, 0) for name, value in re.findall(r"\bZELK_(\w+) = (0x\w+|\d+)", text)}
    for prefix, kind in (
        ("ERROR", zelkapi.Error),
        ("EVENT", zelkapi.EventCode),
        ("INFO", zelkapi.Info),
        ("CHANNEL", zelkapi.State),
        ("CALL", zelkapi.CallType),
        ("FORMAT", zelkapi.SampleFormat),
        ("SET", zelkapi.SetInfo),
    ):
        names = {name for name in stated if name.startswith(prefix + "_")} - {"CHANNELS_PER_TRUNK"}
        assert {f"{prefix}_{member.name}": member.value for member in kind} == {name: stated.pop(name) for name in names}
    for name, value in stated.items():
        assert getattr(zelkapi.constants, name) == value
    assert len(stated) == 7
