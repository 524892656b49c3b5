"""A neighbour of the board that passes its datagrams on to servers on this computer, port for port, and their answers back.
The emulator's own network takes whatever goes to port 69 of this computer for itself.

    relay = UdpRelay()
    dev = own_board(neighbour=relay.cable)
    relay.connect(dev.board)
"""

import socket
import threading

import neighbour
from neighbour import Datagram, Neighbour

_SERVERS = "127.0.0.1"
_LARGEST = 65536


class UdpRelay:
    """Runs in a thread of its own until it is shut down. The board reaches it at `address`."""

    address = neighbour.ADDRESS

    def __init__(self):
        self._host = Neighbour()
        self.cable, self.connect = self._host.cable, self._host.connect
        self._clients = {}
        threading.Thread(target=self._run, daemon=True, name="UDP relay").start()

    def shut_down(self):
        """Ends the thread."""
        self._host.shut_down()

    def _run(self):
        try:
            while True:
                self._to_servers(self._host.receive())
        except OSError:  # shut down
            for client in self._clients.values():
                client.close()

    def _to_servers(self, datagram):
        client = datagram.peer, datagram.port
        if client not in self._clients:
            self._clients[client] = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self._clients[client].bind((_SERVERS, 0))
            threading.Thread(target=self._from_servers, args=client, daemon=True, name="UDP relay, answers").start()
        self._clients[client].sendto(datagram.data, (_SERVERS, datagram.own_port))

    def _from_servers(self, peer, port):
        answers = self._clients[peer, port]
        while True:
            try:
                data, (_, own_port) = answers.recvfrom(_LARGEST)
            except ConnectionRefusedError:  # nobody listens there: to the board that is silence
                continue
            except OSError:
                return
            self._host.send(Datagram(peer, port, own_port, data))
