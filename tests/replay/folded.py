# SPDX-License-Identifier: GPL-2.0-only
"""Expectations as they are kept: what happens to channel after channel at one time is one line, "0-29 CHANNEL_STATE 1"."""
import re

LINE = re.compile(r"(\S+ +event +)(\d+)( .*)")


def folded(text):
    """The same of a text that is folded already."""
    lines = []
    begin = last = None  # the first channel of those that the last line is about, and its parts
    for line in text.splitlines():
        match = LINE.fullmatch(line)
        if match and last and (match[1].rstrip(), match[3]) == (last[1].rstrip(), last[3]) and int(match[2]) == int(last[2]) + 1:
            lines[-1] = f"{match[1].rstrip()} {begin}-{match[2]}{match[3]}"
        else:
            lines.append(line)
            begin = match[2] if match else None
        last = match
    return "".join(line + "\n" for line in lines)
