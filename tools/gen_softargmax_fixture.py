#!/usr/bin/python3
"""Writes tests/data/softargmax_fixture.txt: a soft arg-max written in PyTorch (float64) on random float32
[C, H, W] maps: per channel the softmax of beta x the map over H x W, then the expected column and row in
pixel units, rescaled by width / W and height / H when a size is given.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_softargmax_fixture.py

File format: the number of cases, then per case five lines: the name; "C H W beta" and, with a size, its
width and height; the input values; the output values [C, 2] (x0 y0 x1 y1 ...).
"""
import os

import torch

torch.manual_seed(20240703)


def soft_argmax(x, beta, size):
    c, h, w = x.shape
    p = torch.softmax(beta * x.double().reshape(c, h * w), dim=1).reshape(c, h, w)
    xs = torch.arange(w, dtype=torch.float64)
    ys = torch.arange(h, dtype=torch.float64)
    ex = (p.sum(dim=1) * xs).sum(dim=1)
    ey = (p.sum(dim=2) * ys).sum(dim=1)
    if size:
        ex = ex * size[0] / w
        ey = ey * size[1] / h
    return torch.stack([ex, ey], dim=1)


# name, c, h, w, beta, size, input scale
CASES = [
    ("beta1_3x4x5", 3, 4, 5, 1.0, (), 1.0),
    ("beta10_2x7x9", 2, 7, 9, 10.0, (), 1.0),
    ("beta0_uniform", 2, 3, 6, 0.0, (), 1.0),
    ("negative_beta", 2, 5, 5, -2.0, (), 1.0),
    ("size_64x32", 4, 8, 11, 3.0, (64, 32), 1.0),
    ("one_pixel", 3, 1, 1, 1.0, (), 1.0),
    ("peaked_16x24", 2, 16, 24, 5.0, (), 3.0),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, c, h, w, beta, size, scale in CASES:
    x = torch.randn(c, h, w) * scale
    y = soft_argmax(x, beta, size)
    lines += [name, " ".join(str(v) for v in (c, h, w, beta) + tuple(size)), row(x), row(y)]

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "softargmax_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
