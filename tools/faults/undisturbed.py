"""A modem that no fault strikes, and is asked the requests that another one has carried out: what it
has stored afterwards is what the other one must have, too."""

import os
import signal
import socket
import struct
import subprocess

NAME_SERVICE = (1, 0xFFFFFFFE)
NEW_SERVER, NEW_LOOKUP = 4, 10
HEADER = struct.Struct("<BHHH")  # kind, transaction, message, length


class Client:
    """Asks over a server's unix socket, where each packet has the other side's address in front."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.socket.settimeout(20)
        self.socket.connect(path)
        self.ports = {}
        self.transaction = 0
        self.socket.send(struct.pack("<7I", *NAME_SERVICE, NEW_LOOKUP, 0, 0, 0, 0))
        while (listed := self.next_server()) != 0:
            assert listed is not None, "the list of services ends with an empty entry"

    def next_server(self):
        """The service that a packet of the name service tells of, 0 at the end of its list."""
        packet = self.socket.recv(70000)
        if struct.unpack_from("<II", packet) != NAME_SERVICE:
            return None
        command, service, _, node, port = struct.unpack_from("<5I", packet, 8)
        if command == NEW_SERVER and service != 0:
            self.ports[service] = (node, port)
        return service

    def ask(self, service, message, body):
        """Returns when the response is there."""
        self.transaction += 1
        address = struct.pack("<II", *self.ports[service])
        self.socket.send(address + HEADER.pack(0, self.transaction, message, len(body)) + body)
        while True:
            packet = self.socket.recv(70000)
            kind, transaction, _, _ = HEADER.unpack_from(packet, 8)
            if packet[:8] == address and kind == 2 and transaction == self.transaction:
                return


def state_after(program, state, socket_path, requests):
    """Has a modem whose state is the folder `state` carry out requests (service, message, body)."""
    environment = {"TOVI_STATE": state, "TOVI_LOG": "/dev/null", "PATH": os.environ["PATH"]}
    with subprocess.Popen([program, "serve", "--unix", socket_path], env=environment,
                          stderr=subprocess.PIPE) as server:
        try:
            assert b"ready" in server.stderr.readline()
            client = Client(socket_path)
            for request in requests:
                client.ask(*request)
        finally:
            server.send_signal(signal.SIGTERM)
