#!/usr/bin/python3
"""Writes tests/data/depthwise_fixture.txt: depthwise convolutions (groups equal to channels) computed by
torch.nn.Conv2d, for every kernel size and stride of the depthwise members, with channel counts that fill one
or several blocks of four and eight, odd and even output sizes (the stride-2 tails), with and without bias.
Asymmetric padding is applied with torch.nn.functional.pad (left, right, top, bottom) ahead of an unpadded
layer, which is what the layer fields padding_l, padding_r, padding_t, padding_b mean.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_depthwise_fixture.py

File format: that of conv2d_fixture.txt (tools/gen_conv_fixture.py).
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240612)

# name, channels, h, w, k, s, (l, r, t, b), bias
CASES = [
    ("k3s1_c8_pad1", 8, 9, 9, 3, 1, (1, 1, 1, 1), True),
    ("k3s1_c12_valid_nobias", 12, 7, 8, 3, 1, (0, 0, 0, 0), False),
    ("k3s2_c16_odd_out", 16, 9, 7, 3, 2, (1, 1, 1, 1), True),
    ("k3s2_c8_even_out", 8, 8, 8, 3, 2, (0, 1, 0, 1), True),
    ("k5s1_c8_pad2", 8, 7, 9, 5, 1, (2, 2, 2, 2), True),
    ("k5s1_c16_asym_nobias", 16, 6, 11, 5, 1, (2, 1, 0, 2), False),
    ("k5s2_c8_odd_out", 8, 9, 9, 5, 2, (2, 2, 2, 2), True),
    ("k5s2_c24_even_out", 24, 10, 12, 5, 2, (1, 2, 2, 1), True),
    ("k3s1_c5_planar", 5, 5, 13, 3, 1, (1, 1, 1, 1), True),
    ("k3s2_c3_planar", 3, 7, 11, 3, 2, (1, 1, 1, 1), False),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, c, h, w, k, s, pad, bias in CASES:
    conv = torch.nn.Conv2d(c, c, k, stride=s, padding=0, groups=c, bias=bias)
    x = torch.randn(1, c, h, w)
    with torch.no_grad():
        y = conv(F.pad(x, pad))
    lines.append(name)
    lines.append(" ".join(str(v) for v in (c, c, h, w, k, k, s, s, 1, 1, c) + pad + (int(bias),)))
    lines.append(row(conv.weight.detach()))
    lines.append(row(conv.bias.detach()) if bias else "")
    lines.append(row(x))
    lines.append(row(y))

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "depthwise_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
