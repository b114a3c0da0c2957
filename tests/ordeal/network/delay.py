#!/usr/bin/env python3
"""Carries packets between two network namespaces, each with a delay.

    delay.py NAMESPACE DEVICE NAMESPACE DEVICE MILLISECONDS

Makes a TUN device in each namespace (the caller gives them addresses) and forwards packets from one to the
other after that many milliseconds. Prints "ready" and runs until it is killed.
"""

import ctypes
import fcntl
import heapq
import os
import select
import struct
import sys
import time

TUNSETIFF = 0x400454CA
IFF_TUN_NO_PI = 0x0001 | 0x1000
CLONE_NEWNET = 0x40000000


def tun_in(namespace, device):
    libc = ctypes.CDLL(None, use_errno=True)
    with open(f"/run/netns/{namespace}") as where:
        if libc.setns(where.fileno(), CLONE_NEWNET) != 0:
            raise OSError(ctypes.get_errno(), f"namespace {namespace}")
    tun = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
    fcntl.ioctl(tun, TUNSETIFF, struct.pack("16sH", device.encode(), IFF_TUN_NO_PI))
    return tun


def main():
    first, first_device, second, second_device, milliseconds = sys.argv[1:]
    late = int(milliseconds) / 1000
    tuns = [tun_in(first, first_device), tun_in(second, second_device)]
    other = {tuns[0]: tuns[1], tuns[1]: tuns[0]}
    print("ready", flush=True)
    waiting = []
    number = 0
    while True:
        pause = max(0.0, waiting[0][0] - time.monotonic()) if waiting else None
        for tun in select.select(tuns, [], [], pause)[0]:
            try:
                packet = os.read(tun, 65536)
            except OSError:  # the device is not up yet
                continue
            number += 1
            heapq.heappush(waiting, (time.monotonic() + late, number, other[tun], packet))
        while waiting and waiting[0][0] <= time.monotonic():
            _, _, tun, packet = heapq.heappop(waiting)
            try:
                os.write(tun, packet)
            except OSError:  # the device is down: the packet is lost
                pass


main()
