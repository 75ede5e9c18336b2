#!/usr/bin/python3
"""Writes tests/data/upsampling_fixture.txt: upsampling computed by torch.nn.functional.interpolate in the
modes "nearest", "bilinear" and "bicubic" (align_corners both ways for the last two), by factors (integer,
fractional, different per axis) and by output sizes, with channel counts that fill blocks of four and eight
and some that do not.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_upsampling_fixture.py

File format: the number of cases, then per case four lines: its name; channels h w mode align factor_y
factor_x size_h size_w (mode 0 nearest, 1 bilinear, 2 bicubic as the layer's code; sizes 0 when the factors
give the size); the input [channels, h, w]; the output.
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240703)

MODES = {0: "nearest", 1: "bilinear", 2: "bicubic"}

# name, channels, h, w, mode, align, (factor_y, factor_x), (size_h, size_w)
CASES = [
    ("nearest_x2", 8, 5, 7, 0, 0, (2.0, 2.0), (0, 0)),
    ("nearest_x3_c4", 4, 3, 5, 0, 0, (3.0, 3.0), (0, 0)),
    ("nearest_x1_5", 8, 5, 6, 0, 0, (1.5, 1.5), (0, 0)),
    ("nearest_2x3_c3", 3, 4, 3, 0, 0, (2.0, 3.0), (0, 0)),
    ("nearest_size_7x11", 8, 4, 5, 0, 0, (0.0, 0.0), (7, 11)),
    ("bilinear_x2", 8, 5, 7, 1, 0, (2.0, 2.0), (0, 0)),
    ("bilinear_x2_align", 8, 5, 7, 1, 1, (2.0, 2.0), (0, 0)),
    ("bilinear_x1_5_c16", 16, 6, 9, 1, 0, (1.5, 1.5), (0, 0)),
    ("bilinear_x3_align_c4", 4, 3, 4, 1, 1, (3.0, 3.0), (0, 0)),
    ("bilinear_2x2_5_c3", 3, 5, 4, 1, 0, (2.0, 2.5), (0, 0)),
    ("bilinear_size_9x13", 8, 4, 6, 1, 0, (0.0, 0.0), (9, 13)),
    ("bilinear_size_9x13_align", 8, 4, 6, 1, 1, (0.0, 0.0), (9, 13)),
    ("bilinear_x0_5", 8, 8, 10, 1, 0, (0.5, 0.5), (0, 0)),
    ("bicubic_x2", 3, 5, 6, 2, 0, (2.0, 2.0), (0, 0)),
    ("bicubic_x1_5_align", 4, 4, 5, 2, 1, (1.5, 1.5), (0, 0)),
    ("bicubic_size_7x9", 2, 3, 4, 2, 0, (0.0, 0.0), (7, 9)),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, c, h, w, mode, align, factors, size in CASES:
    x = torch.randn(1, c, h, w)
    kwargs = {"mode": MODES[mode]}
    if mode != 0:
        kwargs["align_corners"] = bool(align)
    if size[0] > 0:
        y = F.interpolate(x, size=size, **kwargs)
    else:
        y = F.interpolate(x, scale_factor=factors, **kwargs)
    lines.append(name)
    lines.append(" ".join(str(v) for v in (c, h, w, mode, align) + factors + size))
    lines.append(row(x))
    lines.append(row(y))

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "upsampling_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
