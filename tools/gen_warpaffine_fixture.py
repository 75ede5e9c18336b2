#!/usr/bin/python3
"""Writes tests/data/warpaffine_fixture.txt: F.grid_sample(x, F.affine_grid(theta, x.shape, align_corners),
mode, padding_mode, align_corners) for every mode ("bilinear", "nearest"), padding mode ("zeros", "border",
"reflection") and align_corners, on random images with thetas that rotate, scale and shift parts of the grid
outside the image; and images of one row and of one column.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_warpaffine_fixture.py

File format: the number of cases, then per case six lines: the name; "C H W mode padding align" (mode 0
bilinear, 1 nearest; padding 0 zeros, 1 border, 2 reflection); theta (6 values); the input values; the
output values, row-major.
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240704)
MODES = ["bilinear", "nearest"]
PADS = ["zeros", "border", "reflection"]

cases = []
for m in range(2):
    for p in range(3):
        for align in (0, 1):
            cases.append(("%s_%s_%d" % (MODES[m], PADS[p], align), 2, 5, 7, m, p, align))
cases.append(("one_row", 2, 1, 6, 0, 2, 0))
cases.append(("one_column", 1, 6, 1, 0, 1, 1))
cases.append(("large_c3_16x19", 3, 16, 19, 0, 0, 0))


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(cases))]
for name, c, h, w, m, p, align in cases:
    theta = torch.tensor([[1.0, 0.0, 0.0], [0.0, 1.0, 0.0]]) + 0.6 * torch.randn(2, 3)
    x = torch.randn(1, c, h, w)
    grid = F.affine_grid(theta.unsqueeze(0), [1, c, h, w], align_corners=bool(align))
    y = F.grid_sample(x, grid, mode=MODES[m], padding_mode=PADS[p], align_corners=bool(align))
    lines += [name, "%d %d %d %d %d %d" % (c, h, w, m, p, align), row(theta), row(x), row(y)]

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "warpaffine_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
