#!/usr/bin/python3
"""Writes tests/data/conv2d_fixture.txt: planar convolutions computed by torch.nn.Conv2d, for the planar
convolution members (1x1 pointwise, depthwise 3x3, and a general grouped, strided, dilated, non-square case),
the planar members of fixed geometry, the layers that change layout (three planar channels into blocks, blocks
into one planar channel), and the channel-blocked members (whole blocks of 8 channels: every kernel size and
stride they are made for, a grouped layer and a dilated one); the tests convert the layouts.
Asymmetric padding is applied with torch.nn.functional.pad (left, right, top, bottom) ahead of an unpadded
layer, which is what the layer fields padding_l, padding_r, padding_t, padding_b mean.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_conv_fixture.py

File format (whitespace separated): a count line, then per case
  name
  in_channels out_channels height width kernel_y kernel_x stride_y stride_x dilation_y dilation_x groups
      padding_l padding_r padding_t padding_b if_bias
  weight[out * in/groups * kernel_y * kernel_x]   (GNCHW, the layout of torch's weight)
  bias[out]                                      (an empty line without bias)
  input[in * height * width]                     (planar, channel-major)
  output[out * out_h * out_w]
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240611)

# name, in, out, h, w, (ky, kx), (sy, sx), (dy, dx), groups, (l, r, t, b), bias
CASES = [
    ("pointwise_16_16", 16, 16, 3, 11, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), True),
    ("pointwise_1_16", 1, 16, 5, 13, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), True),
    ("pointwise_16_1_nobias", 16, 1, 1, 74, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), False),
    ("pointwise_grouped", 6, 4, 2, 9, (1, 1), (1, 1), (1, 1), 2, (0, 0, 0, 0), True),
    ("depthwise_padded", 8, 8, 5, 21, (3, 3), (1, 1), (1, 1), 8, (1, 2, 1, 0), True),
    ("depthwise_valid", 1, 1, 7, 80, (3, 3), (1, 1), (1, 1), 1, (0, 0, 0, 0), True),
    ("depthwise_nobias", 5, 5, 4, 6, (3, 3), (1, 1), (1, 1), 5, (1, 1, 1, 1), False),
    ("general", 4, 6, 9, 11, (3, 2), (2, 1), (1, 2), 2, (0, 1, 2, 1), True),
    # Planar members of fixed geometry, odd sizes around the vector widths.
    ("planar_3x3_s1", 5, 6, 7, 9, (3, 3), (1, 1), (1, 1), 1, (1, 1, 1, 1), True),
    ("planar_3x3_s1_grouped", 4, 6, 5, 17, (3, 3), (1, 1), (1, 1), 2, (1, 1, 1, 1), False),
    ("planar_3x3_s2", 4, 5, 9, 19, (3, 3), (2, 2), (1, 1), 1, (1, 0, 1, 0), True),
    ("planar_3x1", 3, 5, 6, 13, (3, 1), (1, 1), (1, 1), 1, (0, 0, 1, 1), True),
    ("planar_1x3", 6, 4, 3, 8, (1, 3), (1, 1), (1, 1), 1, (1, 1, 0, 0), True),
    ("planar_1x1_s2", 7, 5, 5, 17, (1, 1), (2, 2), (1, 1), 1, (0, 0, 0, 0), True),
    # First layers of an image net (three planar channels in) and a last layer (one channel out).
    ("first_3x3", 3, 16, 6, 9, (3, 3), (1, 1), (1, 1), 1, (1, 1, 1, 1), True),
    ("first_7x7_s2", 3, 8, 11, 13, (7, 7), (2, 2), (1, 1), 1, (3, 3, 3, 3), True),
    ("last_3x3", 16, 1, 5, 11, (3, 3), (1, 1), (1, 1), 1, (1, 1, 1, 1), True),
    # Channel-blocked members.
    ("blocked_1x1", 16, 8, 5, 9, (1, 1), (1, 1), (1, 1), 1, (0, 0, 0, 0), False),
    ("blocked_1x1_s2", 8, 16, 7, 9, (1, 1), (2, 2), (1, 1), 1, (0, 0, 0, 0), True),
    ("blocked_1x3", 8, 16, 3, 10, (1, 3), (1, 1), (1, 1), 1, (1, 1, 0, 0), True),
    ("blocked_3x1", 16, 8, 6, 7, (3, 1), (1, 1), (1, 1), 1, (0, 0, 1, 1), True),
    ("blocked_3x3", 16, 24, 9, 13, (3, 3), (1, 1), (1, 1), 1, (1, 1, 1, 1), True),
    ("blocked_3x3_s2", 8, 16, 11, 9, (3, 3), (2, 2), (1, 1), 1, (1, 1, 1, 1), False),
    ("blocked_3x3_grouped", 16, 16, 5, 8, (3, 3), (1, 1), (1, 1), 2, (1, 1, 1, 1), True),
    ("blocked_5x5", 8, 16, 9, 10, (5, 5), (1, 1), (1, 1), 1, (2, 2, 2, 2), True),
    ("blocked_7x7", 8, 8, 9, 11, (7, 7), (1, 1), (1, 1), 1, (3, 3, 3, 3), True),
    ("blocked_7x7_s2", 8, 8, 15, 13, (7, 7), (2, 2), (1, 1), 1, (3, 3, 3, 3), True),
    ("blocked_dilated", 8, 8, 10, 12, (3, 2), (2, 1), (2, 1), 1, (1, 0, 2, 1), True),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, cin, cout, h, w, k, s, d, g, pad, bias in CASES:
    conv = torch.nn.Conv2d(cin, cout, k, stride=s, padding=0, dilation=d, groups=g, bias=bias)
    x = torch.randn(1, cin, h, w)
    with torch.no_grad():
        y = conv(F.pad(x, pad))
    lines.append(name)
    lines.append(" ".join(str(v) for v in (cin, cout, h, w, k[0], k[1], s[0], s[1], d[0], d[1], g) + pad +
                          (int(bias),)))
    lines.append(row(conv.weight.detach()))
    lines.append(row(conv.bias.detach()) if bias else "")
    lines.append(row(x))
    lines.append(row(y))

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "conv2d_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
