# SPDX-License-Identifier: GPL-2.0-only
"""The packets of a recording: datagrams, and the bytes of each TCP connection both ways."""
import struct

SYN = 0x02


def read_pcap(path):
    with open(path, "rb") as file:
        data = file.read()
    at, packets = 24, []
    while at + 16 <= len(data):
        length = struct.unpack_from("<I", data, at + 8)[0]
        packets.append(data[at + 16 : at + 16 + length])
        at += 16 + length
    return packets


def address(data):
    return ".".join(str(byte) for byte in data)


class Connection:
    """One TCP connection. pieces: (index of the packet, True when the client sent it, new bytes), in order."""

    def __init__(self, client, server):
        self.client, self.server = client, server
        self.pieces = []
        self.next = {}
        self.waiting = {True: [], False: []}

    def add(self, index, from_client, sequence, flags, payload):
        if flags & SYN:
            self.next[from_client] = (sequence + 1) & 0xFFFFFFFF
        elif payload:
            self.waiting[from_client].append((index, sequence, payload))
            while self.take_next(from_client):
                pass

    def take_next(self, from_client):
        """Packets may be recorded in another order than they were sent, and be sent twice."""
        for place, (index, sequence, payload) in enumerate(self.waiting[from_client]):
            old = (self.next[from_client] - sequence) & 0xFFFFFFFF
            if old < 0x80000000:
                del self.waiting[from_client][place]
                if len(payload) > old:
                    self.pieces.append((index, from_client, payload[old:]))
                    self.next[from_client] = (sequence + len(payload)) & 0xFFFFFFFF
                return True
        return False

    def bytes(self, from_client):
        return b"".join(piece for _, client, piece in self.pieces if client == from_client)


class Traffic:
    """connections in the order of their opening; datagrams as (source, source port, destination, port, payload)."""

    def __init__(self, path):
        self.connections, self.datagrams = [], []
        self.open = {}
        for index, packet in enumerate(read_pcap(path)):
            if packet[12:14] == b"\x08\x00":
                self.take_ip(index, packet[14:])

    def take_ip(self, index, packet):
        header = (packet[0] & 15) * 4
        source, destination = address(packet[12:16]), address(packet[16:20])
        body = packet[header : struct.unpack_from(">H", packet, 2)[0]]
        ports = struct.unpack_from(">HH", body)
        if packet[9] == 17:
            self.datagrams.append((source, ports[0], destination, ports[1], body[8:]))
        elif packet[9] == 6:
            self.take_tcp(index, (source, ports[0]), (destination, ports[1]), body)

    def take_tcp(self, index, source, destination, body):
        sequence, flags = struct.unpack_from(">I", body, 4)[0], body[13]
        if flags & 0x12 == SYN:
            connection = Connection(source, destination)
            self.connections.append(connection)
            self.open[(source, destination)] = (connection, True)
            self.open[(destination, source)] = (connection, False)
        if (source, destination) in self.open:
            connection, from_client = self.open[(source, destination)]
            connection.add(index, from_client, sequence, flags, body[(body[12] >> 4) * 4 :])
