"""Another machine beside the board: it answers ARP, and takes and sends UDP datagrams that fit into one frame.

Its cable is a socket pair that goes to a network card of its own, for the emulator's network takes every packet for its
own, whoever it is addressed to. So nothing touches the network of the host, no privileged port is needed, and any
number of boards have a neighbour each.

    neighbour = Neighbour()
    board = Board(directory, neighbour=neighbour.cable)
    neighbour.connect(board)
"""

import collections
import ipaddress
import select
import socket
import struct

# In the emulator's network, where nobody has them: before the second card knows its neighbour, nothing gets out.
ADDRESS, _BOARD_ADDRESS = "10.0.2.9", "10.0.2.8"

_OWN_IP = ipaddress.ip_address(ADDRESS).packed
_OWN_MAC = bytes.fromhex("020000000009")
_FRAME_SIZE = 1514

_ETHERNET = struct.Struct("!6s6sH")
_ARP = struct.Struct("!HHBBH6s4s6s4s")
_IP = struct.Struct("!BBHHHBBH4s4s")
_UDP = struct.Struct("!HHHH")
_TYPE_IP, _TYPE_ARP = 0x0800, 0x0806
_ARP_REQUEST, _ARP_REPLY = 1, 2
_PROTOCOL_UDP = 17

# Sent to, or come from, `port` of a `peer` (its addresses) at our `own_port`.
Datagram = collections.namedtuple("Datagram", "peer port own_port data")


def _checksum(header):
    total = sum(struct.unpack(f"!{len(header) // 2}H", header))
    return ~((total & 0xFFFF) + (total >> 16)) & 0xFFFF


class Neighbour:
    """The machine. `cable` is the end that belongs to the board."""

    def __init__(self):
        self._socket, self.cable = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)

    @staticmethod
    def connect(board):
        """Has the board's second card know its neighbour, and waits until its driver sees the cable."""
        board.sh(f"ip address replace {_BOARD_ADDRESS} peer {ADDRESS} dev eth1 && ip link set eth1 up && "
                 "until [ $(cat /sys/class/net/eth1/carrier) = 1 ]; do usleep 50000; done", check=True)

    def shut_down(self):
        """Whoever waits in receive() gets OSError."""
        self._socket.shutdown(socket.SHUT_RDWR)

    def receive(self, timeout=None):
        """The next datagram for us, or None when nothing came for so many seconds."""
        while True:
            if not select.select([self._socket], [], [], timeout)[0]:
                return None
            frame = self._socket.recv(_FRAME_SIZE)
            if not frame:
                raise OSError("the neighbour was shut down")
            datagram = self._take(frame)
            if datagram:
                return datagram

    def send(self, datagram):
        """Sends one to the board."""
        (mac, address), data = datagram.peer, datagram.data
        # A UDP checksum of 0 stands for none.
        udp = _UDP.pack(datagram.own_port, datagram.port, _UDP.size + len(data), 0) + data
        fields = [0x45, 0, _IP.size + len(udp), 0, 0, 64, _PROTOCOL_UDP, 0, _OWN_IP, address]
        fields[7] = _checksum(_IP.pack(*fields))
        self._put(mac, _TYPE_IP, _IP.pack(*fields) + udp)

    def _put(self, mac, kind, payload):
        frame = _ETHERNET.pack(mac, _OWN_MAC, kind) + payload
        assert len(frame) <= _FRAME_SIZE, "more than a frame holds"
        self._socket.send(frame)

    def _take(self, frame):
        _, mac, kind = _ETHERNET.unpack_from(frame)
        payload = frame[_ETHERNET.size:]
        if kind == _TYPE_ARP:
            self._answer(payload)
        return self._datagram(mac, payload) if kind == _TYPE_IP else None

    def _answer(self, payload):
        *kinds, operation, mac, address, _, wanted = _ARP.unpack_from(payload)
        if operation == _ARP_REQUEST and wanted == _OWN_IP:
            self._put(mac, _TYPE_ARP, _ARP.pack(*kinds, _ARP_REPLY, _OWN_MAC, _OWN_IP, mac, address))

    @staticmethod
    def _datagram(mac, packet):
        version, _, length, _, _, _, protocol, _, source, target = _IP.unpack_from(packet)
        if target != _OWN_IP or protocol != _PROTOCOL_UDP:
            return None
        udp = packet[(version & 15) * 4:length]
        port, own_port, size, _ = _UDP.unpack_from(udp)
        return Datagram((mac, source), port, own_port, udp[_UDP.size:size])
