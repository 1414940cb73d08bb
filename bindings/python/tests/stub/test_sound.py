# SPDX-License-Identifier: GPL-2.0-only
"""Received sound, recordings, and WAV files that can or cannot be read."""
import os
import random
import struct
import threading
from pathlib import Path
from typing import List

import pytest
import zelkapi
from conftest import Stub

NOISE = random.Random(3)


def blocks(count: int) -> List[bytes]:
    return [NOISE.randbytes(160) for _ in range(count)]


def wave_file(path: Path, data: bytes, tag: int = 6, channels: int = 1, rate: int = 8000, bits: int = 8, claim: int = -1) -> Path:
    size = len(data) if claim < 0 else claim
    record = struct.pack("<HHIIHH", tag, channels, rate, rate * channels * bits // 8, channels * bits // 8, bits)
    body = b"WAVEfmt " + struct.pack("<I", len(record)) + record + b"LIST\1\0\0\0x\0data" + struct.pack("<I", size) + data
    path.write_bytes(b"RIFF" + struct.pack("<I", len(body)) + body)
    return path


def test_a_recording_holds_every_block(zelk: zelkapi.Library, stub: Stub, tmp_path: Path) -> None:
    sound = blocks(700)
    stub.sound(3, blocks(1)[0])  # before: not in it
    with zelk.channel(3).record(tmp_path / "a.wav", seconds=20) as recording:
        for block in sound:
            stub.sound(3, block)
            stub.sound(4, block)
    stub.sound(3, blocks(1)[0])  # behind: neither
    assert (recording.lost, recording.error, recording.active) == (0, None, False)
    data = (tmp_path / "a.wav").read_bytes()
    assert data[44:] == b"".join(sound)
    assert data[:44] == b"RIFF" + struct.pack("<I", 112036) + b"WAVEfmt " + struct.pack(
        "<IHHIIHH", 16, 6, 1, 8000, 8000, 1, 8
    ) + b"data" + struct.pack("<I", 112000)
    recording.stop()


def test_lost_blocks_are_silence_and_counted(zelk: zelkapi.Library, stub: Stub, tmp_path: Path) -> None:
    """Nothing is written while `stop` is kept waiting by another thread's hold on the sink."""
    recording = zelk.channel(3).record(tmp_path / "a.wav", seconds=0.2)
    sound = blocks(15)
    with recording._lock:
        for block in sound:
            stub.sound(3, block)
    recording.stop()
    assert recording.lost == 5
    assert zelkapi.read_wave(tmp_path / "a.wav") == b"".join(sound[:10]) + b"\xd5" * 800


def test_the_end_of_the_library_completes_recordings(stub: Stub, tmp_path: Path) -> None:
    with zelkapi.Library(stub.path) as library:
        library.channel(0).record(tmp_path / "a.wav")
        stub.sound(0, b"\x11" * 160)
    assert zelkapi.read_wave(tmp_path / "a.wav") == b"\x11" * 160


def test_one_taker_a_channel(zelk: zelkapi.Library, tmp_path: Path) -> None:
    with zelk.channel(0).record(tmp_path / "a.wav"):
        with pytest.raises(zelkapi.StateError, match="channel 0 is being taken already"):
            zelk.channel(0).record(tmp_path / "b.wav")
        assert not (tmp_path / "b.wav").exists()
    zelk.channel(0).listen().stop()


def test_a_file_that_cannot_be_made(zelk: zelkapi.Library, tmp_path: Path) -> None:
    with pytest.raises(zelkapi.SoundError, match="none/a.wav: cannot be written: No such file"):
        zelk.channel(0).record(tmp_path / "none" / "a.wav")
    zelk.channel(0).listen().stop()


@pytest.mark.skipif(not os.path.exists("/dev/full"), reason="no full disk here")
def test_a_full_disk(zelk: zelkapi.Library, stub: Stub, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    """The disk fills while the recording is under way: an event tells of it, once, and sound is thrown away."""
    recording = zelk.channel(0).record(tmp_path / "a.wav")
    full = open("/dev/full", "wb", buffering=0)
    with recording._lock:
        file, recording._file._file = recording._file._file, full
    for block in blocks(60):
        stub.sound(0, block)
    event = zelk.next_event(30)
    assert isinstance(event, zelkapi.RecordingFailed) and event.channel is zelk.channel(0)
    assert event.recording is recording and event.reason == "cannot be written: No space left on device"
    for block in blocks(60):
        stub.sound(0, block)
    recording._file._file = file
    recording.stop()
    full.close()
    assert recording.lost == 0 and zelk.next_event(0) is None
    assert zelkapi.read_wave(tmp_path / "a.wav") == b""


def test_listening(zelk: zelkapi.Library, stub: Stub) -> None:
    sound = blocks(50)
    with zelk.channel(6).listen() as listener:
        heard = b""
        for block in sound:
            stub.sound(6, block)
        while len(heard) < 8000:
            heard += listener.read(30)
        assert heard == b"".join(sound)
        assert listener.read(0) == b""
        threading.Timer(0.05, listener.stop).start()
        assert list(listener) == []


def test_listening_too_slowly(zelk: zelkapi.Library, stub: Stub) -> None:
    with zelk.channel(6).listen(seconds=0.1) as listener:
        sound = blocks(501)
        for block in sound:
            stub.sound(6, block)
    assert listener.lost == 496
    heard = listener.read(0)
    assert len(heard) == 800 and heard[:160] in sound[:-4]


def test_linear_sound_becomes_alaw(tmp_path: Path) -> None:
    """Codes of ITU-T G.711, its table 1a: the first interval of each segment."""
    samples = [0, 8, 24, -8, -24, 264, 520, 1040, 2080, 4160, 8320, 16640, 32767, -32768]
    codes = [0xD5, 0xD5, 0xD4, 0x55, 0x54, 0xC5, 0xF5, 0xE5, 0x95, 0x85, 0xB5, 0xA5, 0xAA, 0x2A]
    path = wave_file(tmp_path / "a.wav", struct.pack(f"<{len(samples)}h", *samples), tag=1, bits=16)
    assert list(zelkapi.read_wave(path)) == codes
    assert zelkapi.read_wave(wave_file(path, bytes([128, 255, 0]), tag=1)) == zelkapi.encode_alaw(struct.pack("<3h", 0, 32512, -32768))
    assert zelkapi.read_wave(wave_file(path, bytes([0xFF, 0x7F, 0x80, 0x00]), tag=7)) == bytes([0xD5, 0xD5, 0xAA, 0x2A])
    assert zelkapi.read_wave(wave_file(path, bytes(range(256)))) == bytes(range(256))


def refusal(channel: zelkapi.Channel, path: Path) -> str:
    with pytest.raises(zelkapi.SoundError) as caught:
        channel.play_file(path)
    assert caught.value.file == str(path)
    return caught.value.reason


def test_files_that_cannot_be_played(zelk: zelkapi.Library, stub: Stub, tmp_path: Path) -> None:
    channel, path = zelk.channel(0), tmp_path / "a.wav"
    stub.say(False, 7)
    assert refusal(channel, wave_file(path, b"x" * 10, rate=44100)) == "is not 8000 Hz mono (44100 Hz, 1 channels)"
    assert refusal(channel, wave_file(path, b"x" * 10, channels=2)) == "is not 8000 Hz mono (8000 Hz, 2 channels)"
    assert refusal(channel, wave_file(path, b"x" * 10, claim=11)) == "is cut short"
    assert refusal(channel, wave_file(path, b"x" * 10, tag=2)).startswith("has neither 8 or 16 bits linear")
    whole = wave_file(path, b"").read_bytes()
    for length in range(12, len(whole)):
        path.write_bytes(whole[:length])
        assert refusal(channel, path) == "is cut short"
    path.write_bytes(b"something else altogether")
    assert refusal(channel, path) == "is not a WAV file"
    assert refusal(channel, tmp_path / "none.wav") == "cannot be read: No such file or directory"
    assert refusal(channel, tmp_path) == "cannot be read: Is a directory"
    stub.say(False, 2)
    assert refusal(channel, wave_file(path, b"x")) == "there is no memory for it"
    with pytest.raises(zelkapi.SoundError, match="no memory for 3 bytes"):
        channel.play(b"abc")


def test_digits_are_sound() -> None:
    assert len(zelkapi.digits("12#", 50, 30)) == 3 * 640 and zelkapi.digits("") == b""
    with pytest.raises(ValueError, match="'x' is no digit"):
        zelkapi.digits("1x")
