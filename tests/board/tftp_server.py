"""A TFTP server beside the board that misbehaves by plan (RFC 1350, options of RFC 2347 to 2349).

    server.files["image.rom"] = [image]                       # what is sent each time it is asked for
    server.files["image.rom"] = [image, other]                # something else from the second time on
    server.files["image.rom"] = [Stops(image[:5000])]         # falls silent after these bytes
    server.files["image.rom"] = [Stops(image[:5000], "worn out")]    # an error packet after them
    dev.command(f"flash download network {server.address} image.rom")
    assert server.requests == ["image.rom"] * 2
"""

import struct
import threading
import time

import neighbour
from neighbour import Datagram, Neighbour

_PORT = 69
_READ, _, _DATA, _ACKNOWLEDGEMENT, _ERROR, _OPTIONS = range(1, 7)
_NOT_FOUND, _OTHER = 1, 0
BLOCK, _LARGEST_BLOCK = 512, 1428
# An unacknowledged packet is sent again after so long, so often. Sooner, what the client repeats is a late copy: who
# answered it would send everything twice from there on. The client does not take anything while the shell installs what came
# so far; on busy cores that may be minutes.
_AGAIN_SECONDS, _TRIES = 0.2, 1500


class Stops:
    """A file of which no more than `data` is sent, less what is no whole block; then an error packet that `says`
    something, or nothing more."""

    def __init__(self, data, says=None):
        self.data, self.says = data, says


def _words(*numbers):
    return struct.pack(f"!{len(numbers)}H", *numbers)


def _error(code, text):
    return _words(_ERROR, code) + text.encode() + b"\0"


class _Transfer:
    """One client's. `packet` is what it has to acknowledge; empty in silence, None when nothing is left to say."""

    def __init__(self, file, options):
        self._stops = file if isinstance(file, Stops) else None
        self._data = self._stops.data if self._stops else file
        self._block_size, self._number, self._is_last = BLOCK, 0, False
        self.tries, self.sent_at = 0, 0.0
        accepted = self._accept(options)
        self.packet = _words(_OPTIONS) + b"".join(f"{key}\0{value}\0".encode() for key, value in accepted.items())
        if not accepted:
            self._next()

    def _accept(self, options):
        accepted = {}
        if "blksize" in options:
            self._block_size = min(int(options["blksize"]), _LARGEST_BLOCK)
            accepted["blksize"] = self._block_size
        if "tsize" in options:
            accepted["tsize"] = len(self._data)
        return accepted

    def acknowledge(self, number):
        """Goes on to the next packet, unless this acknowledges another one than the last."""
        if number == self._number & 0xFFFF:
            self._next()

    def _next(self):
        start = self._number * self._block_size
        block = self._data[start:start + self._block_size]
        self._number += 1
        self.tries, self.sent_at = 0, 0.0
        if self._is_last:
            self.packet = None
        elif len(block) < self._block_size and self._stops:
            self.packet = _error(_OTHER, self._stops.says) if self._stops.says else b""
            self.tries = _TRIES  # nobody acknowledges an error
        else:
            self.packet = _words(_DATA, self._number & 0xFFFF) + block
            self._is_last = len(block) < self._block_size


class TftpServer:
    """The server, in a thread of its own. `files` names what it has, `requests` is what it was asked for, in order."""

    address = neighbour.ADDRESS

    def __init__(self):
        self._host = Neighbour()
        self.cable, self.connect = self._host.cable, self._host.connect
        self.files, self.requests = {}, []
        self._transfers = {}
        threading.Thread(target=self._run, daemon=True, name="TFTP server").start()

    def renew(self):
        """Has no files, no clients, and was asked for nothing."""
        self.files, self.requests, self._transfers = {}, [], {}

    def shut_down(self):
        """Ends the thread."""
        self._host.shut_down()

    def _run(self):
        try:
            while True:
                datagram = self._host.receive(_AGAIN_SECONDS if self._transfers else None)
                if datagram:
                    self._take(datagram)
                for client in list(self._transfers):
                    self._send(client)
        except OSError:  # shut down
            pass

    def _take(self, datagram):
        client = datagram.peer, datagram.port
        operation, number = struct.unpack_from("!HH", datagram.data)
        if datagram.own_port == _PORT and operation == _READ:
            if client not in self._transfers:
                self._start(client, datagram.data[2:].decode("latin-1").split("\0"))
        elif client in self._transfers and operation == _ACKNOWLEDGEMENT:
            self._transfers[client].acknowledge(number)
        elif operation == _ERROR:
            self._transfers.pop(client, None)

    def _start(self, client, words):
        name, _, *options = words
        self.requests.append(name)
        planned = self.files.get(name)
        if not planned:
            self._host.send(Datagram(*client, self._port(client), _error(_NOT_FOUND, "File not found")))
            return
        file = planned[min(self.requests.count(name), len(planned)) - 1]
        self._transfers[client] = _Transfer(file, dict(zip(options[::2], options[1::2])))

    def _send(self, client):
        """Sends what is to be acknowledged, once more if need be; forgets who is done or does not answer. Who met
        silence is remembered: what it repeats is no new request."""
        transfer = self._transfers.get(client)
        if transfer and transfer.packet and time.monotonic() - transfer.sent_at >= _AGAIN_SECONDS:
            self._host.send(Datagram(*client, self._port(client), transfer.packet))
            transfer.tries += 1
            transfer.sent_at = time.monotonic()
        if transfer and (transfer.packet is None or (transfer.packet and transfer.tries > _TRIES)):
            self._transfers.pop(client, None)

    @staticmethod
    def _port(client):
        """Ours for a transfer: every one has its own."""
        return 1024 + client[1] % 60000
