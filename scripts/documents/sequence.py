# SPDX-License-Identifier: GPL-2.0-only
"""Mermaid's sequence diagrams as text: a line for each message, in columns that name who speaks and who hears."""
import re

PARTICIPANT = re.compile(r"^participant (\w+) as (.+)$")
MESSAGE = re.compile(r"^(\w+)(-->>|->>|--x)(\w+): (.+)$")
NOTE = re.compile(r"^Note over (\w+): (.+)$")
ARROWS = {"->>": "->", "-->>": "..>", "--x": "-x "}


def as_text(diagram):
    """The lines of a diagram's text; ValueError for a line that this reader does not know."""
    names, rows = {}, []
    for line in (line.strip() for line in diagram):
        participant, message, note = PARTICIPANT.match(line), MESSAGE.match(line), NOTE.match(line)
        if participant:
            names[participant[1]] = participant[2]
        elif message:
            rows.append((names[message[1]], ARROWS[message[2]], names[message[3]], message[4]))
        elif note:
            rows.append((names[note[1]], "", "", f"({note[2]})"))
        elif line not in ("", "sequenceDiagram"):
            raise ValueError(f"not a line of a sequence diagram that is read here: {line}")
    first, arrow, second = (max(len(row[column]) for row in rows) for column in range(3))
    return [f"{a:<{first}} {b:<{arrow}} {c:<{second}}  {text}" for a, b, c, text in rows]
