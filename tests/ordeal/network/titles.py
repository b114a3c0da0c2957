#!/usr/bin/env python3
"""One player that opens one title after the other: titles.py LIBRARY URL...

Reads the first byte of each through the C interface and closes it. Exit code 1 if one fails.
"""

import ctypes
import sys


def first_byte(library, url):
    handle = ctypes.c_int()
    if library.x_fluvia_file_open(url.encode(), ctypes.byref(handle)) != 0:
        return False
    byte = ctypes.create_string_buffer(1)
    count = ctypes.c_uint()
    code = library.x_fluvia_file_read(handle, byte, 1, ctypes.byref(count))
    library.x_fluvia_file_close(handle)
    return code == 0 and count.value == 1


def main():
    library = ctypes.CDLL(sys.argv[1])
    results = [first_byte(library, url) for url in sys.argv[2:]]
    print(f"{sum(results)} of {len(results)} opened")
    return 0 if all(results) else 1


sys.exit(main())
