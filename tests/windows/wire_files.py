# SPDX-License-Identifier: GPL-2.0-only
"""Capture files for captures.py: those of tests/replay taken apart, and made anew in other formats, with sound and of other
times."""
import random
import struct

SECOND = 1_000_000_000
SOUND_PORT = 40000
CARD_PORT = 5854
FRAME = 32  # bytes of a trunk each 125 microseconds


def blocks_of(data):
    at = 0
    while at + 12 <= len(data):
        kind, size = struct.unpack_from("<II", data, at)
        yield kind, data[at + 8:at + size - 4]
        at += size


def packets_of(path):
    """(nanoseconds, bytes) of each packet of a pcapng file in units of a nanosecond, as dumpcap writes it here."""
    with open(path, "rb") as file:
        data = file.read()
    for kind, body in blocks_of(data):
        if kind == 6:
            _, high, low, size, _ = struct.unpack_from("<IIIII", body)
            yield (high << 32) + low, body[20:20 + size]


def pcap(packets, order="<", nanoseconds=False):
    unit = 1 if nanoseconds else 1000
    magic = 0xA1B23C4D if nanoseconds else 0xA1B2C3D4
    parts = [struct.pack(order + "IHHiIII", magic, 2, 4, 0, 0, 262144, 1)]
    for time, packet in packets:
        seconds = time // SECOND & 0xFFFFFFFF
        parts += [struct.pack(order + "IIII", seconds, time % SECOND // unit, len(packet), len(packet)), packet]
    return b"".join(parts)


def block(kind, body):
    body += bytes(-len(body) % 4)
    size = len(body) + 12
    return struct.pack("<II", kind, size) + body + struct.pack("<I", size)


def pcapng(packets):
    parts = [block(0x0A0D0D0A, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1)),
             block(1, struct.pack("<HHI", 1, 0, 262144) + struct.pack("<HHB3xHH", 9, 1, 9, 0, 0))]
    parts += [block(6, struct.pack("<IIIII", 0, time >> 32, time & 0xFFFFFFFF, len(packet), len(packet)) + packet)
              for time, packet in packets]
    return b"".join(parts)


def datagram(source, target, from_port, to_port, payload):
    udp = struct.pack(">HHHH", from_port, to_port, 8 + len(payload), 0) + payload
    head = struct.pack(">BBHIBBH", 0x45, 0, 20 + len(udp), 0, 64, 17, 0) + source + target
    return bytes(12) + b"\x08\x00" + head + udp


def ends_of(packets):
    """(card, library): the addresses of the first control connection."""
    for _, packet in packets:
        if packet[23] == 6 and packet[36:38] == struct.pack(">H", CARD_PORT):
            return packet[30:34], packet[26:30]
    raise SystemExit("captures: a capture has no control connection")


def with_sound(packets, trunks, seconds):
    """The same with sound from a little after its begin for so long: random codes, now and then a packet that is missing and
    a reply that is late."""
    card, library = ends_of(packets)
    chance = random.Random(177)
    frames = 1440 // (FRAME * trunks)
    step = frames * 125_000
    added = []
    for number in range(seconds * SECOND // step):
        time = packets[0][0] + 100_000_000 + number * step + chance.randrange(50_000)
        late = 250_000_000 if number % 997 == 500 else chance.randrange(200_000, 400_000)
        for to_card in (False, True):
            payload = struct.pack("<HIBB", 0x55FF, number + (0 if to_card else 1), 0, 0) + chance.randbytes(frames * FRAME * trunks)
            ends = (library, card, SOUND_PORT, CARD_PORT) if to_card else (card, library, CARD_PORT, SOUND_PORT)
            if number % 401 != 400:
                added.append((time + (late if to_card else 0), datagram(*ends, payload)))
    return sorted(packets + added, key=lambda each: each[0])


def moved(packets, nanoseconds):
    return [(time + nanoseconds, packet) for time, packet in packets]


def status_page():
    """Of a library of which no process is left: a card, two trunks, channels in each state."""
    page = bytearray(340736)
    struct.pack_into("<8sIIIIQQ", page, 0, b"ZELKSTAT", 1, len(page), 4_000_000_001, 1, 1_700_000_000_000, 1_700_000_100_000)
    struct.pack_into("<II4sIQI", page, 256, 1, 100001, bytes([10, 0, 0, 9]), 2, 1_700_000_050_000, 3)
    for trunk in range(2):
        struct.pack_into("<IIQIII", page, 2816 + 64 * trunk, 0, 1, 1_700_000_060_000, 5, 6, 7)
        for slot in range(1, 32):
            struct.pack_into("<IIIIQ", page, 13056 + 64 * (32 * trunk + slot), slot, 1, 1, slot % 6, 1_700_000_070_000)
    return bytes(page)


def d_channel_file():
    frames = ["O 2013-05-09 14:03:07 0000 00 01 7F ", "I 2013-05-09 14:03:07 0000 00 01 73 ",
              "I 2013-07-09 14:03:08 0000 02 01 00 00 08 02 00 01 05 A1 04 03 80 90 A3 18 03 A9 83 81 "]
    return "".join(frame + "\r\n" for frame in frames).encode()
