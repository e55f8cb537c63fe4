#!/usr/bin/env python3
"""Writes a small layered Photoshop file for the end-to-end tests.

make_psd.py OUT.psd
    120 x 80 RGB: a layer "Base" filled green, and above it a layer "Box",
    a 40 x 40 blue square at (10, 10) with opacity 200; raw channels, the
    merged picture after them.
"""
import struct
import sys

W, H = 120, 80


def pascal(name):
    data = bytes([len(name)]) + name.encode("ascii")
    return data + b"\0" * (-len(data) % 4)


def record(name, top, left, bottom, right, opacity, planes):
    size = (bottom - top) * (right - left)
    out = struct.pack(">iiiiH", top, left, bottom, right, len(planes))
    for channel, _ in planes:
        out += struct.pack(">hI", channel, 2 + size)
    extra = struct.pack(">II", 0, 0) + pascal(name)
    out += b"8BIMnorm" + struct.pack(">BBBB", opacity, 0, 0, 0) + struct.pack(">I", len(extra)) + extra
    data = b"".join(struct.pack(">H", 0) + plane for _, plane in planes)
    return out, data


def plane(value, size):
    return bytes([value]) * size


base = record("Base", 0, 0, H, W, 255,
              [(-1, plane(255, W * H)), (0, plane(0x40, W * H)), (1, plane(0xA0, W * H)), (2, plane(0x40, W * H))])
box = record("Box", 10, 10, 50, 50, 200,
             [(-1, plane(255, 1600)), (0, plane(0x20, 1600)), (1, plane(0x40, 1600)), (2, plane(0xFF, 1600))])
info = struct.pack(">h", 2) + base[0] + box[0] + base[1] + box[1]
info += b"\0" * (len(info) % 2)
layers = struct.pack(">I", len(info)) + info + struct.pack(">I", 0)

merged = [bytearray(plane(v, W * H)) for v in (0x40, 0xA0, 0x40)]
for y in range(10, 50):
    for x in range(10, 50):
        for c, v in enumerate((0x20, 0x40, 0xFF)):
            merged[c][y * W + x] = (v * 200 + merged[c][y * W + x] * 55 + 127) // 255

with open(sys.argv[1], "wb") as f:
    f.write(b"8BPS" + struct.pack(">H6xHIIHH", 1, 3, H, W, 8, 3))
    f.write(struct.pack(">I", 0) + struct.pack(">I", 0))
    f.write(struct.pack(">I", len(layers)) + layers)
    f.write(struct.pack(">H", 0) + b"".join(bytes(p) for p in merged))
