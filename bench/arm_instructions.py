#!/usr/bin/env python3
"""Counts the instructions that a 32-bit ARM client spends on a request and on an event, under qemu.

    bench/arm_instructions.py BUILD_DIR

Time under an emulator means nothing, instructions do. The client runs once with a few and once with many requests; the
difference is what each of them costs, in user space, on all threads.
"""
import os
import socket
import struct
import subprocess
import sys
import tempfile
import threading

FEW, MANY = 10, 60
REQUEST = (
    b'{"version":1,"timestamp":1700000000.123456,"data":{"requester":"portal","session":"7f3a90c24d1e",'
    b'"reason":"periodic check of the gateway","limits":{"load":80,"temperature":70},"verbose":false}}'
)
FORMAT = b"A(iBBBBi)\0"


class Peer:
    """The agent's end of the connection."""

    def __init__(self, connection):
        self.connection = connection
        self.pending = b""

    def take(self, length_offset, added):
        """The next message, whose length stands at an offset and does not count `added` bytes."""
        while True:
            if len(self.pending) >= length_offset + 4:
                end = struct.unpack_from("<I", self.pending, length_offset)[0] + added
                if len(self.pending) >= end:
                    message, self.pending = self.pending[:end], self.pending[end:]
                    return message
            block = self.connection.recv(1 << 16)
            if not block:
                sys.exit("the client has ended")
            self.pending += block


class Library(Peer):
    program = "bench_client_zal"

    def meet(self):
        self.receive()  # it asks for its configuration
        self.send(8, b"", b"", b"{}")
        self.receive()  # it subscribes its methods

    def ask(self, kind, payload):
        name = {"request": b"system/cpu?include=load", "event": b"events"}[kind]
        self.send(5, b"telemetry", name, payload)

    def send(self, code, service, name, payload):
        texts = (service + b"\0", name + b"\0", b"\0", payload)
        body = FORMAT + struct.pack("<II", 1, code)
        body += b"".join(struct.pack("<I", len(text)) + text for text in texts) + struct.pack("<I", 0)
        self.connection.sendall(b"tpl\0" + struct.pack("<I", 8 + len(body)) + body)

    def receive(self):
        return self.take(4, 0)


class ByHand(Peer):
    program = "bench_client_base"

    def meet(self):
        pass

    def ask(self, kind, payload):
        message = {"request": b"s", "event": b"e"}[kind] + payload
        self.connection.sendall(struct.pack("<I", len(message)) + message)

    def receive(self):
        return self.take(0, 4)


def work(peer, kind, count):
    if kind == "event":
        peer.ask(kind, b'{"count":%d}' % count)
    for _ in range(count):
        if kind == "request":
            peer.ask(kind, REQUEST)
        expected = {"request": b'"hostname":"gateway-17"', "event": b'"kind":"threshold"'}[kind]
        if expected not in peer.receive():
            sys.exit("a wrong answer")


def instructions(programs, make_peer, kind, count):
    """Of a client's whole life, in which it does `count` times its work."""
    with tempfile.TemporaryDirectory() as directory:
        path, log = directory + "/socket", directory + "/log"
        os.mkfifo(log)
        counted = 0

        def read_log():
            nonlocal counted
            with open(log, "rb") as lines:
                while block := lines.read(1 << 20):
                    counted += block.count(b"\nTrace")

        reader = threading.Thread(target=read_log)
        reader.start()
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(path)
        listener.listen(1)
        listener.settimeout(60)
        one_by_one = ["qemu-arm", "-L", "/", "-singlestep", "-d", "exec,nochain", "-D", log]
        client = subprocess.Popen([*one_by_one, f"{programs}/{make_peer.program}", path], stderr=subprocess.DEVNULL)
        try:
            peer = make_peer(listener.accept()[0])
            peer.connection.settimeout(60)
            peer.meet()
            work(peer, kind, count)
        finally:
            client.kill()
            client.wait()
            reader.join()
        return counted


def main():
    programs = sys.argv[1] + "/bench"
    print(f"{'instructions on ARM':20}{'by hand':>12}{'library':>12}{'ratio':>8}")
    for kind in ("request", "event"):
        each = []
        for peer in (ByHand, Library):
            few, many = (instructions(programs, peer, kind, count) for count in (FEW, MANY))
            each.append((many - few) / (MANY - FEW))
        print(f"{kind:20}{each[0]:12.0f}{each[1]:12.0f}{each[1] / each[0]:8.2f}")


if __name__ == "__main__":
    main()
