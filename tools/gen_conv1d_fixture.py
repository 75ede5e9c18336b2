#!/usr/bin/python3
"""Writes tests/data/conv1d_fixture.txt: one-dimensional convolutions computed by torch.nn.Conv1d over a
[channels, length] signal, for the kernel sizes, strides, dilations and groups the one-dimensional members
take, odd lengths, with and without bias. The padding in front (padding_f) and behind (padding_b) is applied
with torch.nn.functional.pad ahead of an unpadded layer, which is what the layer fields mean.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_conv1d_fixture.py

File format: the number of cases, then per case six lines: its name; in out length kernel stride dilation
groups padding_f padding_b bias; the weight [out, in/groups, kernel]; the bias (empty without); the input
[in, length]; the output [out, out_len].
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240701)

# name, in, out, length, kernel, stride, dilation, groups, (front, back), bias
CASES = [
    ("k3s1_pad1", 4, 6, 37, 3, 1, 1, 1, (1, 1), True),
    ("k3s1_valid_nobias_long", 3, 2, 75, 3, 1, 1, 1, (0, 0), False),
    ("k3s1_asym", 5, 3, 9, 3, 1, 1, 1, (2, 0), True),
    ("k5s2_groups", 6, 4, 23, 5, 2, 1, 2, (2, 2), True),
    ("k3s1_dil2", 2, 3, 17, 3, 1, 2, 1, (2, 2), False),
    ("k1s3_depthwise", 4, 4, 19, 1, 3, 1, 4, (0, 1), True),
    ("k4s2_dil3_back", 3, 6, 29, 4, 2, 3, 3, (0, 3), True),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, cin, cout, length, k, s, d, g, pad, bias in CASES:
    conv = torch.nn.Conv1d(cin, cout, k, stride=s, dilation=d, groups=g, bias=bias)
    x = torch.randn(1, cin, length)
    with torch.no_grad():
        y = conv(F.pad(x, pad))
    lines.append(name)
    lines.append(" ".join(str(v) for v in (cin, cout, length, k, s, d, g) + pad + (int(bias),)))
    lines.append(row(conv.weight.detach()))
    lines.append(row(conv.bias.detach()) if bias else "")
    lines.append(row(x))
    lines.append(row(y))

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "conv1d_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
