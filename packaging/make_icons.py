#!/usr/bin/env python3
"""Draws src/resources/Quillmarch.ico: a serial connector on a blue tile, as 16, 32 and 48 pixel images.

The images are uncompressed, since Windows 5 reads no others. Run it from the root of the project after a change here;
the result is kept beside the other resources, so that a build needs no Python.
"""
import struct
import sys

TILE = (0x2B, 0x5C, 0x8A)
SHELL = (0xF2, 0xF4, 0xF7)
PIN = (0x2B, 0x3A, 0x4A)
SAMPLES = 4  # per pixel and direction


def colour_at(x, y):
    """Colour of a point of the unit square, None where it is transparent."""
    margin, corner = 0.03, 0.16
    dx = max(margin + corner - x, x - (1 - margin - corner), 0)
    dy = max(margin + corner - y, y - (1 - margin - corner), 0)
    if dx * dx + dy * dy > corner * corner:
        return None
    # Two rows of pins, five above four, in a shell that narrows downwards.
    for row, count in ((0.43, 5), (0.58, 4)):
        for pin in range(count):
            px = 0.5 + (pin - (count - 1) / 2) * 0.13
            if (x - px) ** 2 + (y - row) ** 2 < 0.042 ** 2:
                return PIN
    if 0.32 < y < 0.69:
        half = 0.40 - (y - 0.32) * 0.24
        if abs(x - 0.5) < half:
            return SHELL
    return TILE


def image(size):
    """One image as Windows stores it in an icon: header, rows from the bottom up, mask."""
    rows = []
    for y in reversed(range(size)):
        row = bytearray()
        for x in range(size):
            hits = []
            for sy in range(SAMPLES):
                for sx in range(SAMPLES):
                    hits.append(colour_at((x + (sx + 0.5) / SAMPLES) / size, (y + (sy + 0.5) / SAMPLES) / size))
            seen = [hit for hit in hits if hit is not None]
            red, green, blue = (sum(c[i] for c in seen) // len(seen) if seen else 0 for i in range(3))
            row += bytes((blue, green, red, 255 * len(seen) // len(hits)))
        rows.append(bytes(row))
    mask = bytes(((size + 31) // 32) * 4 * size)
    header = struct.pack("<IiiHHIIiiII", 40, size, size * 2, 1, 32, 0, size * size * 4 + len(mask), 0, 0, 0, 0)
    return header + b"".join(rows) + mask


def main(path):
    images = [(size, image(size)) for size in (16, 32, 48)]
    offset = 6 + 16 * len(images)
    directory = struct.pack("<HHH", 0, 1, len(images))
    for size, data in images:
        directory += struct.pack("<BBBBHHII", size, size, 0, 0, 1, 32, len(data), offset)
        offset += len(data)
    with open(path, "wb") as out:
        out.write(directory + b"".join(data for _, data in images))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "src/resources/Quillmarch.ico")
