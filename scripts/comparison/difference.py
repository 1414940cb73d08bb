# SPDX-License-Identifier: GPL-2.0-only
"""Compares two runs of a scenario."""
import re
from collections import Counter

from scenarios import CANCELLED, CUT_SHORT


def first_difference(old, new):
    for at, (one, other) in enumerate(zip(old, new)):
        if one != other:
            return f"line {at + 1}: {one!r} / {other!r}"
    longer = old if len(old) > len(new) else new
    at = min(len(old), len(new))
    return f"{len(old)} / {len(new)} lines, the first one more: {longer[at]!r}"


# A second of what the echo canceller leaves. Later it depends on how its adaption falls together with the blocks of
# the sound, which begins at another place of a block in each run.
CANCELLED_BYTES = 8000


def sounds_difference(old, new, cut_short):
    """None when equal. Sounds that go on until somebody stops them end with that: there the shorter one must begin
    the other, and be most of it."""
    for at, (one, other) in enumerate(zip(old, new)):
        shorter, longer = sorted((one, other), key=len)
        is_cut = cut_short and longer.startswith(shorter) and len(shorter) > len(longer) * 3 // 4
        if one != other and not is_cut:
            return f"sound {at + 1}: {len(one)} bytes {one[:8].hex()}.. / {len(other)} bytes {other[:8].hex()}.."
    if len(old) != len(new):
        return f"{len(old)} / {len(new)} sounds"
    return None


def same_lines_in_another_order(name, old, new):
    """Threads of several cards write one log: which of them is first is the scheduler's choice."""
    return name.endswith(".log") and sorted(old) == sorted(new)


def without_late_ends(old, new):
    """The exchange's RELEASE COMPLETE is the last word of a call: at the end of a run it may still be under way."""
    ours, theirs = Counter(old), Counter(new)
    late = {line for line in ours | theirs if ours[line] != theirs[line] and re.search(r" I 08 02 \w\w \w\w 5a", line)}
    return [line for line in old if line not in late], [line for line in new if line not in late]


def compare(scenario, old, new):
    """(number of fields, a line for each that differs)"""
    lines, count = [], 0
    for kind in ("fields", "ends", "sounds"):
        ours, theirs = getattr(old, kind), getattr(new, kind)
        count += len(ours.keys() | theirs.keys())
        for name in sorted(ours.keys() ^ theirs.keys()):
            lines.append(f"{name}: only with the {'old' if name in ours else 'new'} build")
        for name in ours.keys() & theirs.keys():
            one, other = ours[name], theirs[name]
            if kind == "ends":
                length = min(len(one), len(other))
                one, other = one[:length], other[:length]
            if kind == "fields" and name.endswith((", card", " received")):
                one, other = without_late_ends(one, other)
            if kind == "sounds":
                if scenario in CANCELLED and name.startswith("recorded"):
                    one, other = ([part[:CANCELLED_BYTES] for part in parts] for parts in (one, other))
                found = sounds_difference(one, other, scenario in CUT_SHORT)
            else:
                same = one == other or same_lines_in_another_order(name, one, other)
                found = None if same else first_difference(one, other)
            if found is not None:
                lines.append(f"{name}: {found}")
    return count, sorted(lines)
