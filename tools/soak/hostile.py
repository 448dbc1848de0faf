"""Hostile clients of a simulated modem, until SIGTERM: hostile.py SOCKET CLIENTS

CLIENTS connections send rubbish, packets cut short and too long, lookups and requests whose answers
they never read, and hang up in the middle.
"""
import random
import signal
import socket
import struct
import sys

MAX_PACKET = 8 + 7 + 0xFFFF
NAME_SERVICE = struct.pack("<II", 1, 0xFFFFFFFE)

path, CLIENTS = sys.argv[1], int(sys.argv[2])
rng = random.Random(1)


def connect():
    client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    client.setblocking(False)
    try:
        client.connect(path)
    except OSError:
        client.close()
        return None
    return client


def lookup():
    return NAME_SERVICE + struct.pack("<5I", rng.choice((10, 11, 4, 99)), rng.choice((0, 0xFFE4, 3)), 0, 0, 0)


def request():
    body = rng.randbytes(rng.choice((0, 3, 20, 529)))
    port = rng.randrange(1, 8)
    length = rng.choice((len(body), rng.randrange(65536)))
    header = struct.pack("<BHHH", rng.choice((0, 0, 0, 2, 4)), rng.randrange(65536), rng.choice((2, 0x2F, 0x24, 0x207)), length)
    return struct.pack("<II", 0, port) + header + body


def nv_read():
    head = bytes.fromhex("01040002000000" "0204000c000000" "100002")
    body = head + struct.pack("<III", 0, 0, 550) + bytes(500)
    return struct.pack("<II", 0, rng.randrange(1, 8)) + struct.pack("<BHHH", 0, 1, 2, len(body)) + body


def too_short():
    return rng.randbytes(rng.randrange(1, 8))


def too_long():
    return bytes(MAX_PACKET + rng.randrange(1, 1000))


KINDS = (lookup, request, request, nv_read, nv_read, nv_read, too_short, too_long)
clients = [None] * CLIENTS
sent = hung_up = 0
ends = False


def end(*_):
    global ends
    ends = True


signal.signal(signal.SIGTERM, end)
while not ends:
    for i in range(CLIENTS):
        if clients[i] is None or rng.random() < 0.001:
            if clients[i] is not None:
                clients[i].close()
            clients[i] = connect()
            continue
        try:
            for _ in range(rng.randrange(1, 20)):
                clients[i].send(rng.choice(KINDS)())
                sent += 1
        except BlockingIOError:
            pass
        except OSError:
            hung_up += 1
            clients[i].close()
            clients[i] = None
print(f"        {sent} packets of hostile clients, {hung_up} hung up on")
