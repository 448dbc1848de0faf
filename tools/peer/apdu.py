"""Resets the eUICC's memory through qmi-proxy, byte by byte: opens a logical channel to the ISD-R,
sends an APDU, closes the channel. qmicli of this release has no option for it.

usage: apdu.py DEVICE      prints the card's answer
"""
import socket
import struct
import sys

ISD_R = bytes.fromhex("a0000005591010ffffffff8900000100")
MEMORY_RESET = bytes.fromhex("80e2910007bf3404820205e000")
SLOT = bytes([2])
CONTROL, UIM = 0x00, 0x0B


class Proxy:
    def __init__(self, device):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(10)
        self.socket.connect(b"\0qmi-proxy")
        self.transaction = 0
        self.client = 0
        self.ask(CONTROL, 0xFF00, t01=device.encode())
        self.client = self.ask(CONTROL, 0x22, t01=bytes([UIM]))[0x01][1]

    def receive(self, count):
        data = b""
        while len(data) < count:
            piece = self.socket.recv(count - len(data))
            if not piece:
                sys.exit("the proxy has hung up")
            data += piece
        return data

    def ask(self, service, message_id, **tlvs):
        """The response's TLVs, by number; `tlvs` are t01=value and so on."""
        header = "<BBHH" if service == CONTROL else "<BHHH"
        body = b"".join(struct.pack("<BH", int(name[1:], 16), len(v)) + v for name, v in tlvs.items())
        self.transaction += 1
        message = struct.pack(header, 0, self.transaction, message_id, len(body)) + body
        client = 0 if service == CONTROL else self.client
        self.socket.sendall(struct.pack("<BHBBB", 1, 5 + len(message), 0, service, client) + message)
        while True:
            _, length, _, sender, _ = struct.unpack("<BHBBB", self.receive(6))
            message = self.receive(length - 5)
            kind, transaction = struct.unpack_from(header[:3], message)
            if sender == service and kind in (1, 2) and transaction == self.transaction:
                break
        answers, rest = {}, message[struct.calcsize(header) :]
        while rest:
            tlv, length = struct.unpack_from("<BH", rest)
            answers[tlv], rest = rest[3 : 3 + length], rest[3 + length :]
        if answers[0x02] != bytes(4):
            sys.exit(f"message {message_id:#x}: refused with {answers[0x02].hex()}")
        return answers


proxy = Proxy(sys.argv[1])
channel = proxy.ask(UIM, 0x42, t01=SLOT, t10=bytes([len(ISD_R)]) + ISD_R)[0x10]
apdu = struct.pack("<H", len(MEMORY_RESET)) + MEMORY_RESET
print(proxy.ask(UIM, 0x3B, t01=SLOT, t02=apdu, t10=channel)[0x10][2:].hex())
proxy.ask(UIM, 0x3F, t01=SLOT, t11=channel)
proxy.ask(CONTROL, 0x23, t01=bytes([UIM, proxy.client]))
