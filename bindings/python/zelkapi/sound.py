# SPDX-License-Identifier: GPL-2.0-only
"""Sound: WAV files, and A-law of ITU-T G.711 as the channels carry it. 8000 Hz, mono, a byte a sample."""
import math
import os
import struct
from typing import BinaryIO, Dict, Iterator, List, Optional, Tuple

from .constants import SAMPLE_RATE
from .errors import SoundError

_PCM, _ALAW, _MULAW = 1, 6, 7
_HEADER = struct.Struct("<4sI4s4sIHHIIHH4sI")


def silence(milliseconds: int) -> bytes:
    """A-law silence of this length."""
    return b"\xd5" * (milliseconds * SAMPLE_RATE // 1000)


def _encode_sample(value: int) -> int:
    """One sample of 16 bits as A-law, by sign and magnitude, of which 12 bits count."""
    mask = 0xD5 if value >= 0 else 0x55
    magnitude = min(abs(value), 0x7FFF) >> 4
    segment = max(magnitude.bit_length() - 4, 0)
    return (segment << 4 | (magnitude >> max(segment - 1, 0) & 0x0F)) ^ mask


def _mulaw_sample(code: int) -> int:
    """The sample of 16 bits of a mu-law code."""
    code = ~code & 0xFF
    value = (((code & 0x0F) << 3) + 0x84) << ((code & 0x70) >> 4)
    return 0x84 - value if code & 0x80 else value - 0x84


_alaw: Dict[int, bytes] = {}


def _alaw_table() -> bytes:
    """The code of each sample of 16 bits, by its two's complement. Made when it is first needed."""
    if 0 not in _alaw:
        _alaw[0] = bytes(_encode_sample(at - 0x10000 if at & 0x8000 else at) for at in range(0x10000))
    return _alaw[0]


def encode_alaw(samples: bytes) -> bytes:
    """Linear samples of 16 bits, little-endian, as A-law."""
    if len(samples) % 2:
        raise SoundError("", "16-bit samples of an odd number of bytes")
    table = _alaw_table()
    return bytes(table[value] for value in struct.unpack(f"<{len(samples) // 2}H", samples))


def _chunks(data: bytes) -> Iterator[Tuple[bytes, int, int]]:
    """Name, claimed size and place of each chunk of a WAV file."""
    at = 12
    while at + 8 <= len(data):
        size = int.from_bytes(data[at + 4 : at + 8], "little")
        yield data[at : at + 4], size, at + 8
        at += 8 + size + size % 2


def _parse(data: bytes) -> Tuple[int, int, bytes]:
    """Format tag, bits a sample and samples; ValueError with the reason why these cannot be played."""
    if len(data) < 12 and (b"RIFF".startswith(data[:4]) or data[:4] == b"RIFF"):
        raise ValueError("is cut short")
    if data[:4] != b"RIFF" or data[8:12] != b"WAVE":
        raise ValueError("is not a WAV file")
    record: Optional[Tuple[int, ...]] = None
    for name, size, at in _chunks(data):
        if name == b"fmt " and record is None:
            if at + min(size, 16) > len(data) or size < 16:
                raise ValueError("is cut short")
            record = struct.unpack_from("<HHIIHH", data, at)
        elif name == b"data" and record:
            tag, channels, rate, _, _, bits = record
            if tag not in (_PCM, _ALAW, _MULAW) or (tag == _PCM and bits not in (8, 16)):
                raise ValueError(f"has neither 8 or 16 bits linear, A-law nor mu-law (format {tag}, {bits} bits)")
            if rate != SAMPLE_RATE or channels != 1:
                raise ValueError(f"is not 8000 Hz mono ({rate} Hz, {channels} channels)")
            if at + size > len(data):
                raise ValueError("is cut short")
            return tag, bits, data[at : at + size]
    raise ValueError("is cut short")


def read_wave(path: "os.PathLike[str] | str") -> bytes:
    """The sound of a WAV file (8000 Hz, mono; 16-bit or 8-bit linear, A-law or mu-law) as A-law. SoundError with the
    reason: not 8000 Hz mono, cut short, not a WAV file, or why it cannot be read."""
    name = os.fspath(path)
    try:
        with open(path, "rb") as file:
            tag, bits, samples = _parse(file.read())
    except OSError as error:
        raise SoundError(name, f"cannot be read: {error.strerror or error}") from None
    except ValueError as error:
        raise SoundError(name, str(error)) from None
    if tag == _ALAW:
        return samples
    if tag == _MULAW:
        return encode_alaw(struct.pack(f"<{len(samples)}h", *map(_mulaw_sample, samples)))
    if bits == 8:
        return encode_alaw(struct.pack(f"<{len(samples)}h", *((value - 128) << 8 for value in samples)))
    return encode_alaw(samples[: len(samples) & ~1])


class WaveWriter:
    """Writes A-law into a WAV file. The header tells the length when the file is closed; until then it says 0.

    One thread at a time. SoundError when the file cannot be opened or written (disk full); what was written before is
    kept, and `close` still makes a valid file of it where the disk allows.
    """

    def __init__(self, path: "os.PathLike[str] | str") -> None:
        self.path = os.fspath(path)
        self.length = 0  # bytes, which are samples
        self._file: Optional[BinaryIO] = None
        try:
            self._file = open(path, "wb", buffering=0)
            self._put(self._header())
        except OSError as error:
            if self._file is not None:
                self._file.close()
            raise self._failure(error) from None

    def _failure(self, error: OSError) -> SoundError:
        return SoundError(self.path, f"cannot be written: {error.strerror or error}")

    def _header(self) -> bytes:
        data = self.length
        return _HEADER.pack(
            b"RIFF", data + data % 2 + 36, b"WAVE", b"fmt ", 16, _ALAW, 1, SAMPLE_RATE, SAMPLE_RATE, 1, 8, b"data", data
        )

    def _put(self, data: bytes) -> int:
        assert self._file is not None
        return self._file.write(data) or 0

    def write(self, data: bytes) -> None:
        """Appends A-law bytes."""
        if self._file is None:
            raise SoundError(self.path, "is closed")
        rest = memoryview(data)
        try:
            while rest:
                written = self._put(bytes(rest))
                self.length += written
                rest = rest[written:]
        except OSError as error:
            raise self._failure(error) from None

    def close(self) -> None:
        """Completes the file. Again: nothing."""
        file, self._file = self._file, None
        if file is None:
            return
        try:
            with file:
                if self.length % 2:
                    file.write(b"\0")
                file.seek(0)
                file.write(self._header())
        except OSError as error:
            raise self._failure(error) from None

    def __enter__(self) -> "WaveWriter":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


_ROWS, _COLUMNS = (697, 770, 852, 941), (1209, 1336, 1477, 1633)
_KEYS = ("123A", "456B", "789C", "*0#D")


def digits(text: str, on_ms: int = 80, off_ms: int = 80) -> bytes:
    """DTMF digits as sound, -7 dBm0 a tone. ValueError for other characters than 0-9, A-D, * and #."""
    places = {key: (row, column) for row, keys in zip(_ROWS, _KEYS) for key, column in zip(keys, _COLUMNS)}
    samples: List[int] = []
    amplitude = 32124 * 10 ** ((-7.0 - 3.14) / 20)
    for digit in text:
        if digit.upper() not in places:
            raise ValueError(f"{digit!r} is no digit of DTMF")
        row, column = (2 * math.pi * frequency / SAMPLE_RATE for frequency in places[digit.upper()])
        count = on_ms * SAMPLE_RATE // 1000
        samples += [round(amplitude * (math.sin(row * at) + math.sin(column * at))) for at in range(count)]
        samples += [0] * (off_ms * SAMPLE_RATE // 1000)
    return encode_alaw(struct.pack(f"<{len(samples)}h", *samples))
