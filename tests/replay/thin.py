# SPDX-License-Identifier: GPL-2.0-only
"""Captures as they are kept: what dumpcap wrote, without what tells of the machine and without segments that carry nothing."""
SECTION, INTERFACE, PACKET = 0x0A0D0D0A, 1, 6
ETHERNET = 14
RESOLUTION = 9
SYN_FIN_RST = 0x07


def blocks(data):
    """(type, body) of each block."""
    at = 0
    while at + 12 <= len(data):
        size = int.from_bytes(data[at + 4:at + 8], "little")
        yield int.from_bytes(data[at:at + 4], "little"), data[at + 8:at + size - 4]
        at += size


def block(kind, body):
    size = (len(body) + 12).to_bytes(4, "little")
    return kind.to_bytes(4, "little") + size + body + size


def resolution(options):
    """Of an interface's options the one that says in which unit its times are."""
    at = 0
    while at + 4 <= len(options):
        code, length = (int.from_bytes(options[at + i:at + i + 2], "little") for i in (0, 2))
        if code == RESOLUTION:
            return options[at:at + 8] + bytes(4)
        at += 4 + (length + 3) // 4 * 4
    return b""


def carries_something(packet):
    """Whether an Ethernet packet of TCP over IPv4 has a payload, or begins or ends a connection."""
    ip = packet[ETHERNET:]
    tcp = ip[(ip[0] & 15) * 4:]
    length = int.from_bytes(ip[2:4], "big") - (ip[0] & 15) * 4 - (tcp[12] >> 4) * 4
    return length > 0 or tcp[13] & SYN_FIN_RST != 0


def thin(data, card=None):
    """The capture with the packets that carry something; with an address (4 bytes), those of that card alone."""
    kept = b""
    for kind, body in blocks(data):
        if kind == SECTION:
            kept += block(kind, body[:16])
        elif kind == INTERFACE:
            kept += block(kind, body[:8] + resolution(body[8:]))
        elif kind == PACKET:
            length = int.from_bytes(body[12:16], "little")
            packet = body[20:20 + length]
            addresses = packet[ETHERNET + 12:ETHERNET + 20]
            if carries_something(packet) and (card is None or card in (addresses[:4], addresses[4:])):
                kept += block(kind, body[:20 + (length + 3) // 4 * 4])
    return kept
