# SPDX-License-Identifier: GPL-2.0-only
"""Fixtures: the stub library, built here, and the queue library of the build (ZELKQUEUE_LIBRARY)."""
import ctypes
import subprocess
from pathlib import Path
from typing import Iterator, List

import pytest
import zelkapi

HERE = Path(__file__).parent


def build_stub(path: Path, *options: str) -> Path:
    command = ["cc", "-shared", "-fPIC", "-pthread", "-Wl,-soname,libZelkApi-64.so", *options]
    subprocess.run([*command, str(HERE / "stub.c"), "-o", str(path)], check=True)
    return path


class Stub:
    """The stub as tests use it."""

    def __init__(self, path: Path) -> None:
        self.path = path
        self.dll = ctypes.CDLL(str(path))

    def take(self) -> List[str]:
        """The calls since the last time."""
        room = ctypes.create_string_buffer(1 << 16)
        self.dll.STUB_Take(room, len(room))
        return room.value.decode().splitlines()

    def say(self, result: bool, error: int = 0) -> None:
        """What functions answer from now on."""
        self.dll.STUB_Say(ctypes.c_bool(result), error)

    def event(self, channel: int, code: int, param: int = 0) -> None:
        self.dll.STUB_Event(channel, code, param)

    def sound(self, channel: int, block: bytes) -> None:
        assert len(block) == 160
        self.dll.STUB_Sound(channel, block)


@pytest.fixture(scope="session")
def stub_path(tmp_path_factory: pytest.TempPathFactory) -> Path:
    return build_stub(tmp_path_factory.mktemp("stub") / "libZelkApi-64.so")


@pytest.fixture
def stub(stub_path: Path) -> Iterator[Stub]:
    stub = Stub(stub_path)
    stub.say(True)
    stub.take()
    yield stub
    stub.say(True)


@pytest.fixture
def zelk(stub: Stub) -> Iterator[zelkapi.Library]:
    """A library started on the stub, with nothing noted so far."""
    with zelkapi.Library(stub.path) as library:
        stub.take()
        yield library
