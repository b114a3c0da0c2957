"""A name server for one name: one_name.py ADDRESS NAME HOST [FILE]

Answers queries for NAME on port 53 of ADDRESS with the IPv4 address HOST. While FILE exists, and always for
other names, it answers that there is no such name.
"""

import os
import socket
import sys

address, name, host = sys.argv[1:4]
switch = sys.argv[4] if len(sys.argv) > 4 else ''
server = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
server.bind((address, 53))
print('ready', flush=True)
while True:
    query, peer = server.recvfrom(512)
    at, labels = 12, []
    while query[at]:
        labels.append(query[at + 1:at + 1 + query[at]].decode())
        at += 1 + query[at]
    question = query[12:at + 5]
    kind = int.from_bytes(query[at + 1:at + 3], 'big')
    known = '.'.join(labels) == name and not os.path.exists(switch)
    answers = b''
    if known and kind == 1:
        answers = b'\xc0\x0c\x00\x01\x00\x01\x00\x00\x00\x00\x00\x04' + socket.inet_aton(host)
    code = 0 if known else 3
    header = query[:2] + bytes([0x84, 0x80 | code]) + b'\x00\x01' + (b'\x00\x01' if answers else b'\x00\x00')
    server.sendto(header + b'\x00\x00\x00\x00' + question + answers, peer)
