#!/usr/bin/python3
"""Writes tests/data/expand_fixture.txt: torch's Tensor.expand(new_shape) on random [1, C, H, W] inputs,
broadcasting channels, rows, columns and several at once, -1 entries keeping a size, and channel counts that
fill the blocks of the C4HW4 and C8HW8 members.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_expand_fixture.py

File format: the number of cases, then per case five lines: the name; the input's C H W; new_shape (four
entries, batch first); the input values; the output values, row-major.
"""
import os

import torch

torch.manual_seed(20240702)

# name, input [C, H, W], new_shape
CASES = [
    ("columns", (3, 4, 1), (1, -1, -1, 7)),
    ("rows", (2, 1, 5), (-1, 2, 3, 5)),
    ("channels", (1, 3, 5), (1, 6, -1, -1)),
    ("all", (1, 1, 1), (1, 4, 3, 9)),
    ("rows_columns_c8", (8, 1, 1), (1, -1, 5, 3)),
    ("columns_c16", (16, 3, 1), (1, 16, 3, 6)),
    ("identity", (4, 2, 3), (1, 4, 2, 3)),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, chw, new_shape in CASES:
    x = torch.randn(1, *chw)
    y = x.expand(*new_shape).contiguous()
    lines += [name, " ".join(map(str, chw)), " ".join(map(str, new_shape)), row(x), row(y)]

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "expand_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
