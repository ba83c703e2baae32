#!/usr/bin/env python3
"""Draws the soak's samples (seconds, frame, RSS kB, frame data high-water
bytes) as two curves against time into a PNG, with nothing but the standard
library, and says whether RSS stayed flat after the first fifth of the run."""
import struct
import sys
import zlib

W, H, M = 640, 360, 20


def png(path, pixels):
    raw = b"".join(b"\0" + bytes(row) for row in pixels)

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    with open(path, "wb") as out:
        out.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", W, H, 8, 2, 0, 0, 0))
                  + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def main(samples_path, png_path):
    rows = [list(map(float, line.split())) for line in open(samples_path) if line.strip()]
    # A sample whose log window held no counter line carries the last one.
    for previous, row in zip(rows, rows[1:]):
        if row[3] == 0:
            row[1], row[3] = previous[1], previous[3]
    if len(rows) < 2:
        sys.exit("soak: too few samples")
    pixels = [[255] * (3 * W) for _ in range(H)]

    def put(x, y, colour):
        if 0 <= x < W and 0 <= y < H:
            pixels[y][3 * x:3 * x + 3] = colour

    for x in range(M, W - M):
        put(x, H - M, (0, 0, 0))
    for y in range(M, H - M + 1):
        put(M, y, (0, 0, 0))
    t_end = rows[-1][0] or 1
    # RSS in blue at three quarters of the height at its peak; the frame data
    # high-water mark in red at a third.
    for column, colour, scale in ((2, (0, 0, 200), 4 / 3), (3, (200, 0, 0), 3)):
        top = scale * max(r[column] for r in rows) or 1
        last = None
        for r in rows:
            x = M + int((W - 2 * M) * r[0] / t_end)
            y = H - M - int((H - 2 * M) * r[column] / top)
            if last:
                steps = max(abs(x - last[0]), abs(y - last[1]), 1)
                for i in range(steps + 1):
                    put(last[0] + (x - last[0]) * i // steps, last[1] + (y - last[1]) * i // steps,
                        colour)
            last = (x, y)
    png(png_path, pixels)
    warm = [r for r in rows if r[0] >= t_end / 5]
    low, high = min(r[2] for r in warm), max(r[2] for r in warm)
    growth = (high - low) / low * 100
    print(f"soak: RSS after warm-up {low / 1024:.1f} to {high / 1024:.1f} MB ({growth:.1f} %), "
          f"frame data high-water {max(r[3] for r in rows):.0f} bytes; curve in {png_path}")
    return 0 if growth < 5 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
