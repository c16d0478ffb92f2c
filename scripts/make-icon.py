#!/usr/bin/env python3
"""Draws assets/zephyrlake.png: a cyan mast with radio waves on a dark rounded square."""
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


def main(path):
    rows = []
    for y in range(SIZE):
        row = bytearray([0])
        for x in range(SIZE):
            c = coverage(x + 0.5, y + 0.5)
            if c is None:
                row += bytes((0, 0, 0, 0))
            else:
                row += bytes(int(BG[i] + (FG[i] - BG[i]) * c) for i in range(3)) + b"\xff"
        rows.append(bytes(row))
    raw = b"".join(rows)

    def chunk(tag, data):
        body = tag + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    png = b"\x89PNG\r\n\x1a\n"
    png += chunk(b"IHDR", struct.pack(">IIBBBBB", SIZE, SIZE, 8, 6, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(raw, 9))
    png += chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(png)


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "assets/zephyrlake.png")
