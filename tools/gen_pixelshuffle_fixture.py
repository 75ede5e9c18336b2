#!/usr/bin/python3
"""Writes tests/data/pixelshuffle_fixture.txt: torch.nn.PixelShuffle(r) and torch.nn.PixelUnshuffle(r) on
random CHW inputs, factors 2 and 3, odd sizes, and channel counts that also fill the blocks of the C4HW4 and
C8HW8 members.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_pixelshuffle_fixture.py

File format: the number of cases, then per case five lines: the name; "up factor channels height width" of
the input (up 1 for PixelShuffle, 0 for PixelUnshuffle); the input values; the output values, row-major.
"""
import os

import torch

torch.manual_seed(20240701)

# name, up, r, c, h, w
CASES = [
    ("up2_c8_3x5", 1, 2, 8, 3, 5),
    ("up3_c18_2x3", 1, 3, 18, 2, 3),
    ("up2_c64_3x3", 1, 2, 64, 3, 3),
    ("down2_c3_6x4", 0, 2, 3, 6, 4),
    ("down3_c2_6x9", 0, 3, 2, 6, 9),
    ("down2_c16_4x6", 0, 2, 16, 4, 6),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, up, r, c, h, w in CASES:
    x = torch.randn(1, c, h, w)
    y = torch.nn.PixelShuffle(r)(x) if up else torch.nn.PixelUnshuffle(r)(x)
    lines += [name, "%d %d %d %d %d" % (up, r, c, h, w), row(x), row(y)]

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "pixelshuffle_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
