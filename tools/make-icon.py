#!/usr/bin/env python3
"""Draws Tavora's icon (a tilted stack of two layers with a brush stroke) at
16, 32, 48 and 256 pixels and writes it as a Windows .ico file."""
import struct
import sys
import zlib


def pixel(x, y, n):
    u, v = (x + 0.5) / n, (y + 0.5) / n
    # Back layer: a teal rounded square.
    def inside(cx, cy, half, r):
        dx, dy = max(abs(u - cx) - (half - r), 0), max(abs(v - cy) - (half - r), 0)
        return dx * dx + dy * dy <= r * r
    if inside(0.58, 0.42, 0.34, 0.08):
        front = inside(0.42, 0.58, 0.34, 0.08)
        if not front:
            return (0x2A, 0x9D, 0x8F, 255)
    if inside(0.42, 0.58, 0.34, 0.08):
        # Front layer: warm orange with a light diagonal stroke across it.
        d = abs((u - 0.42) - (0.58 - v))
        if d < 0.06:
            return (0xFF, 0xF3, 0xE0, 255)
        return (0xF4, 0x8C, 0x2E, 255)
    return (0, 0, 0, 0)


def png(n):
    rows = b"".join(b"\0" + bytes(c for x in range(n) for c in pixel(x, y, n)) for y in range(n))
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", n, n, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b""))


def main(out):
    sizes = [16, 32, 48, 256]
    images = [png(n) for n in sizes]
    header = struct.pack("<HHH", 0, 1, len(sizes))
    offset = 6 + 16 * len(sizes)
    entries = b""
    for n, data in zip(sizes, images):
        entries += struct.pack("<BBBBHHII", n % 256, n % 256, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    with open(out, "wb") as f:
        f.write(header + entries + b"".join(images))


if __name__ == "__main__":
    main(sys.argv[1])
