#!/usr/bin/env python3
"""Draws the icon: a cyan mast with radio waves on a dark rounded square, as PNG of any size.

Usage: make-icon.py OUT.png [SIZE]  (the drawing is defined on a 128 px grid and sampled 4x4 per pixel)
"""
import math
import struct
import sys
import zlib

SIZE = 128
BG = (10, 26, 31)
FG = (0, 229, 229)


def coverage(x, y):
    """0..1 foreground coverage of the pixel centre (x, y); None outside the tile."""
    cx = cy = SIZE / 2
    r = 22  # corner radius of the tile
    dx = max(r - x, 0, x - (SIZE - r))
    dy = max(r - y, 0, y - (SIZE - r))
    if dx * dx + dy * dy > r * r:
        return None
    ay = cy + 8
    d = math.hypot(x - cx, y - ay)
    # mast: a dot with a stem down to a base line
    if d < 7:
        return 1.0
    if abs(x - cx) < 3 and ay < y < 104:
        return 1.0
    if abs(y - 104) < 3 and abs(x - cx) < 18:
        return 1.0
    # three wave arcs on either side, opening upwards
    angle = math.degrees(math.atan2(ay - y, x - cx))
    side = abs(abs(angle) - 90)
    for radius in (18, 31, 44):
        if abs(d - radius) < 3.2 and 35 < side < 85 and y < ay + 12:
            return 1.0
    return 0.0


def pixel(x, y, size):
    """RGBA of output pixel (x, y) at the given size: the mean of 4x4 samples of the drawing."""
    n = 4
    scale = SIZE / size
    inside = 0
    fg = 0.0
    for sy in range(n):
        for sx in range(n):
            c = coverage((x + (sx + 0.5) / n) * scale, (y + (sy + 0.5) / n) * scale)
            if c is not None:
                inside += 1
                fg += c
    if inside == 0:
        return bytes((0, 0, 0, 0))
    mix = fg / inside
    alpha = int(255 * inside / (n * n))
    return bytes(int(BG[i] + (FG[i] - BG[i]) * mix) for i in range(3)) + bytes((alpha,))


def main(path, size):
    rows = []
    for y in range(size):
        row = bytearray([0])
        for x in range(size):
            row += pixel(x, y, size)
        rows.append(bytes(row))
    raw = b"".join(rows)

    def chunk(tag, data):
        body = tag + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    png = b"\x89PNG\r\n\x1a\n"
    png += chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(raw, 9))
    png += chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(png)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "assets/zephyrlake.png", int(sys.argv[2]) if len(sys.argv) > 2 else SIZE)
