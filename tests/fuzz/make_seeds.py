#!/usr/bin/env python3
"""Writes the seed inputs of the fuzz corpora (tests/fuzz/<target>/seed-*).

Regression inputs (crash-*, leak-*, ...) are added by hand from the fuzzers'
findings and are never rewritten here."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def write(target, name, data):
    path = os.path.join(HERE, target, "seed-" + name)
    with open(path, "wb") as f:
        f.write(data)


def pixels(w, h):
    return bytes((x * 53 + y * 31 + c * 97) & 0xFF for y in range(h) for x in range(w) for c in range(3))


def ppic(w, h, data_offset=40, spare=b"", fmt=32, length=None):
    body = pixels(w, h)
    total = 40 + len(spare) + len(body)
    header = b"PPIC" + struct.pack(">IiiII", total if length is None else length, w, h, fmt, data_offset)
    return header + bytes(16) + spare + body


def binary_string():
    for w, h in [(1, 1), (2, 1), (1, 2), (3, 2), (5, 7), (16, 16), (40, 30)]:
        write("binary_string", "%dx%d" % (w, h), ppic(w, h))
    write("binary_string", "offset44", ppic(3, 3, data_offset=44, spare=b"\1\2\3\4", fmt=0xDEADBEEF))
    write("binary_string", "empty-picture", ppic(0, 0))
    write("binary_string", "short-data", ppic(4, 4, length=None)[:-1])


# Memory block target: the input layout is documented in memoryblock_fuzzer.cpp
# (kind, flags, block size, offset, width, height, stride, little endian,
# alpha, picture width and height, then content).
def memoryblock():
    for name, kind, size, offset, w, h, stride, little, alpha, pw, ph in [
            ("copy-rgb", 0, 3 * 12 + 1, 1, 0, 0, 0, 0, 0, 4, 3), ("copy-argb-be", 1, 4 * 6, 0, 0, 0, 0, 0, 255, 3, 2),
            ("copy-argb-le", 1, 4 * 6, 0, 0, 0, 0, 1, 128, 3, 2), ("copy-argb-keep-alpha", 1, 4 * 6, 0, 0, 0, 0, 1, -1, 2, 3),
            ("copy-r", 2, 4 * 6, 0, 0, 0, 4, 0, 0, 3, 2), ("copy-g", 3, 4 * 6, 1, 0, 0, 4, 0, 0, 3, 2),
            ("copy-b-last-cell", 4, 3 * 5 + 1, 0, 0, 0, 3, 0, 0, 3, 2), ("build-rgb", 5, 3 * 20, 0, 5, 4, 0, 0, 0, 0, 0),
            ("build-argb-be", 6, 4 * 12 + 2, 2, 4, 3, 0, 0, 0, 0, 0), ("build-argb-le", 6, 4 * 12, 0, 4, 3, 0, 1, 0, 0, 0),
            ("build-gray", 7, 2 * 11 + 1, 0, 4, 3, 2, 0, 0, 0, 0), ("build-short", 5, 3 * 20 - 1, 0, 5, 4, 0, 0, 0, 0, 0)]:
        write("memoryblock", name, bytes([kind, 0]) + struct.pack("<IiiiiBiBB", size, offset, w, h, stride, little, alpha, pw, ph)
              + bytes(range(64)))


# Call sequence target: a few objects of each kind, then CALLS calls, each with
# its own ARGS argument bytes. Many short calls reach more under the fuzzer than
# a few long ones: inputs stay near the length of the longest seed.
# Steps are decoded by call_sequence_fuzzer.cpp; members are numbered in
# registration order, so seed n calls members n to n + CALLS - 1.
CALLS, ARGS = 16, 8



def call_sequence():
    setup = bytes([
        0, 0, 15, 15, 1,   # a 16 x 16 sample picture
        0, 0, 2, 2, 0, 0,  # a 3 x 3 picture from the pattern
        3, 0, 0, 99, 1,    # a foreign 1 x 100 picture
        4, 0, 1,           # a mask for the first picture
        0, 1, 0, 1,        # the table's 1 x 1 picture
        1, 1, 5, 1,        # the table's 6 x 4 picture with a mask
        5, 1, 3, 0,        # the table's 256-byte block
        5, 1, 6, 0,        # the table's block for any layout of 64 x 48
        7, 1, 3, 2, 0,     # a PPIC string of 3 x 2
        7, 0, 3,           # the table's PPIC string with a wrong length
        8, 0, 8, 3, 9, 5,  # instances
        10, 0,             # a graphics
    ])
    args = bytes([0, 5, 1, 2, 0, 9, 3, 1, 0, 7, 1, 4, 2, 0, 0, 1])[:ARGS]
    for n in range(0, 256, CALLS):
        calls = b"".join(bytes([16]) + struct.pack("<HB", n + k, len(args)) + args for k in range(CALLS))
        write("call_sequence", "calls-%03d" % n, setup + calls)


if __name__ == "__main__":
    binary_string()
    memoryblock()
    call_sequence()
