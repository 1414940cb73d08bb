# SPDX-License-Identifier: GPL-2.0-only
"""Libraries that cannot be used: the error names file and reason, and nothing was called."""
import _ctypes
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
import zelkapi
from conftest import Stub, build_stub
from zelkapi import raw


def refused(path: Path) -> zelkapi.LibraryError:
    with pytest.raises(zelkapi.LibraryError) as caught:
        zelkapi.Library(path)
    assert caught.value.file == str(path)
    assert str(caught.value) == f"{path}: {caught.value.reason}"
    return caught.value


def test_no_path_at_all(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.delenv("ZELKAPI_LIBRARY", raising=False)
    with pytest.raises(zelkapi.LibraryError, match="ZELKAPI_LIBRARY: is not set"):
        zelkapi.Library()


def test_wrong_path(tmp_path: Path) -> None:
    assert refused(tmp_path / "none.so").reason == "No such file or directory"
    assert refused(tmp_path).reason == "Is a directory"


def test_no_library(tmp_path: Path) -> None:
    path = tmp_path / "text.so"
    for content in (b"", b"\x7fELF", b"just text, long enough for any header of a library" * 9):
        path.write_bytes(content)
        assert refused(path).reason == "is not a shared library of this system"


def test_wrong_word_size(tmp_path: Path, stub_path: Path) -> None:
    head = bytearray(stub_path.read_bytes())
    head[4] = 1  # ELFCLASS32
    path = tmp_path / "small.so"
    path.write_bytes(head)
    assert refused(path).reason == "is a library of 32 bits, and this Python has 64"


def test_damaged_library(tmp_path: Path, stub_path: Path) -> None:
    path = tmp_path / "cut.so"
    whole = stub_path.read_bytes()
    for length in (1000, 8000, len(whole) - 1):
        path.write_bytes(whole[:length])
        assert refused(path).reason == "is cut short"
    path.write_bytes(whole[:100] + bytes(len(whole) - 100))
    refused(path)


def test_missing_export(tmp_path: Path) -> None:
    path = build_stub(tmp_path / "old.so", "-DWITHOUT_DIAL")
    assert refused(path).reason == "does not export ZELK_Dial"


def test_a_library_of_something_else() -> None:
    with pytest.raises(zelkapi.LibraryError) as caught:
        raw.ZelkApi(_ctypes.__file__)
    assert all(name in caught.value.reason for name in raw.DECLARATIONS)


def test_queue_library_that_is_none(stub: Stub, tmp_path: Path) -> None:
    with pytest.raises(zelkapi.LibraryError, match="none.so: No such file"):
        zelkapi.Library(stub.path, queue=tmp_path / "none.so")
    with pytest.raises(zelkapi.LibraryError, match="does not export ZELKQ_Start"):
        zelkapi.Library(stub.path, queue=stub.path)
    assert stub.take() == []


def test_path_from_the_environment(stub: Stub, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("ZELKAPI_LIBRARY", str(stub.path))
    with zelkapi.Library() as library:
        assert library.api.path == str(stub.path.resolve())


def test_the_name_counts_not_what_it_leads_to(stub_path: Path, tmp_path: Path) -> None:
    """Log and ini stand beside the name: a symbolic link is loaded as such."""
    link = tmp_path / "libZelkApi-64.so"
    link.symlink_to(stub_path)
    program = f"import zelkapi; zelkapi.Library({str(link)!r}); print(open('/proc/self/maps').read())"
    done = subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, check=True)
    assert "libZelkApi-64.so" in done.stdout


def test_another_copy_in_one_process(stub: Stub, tmp_path: Path) -> None:
    with zelkapi.Library(stub.path):
        pass
    copy = tmp_path / "libZelkApi-64.so"
    shutil.copy(stub.path, copy)
    assert f"has loaded {stub.path.resolve()} already" in refused(copy).reason


def test_a_start_that_fails_leaves_nothing(stub: Stub) -> None:
    stub.say(False)
    with pytest.raises(zelkapi.ZelkError, match="ZELK_Init failed"):
        zelkapi.Library(stub.path)
    assert stub.take()[:1] == ["Init"]
    stub.say(True)
    with zelkapi.Library(stub.path) as library:
        assert len(library.channels) == 30
