# SPDX-License-Identifier: GPL-2.0-only
"""Which numbers may be dialled."""
import re

from .constants import NUMBER_LENGTH
from .errors import NumberError

_ALLOWED = re.compile(r"[0-9*#+]*")


def check_number(number: str, what: str = "number", empty: bool = False) -> bytes:
    """The number's bytes; NumberError for one that the line would get otherwise than written, and for an empty one
    unless `empty`."""
    if not isinstance(number, str):
        raise NumberError(f"the {what} {number!r} is not a text")
    if not number and not empty:
        raise NumberError(f"the {what} is empty")
    if len(number) > NUMBER_LENGTH:
        raise NumberError(f"the {what} {number!r} has {len(number)} characters, {NUMBER_LENGTH} reach the line")
    if not _ALLOWED.fullmatch(number):
        raise NumberError(f"the {what} {number!r} has other characters than digits, *, # and +")
    return number.encode("ascii")
