#!/usr/bin/python3
"""Writes tests/data/convtranspose_fixture.txt: transposed convolutions computed by torch.nn.ConvTranspose2d,
for the kernel sizes, strides, dilations and groups the transposed convolution members take, channel counts
that fill one or several blocks of four and eight (and some that do not), with and without bias.

The layer fields padding_l, padding_r, padding_t, padding_b crop the full transposed convolution on each side,
a negative value extending that side with zeros, and the bias comes last. Most cases compute exactly that in
torch: the layer without padding and without bias, torch.nn.functional.pad with the negated amounts
(left, right, top, bottom), then the bias. The "torch_padding" cases use the layer's own padding=p and
output_padding=q instead, written as l = t = p and r = b = p - q.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_convtranspose_fixture.py

File format: the number of cases, then per case six lines: its name; in out h w kernel_y kernel_x stride_y
stride_x dilation_y dilation_x groups padding_l padding_r padding_t padding_b bias; the weight (torch's
[in, out / groups, kh, kw], which is GNCHW with N the input channels of a group); the bias (empty without);
the input [in, h, w]; the output.
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240702)

# name, in, out, h, w, (ky, kx), (sy, sx), (dy, dx), groups, (l, r, t, b) or ("torch", p, q), bias
CASES = [
    ("k3s1_torch_padding1", 8, 8, 5, 7, (3, 3), (1, 1), (1, 1), 1, ("torch", 1, 0), True),
    ("k3s2_torch_padding1_output_padding1", 8, 16, 5, 6, (3, 3), (2, 2), (1, 1), 1, ("torch", 1, 1), True),
    ("k3s2_negative_and_asymmetric", 8, 8, 4, 5, (3, 3), (2, 2), (1, 1), 1, (-1, 2, 0, -2), True),
    ("k3s3_full_nobias", 4, 4, 3, 4, (3, 3), (3, 3), (1, 1), 1, (0, 0, 0, 0), False),
    ("k3s1x2_out5_planar", 3, 5, 6, 5, (3, 3), (1, 2), (1, 1), 1, (1, 0, 2, 1), True),
    ("k2x4_s2x1_d1x2_groups2", 4, 6, 5, 4, (2, 4), (2, 1), (1, 2), 2, (0, 1, 1, 0), True),
    ("k3_dilation2_groups3", 6, 3, 4, 4, (3, 3), (1, 1), (2, 2), 3, (1, 1, 1, 1), False),
    ("k3s2_c16_odd", 16, 8, 7, 3, (3, 3), (2, 2), (1, 1), 1, (1, 1, 1, 1), True),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, cin, cout, h, w, k, s, d, g, pad, bias in CASES:
    x = torch.randn(1, cin, h, w)
    if pad[0] == "torch":
        p, q = pad[1], pad[2]
        conv = torch.nn.ConvTranspose2d(cin, cout, k, stride=s, padding=p, output_padding=q, dilation=d, groups=g,
                                        bias=bias)
        with torch.no_grad():
            y = conv(x)
        pad = (p, p - q, p, p - q)
    else:
        conv = torch.nn.ConvTranspose2d(cin, cout, k, stride=s, dilation=d, groups=g, bias=bias)
        with torch.no_grad():
            y = F.conv_transpose2d(x, conv.weight, None, stride=s, dilation=d, groups=g)
            y = F.pad(y, tuple(-v for v in pad))
            if bias:
                y = y + conv.bias.view(1, -1, 1, 1)
    lines.append(name)
    lines.append(" ".join(str(v) for v in (cin, cout, h, w) + k + s + d + (g,) + tuple(pad) + (int(bias),)))
    lines.append(row(conv.weight.detach()))
    lines.append(row(conv.bias.detach()) if bias else "")
    lines.append(row(x))
    lines.append(row(y))

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "convtranspose_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
