#!/usr/bin/python3
"""Writes tests/data/conv2d_int16_fixture.txt: the 16-bit fixed-point 1x1 convolution computed by PyTorch.
Weights and inputs are quantised at their step sizes (s fractional bits: round half to even of v x 2^s,
saturated to [-32768, 32767]); F.conv2d runs in float64 on the dequantised values, which is exact; the result
is rounded to float32 and the float32 bias added. Inputs include values half a step apart (ties), values
beyond the int16 range (saturation) and sums beyond 24 bits.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_conv2d_int16_fixture.py

File format: the number of cases, then per case six lines: the name; "in out h w weight_step input_step
bias"; the weights [out, in]; the bias (empty without); the input [in, h, w]; the output [out, h, w].
"""
import os

import torch
import torch.nn.functional as F

torch.manual_seed(20240705)


def quantize(v, step):
    return torch.clamp(torch.round(v.double() * 2.0**step), -32768, 32767)


# name, in, out, h, w, weight_step, input_step, bias, weight scale, input scale
CASES = [
    ("c8_3x5", 8, 8, 3, 5, 12, 10, 1, 0.5, 1.0),
    ("c16_to_24_nobias", 16, 24, 2, 7, 14, 8, 0, 0.3, 2.0),
    ("coarse_steps", 8, 16, 1, 1, 4, -2, 1, 2.0, 30.0),
    ("wide_sums", 16, 8, 3, 3, 14, 12, 1, 0.9, 1.9),
    ("saturating", 8, 8, 2, 4, 10, 12, 1, 0.5, 20.0),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


lines = [str(len(CASES))]
for name, cin, cout, h, w, ws, xs, bias, wscale, xscale in CASES:
    weight = (torch.rand(cout, cin) * 2 - 1) * wscale
    x = (torch.rand(1, cin, h, w) * 2 - 1) * xscale
    # A few exact ties half a step apart.
    x.view(-1)[:4] = torch.tensor([0.5, 1.5, 2.5, -2.5]) * 2.0**-xs
    b = torch.randn(cout) if bias else torch.zeros(cout)
    y = F.conv2d(quantize(x, xs) * 2.0**-xs, (quantize(weight, ws) * 2.0**-ws).view(cout, cin, 1, 1))
    y = y.float() + b.view(1, cout, 1, 1)
    lines += [name, "%d %d %d %d %d %d %d" % (cin, cout, h, w, ws, xs, bias), row(weight), row(b) if bias else "",
              row(x), row(y)]

out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "conv2d_int16_fixture.txt")
with open(out, "w") as f:
    f.write("\n".join(lines) + "\n")
print("wrote", os.path.normpath(out))
