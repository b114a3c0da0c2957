#!/usr/bin/env python3
"""A name server that counts: names.py ADDRESS ANSWER LOG

Answers every query for an IPv4 address with ANSWER and all others with nothing. Writes a line with the name
to LOG for each query for an IPv4 address. Prints "ready" once it listens.
"""

import socket
import sys


def main():
    address, answer, log = sys.argv[1:]
    server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    server.bind((address, 53))
    print("ready", flush=True)
    while True:
        question, asker = server.recvfrom(512)
        end = question.index(0, 12) + 5  # the name, its zero, type and class
        wants_ipv4 = question[end - 4:end - 2] == b"\0\1"
        if wants_ipv4:
            with open(log, "a", encoding="ascii") as lines:
                print(question[12:end - 4].decode("latin-1"), file=lines)
        head = question[:2] + b"\x81\x80\0\1" + (b"\0\1" if wants_ipv4 else b"\0\0") + bytes(4)
        record = b"\xc0\x0c\0\1\0\1\0\0\0\0\0\4" + socket.inet_aton(answer)
        server.sendto(head + question[12:end] + (record if wants_ipv4 else b""), asker)


main()
