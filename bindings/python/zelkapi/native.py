# SPDX-License-Identifier: GPL-2.0-only
"""Loads native libraries, and says in words what is wrong with those that cannot be."""
import ctypes
import os
import struct
from typing import Iterable, List, Optional

from .errors import LibraryError

_BITS = struct.calcsize("P") * 8
_PE_BITS = {0x14C: 32, 0x8664: 64, 0xAA64: 64}


def encode_path(path: "os.PathLike[str] | str") -> bytes:
    """A path as the library takes it: the system's code page on Windows, the file system's bytes elsewhere."""
    text = os.fspath(path)
    if "\0" in text:
        raise ValueError("a path holds a zero character")
    return text.encode("mbcs") if os.name == "nt" else os.fsencode(text)


def _word_size(head: bytes) -> Optional[int]:
    """The bits of the library that begins so, None for what is no library of this system."""
    if os.name == "nt":
        if head[:2] != b"MZ" or len(head) < 0x40:
            return None
        at = int.from_bytes(head[0x3C:0x40], "little")
        return _PE_BITS.get(int.from_bytes(head[at + 4 : at + 6], "little")) if head[at : at + 2] == b"PE" else None
    return {1: 32, 2: 64}.get(head[4]) if head[:4] == b"\x7fELF" and len(head) > 4 else None


def _cut_short(head: bytes, size: int) -> bool:
    """Whether the file ends before its table of sections does, which stands last; the system's loader would crash."""
    if head[:4] != b"\x7fELF" or len(head) < 64:
        return False
    (table,) = struct.unpack_from("<Q", head, 0x28)
    entry, count = struct.unpack_from("<HH", head, 0x3A)
    return bool(table + entry * count > size)


def _check_file(path: str) -> None:
    try:
        with open(path, "rb") as file:
            head = file.read(4096)
            size = os.fstat(file.fileno()).st_size
    except OSError as error:
        raise LibraryError(path, error.strerror or str(error)) from None
    bits = _word_size(head)
    if bits is None:
        raise LibraryError(path, "is not a shared library of this system")
    if bits != _BITS:
        raise LibraryError(path, f"is a library of {bits} bits, and this Python has {_BITS}")
    if _cut_short(head, size):
        raise LibraryError(path, "is cut short")


def missing_names(library: ctypes.CDLL, names: Iterable[str]) -> List[str]:
    """Those of the names that the library does not export."""
    return [name for name in names if not hasattr(library, name)]


def load(path: "os.PathLike[str] | str", names: Iterable[str], search: bool = False) -> ctypes.CDLL:
    """Loads the library of this path, which has to export all the names. The name as given counts, not what a symbolic
    link leads to: log and ini stand beside it. `search`: a mere name, for which the system looks in its own folders.
    LibraryError names the file and the reason."""
    full = os.fspath(path) if search else os.path.abspath(os.fspath(path))
    if not search:
        _check_file(full)
    try:
        library = ctypes.CDLL(full)
    except OSError as error:
        reason = str(error)
        raise LibraryError(full, reason[len(full) + 2 :] if reason.startswith(full + ": ") else reason) from None
    missing = missing_names(library, names)
    if missing:
        raise LibraryError(full, "does not export " + ", ".join(missing))
    return library
