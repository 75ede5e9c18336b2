#!/usr/bin/python3
"""Writes tests/data/pool_fixture.txt: torch.nn.AvgPool2d and torch.nn.MaxPool2d on random planar inputs,
for the cases where torch and this library agree.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_pool_fixture.py

Where the two differ, no case is written:
  - the maximum: torch pads with -inf (and leaves out the taps past the input of a ceil mode window), this
    library with 0.0, so a window that reaches into the padding or past the input gives at least 0.0 here.
    Such maximum cases take inputs of positive values, where both agree; the others values of both signs.
  - ceil mode: torch drops a last window that would start in the right or bottom padding, and its average
    with count_include_pad divides a window that ends past the padded input by the taps up to that end,
    where this library counts the whole window. Every case is checked against both rules below.

File format (whitespace separated): a line with the number of cases, then per case
  kind(0 avg, 1 max) channels height width kernel_y kernel_x stride_y stride_x pad_y pad_x ceil_mode
      count_include_pad out_height out_width
  input[channels*height*width]            (planar, channel-major)
  output[channels*out_height*out_width]
"""
import math
import os

import torch

torch.manual_seed(20261124)


def out_size(size, pad, kernel, stride, ceil_mode):
    q = (2 * pad + size - kernel) / stride
    return int((math.ceil(q) if ceil_mode else math.floor(q)) + 1)


def overflows(size, pad, kernel, stride, ceil_mode):
    return (out_size(size, pad, kernel, stride, ceil_mode) - 1) * stride + kernel > size + 2 * pad


def agrees(size, pad, kernel, stride, ceil_mode, count_include_pad, kind):
    out = out_size(size, pad, kernel, stride, ceil_mode)
    if (out - 1) * stride >= size + pad:  # torch drops this window
        return False
    if kind == 0 and count_include_pad and overflows(size, pad, kernel, stride, ceil_mode):
        return False
    return True


cases = []
# kind, channels, h, w, ky, kx, sy, sx, py, px, ceil, cip
layers = [
    (0, 3, 7, 7, 2, 2, 2, 2, 0, 0, 0, 1),
    (0, 3, 7, 7, 2, 2, 2, 2, 0, 0, 1, 0),
    (0, 2, 9, 11, 3, 3, 2, 2, 1, 1, 0, 0),
    (0, 2, 9, 11, 3, 3, 2, 2, 1, 1, 0, 1),
    (0, 2, 10, 12, 3, 3, 2, 2, 1, 1, 1, 0),
    (0, 2, 13, 13, 7, 7, 1, 1, 3, 3, 0, 0),
    (0, 2, 13, 13, 7, 7, 1, 1, 3, 3, 0, 1),
    (0, 2, 17, 19, 4, 4, 4, 4, 0, 0, 1, 0),
    (0, 2, 16, 16, 4, 4, 4, 4, 2, 2, 0, 0),
    (0, 2, 11, 9, 3, 2, 3, 2, 1, 1, 0, 0),
    (0, 2, 14, 12, 5, 4, 1, 1, 2, 2, 0, 0),
    (0, 2, 15, 12, 10, 8, 1, 1, 0, 0, 0, 1),
    (0, 2, 12, 12, 8, 8, 1, 1, 4, 4, 0, 1),
    (1, 3, 9, 9, 2, 2, 2, 2, 0, 0, 0, 0),
    (1, 3, 9, 9, 2, 2, 2, 2, 0, 0, 1, 0),
    (1, 2, 9, 11, 3, 3, 2, 2, 1, 1, 0, 0),
    (1, 2, 10, 12, 3, 3, 2, 2, 1, 1, 1, 0),
    (1, 2, 11, 11, 3, 3, 2, 2, 0, 0, 0, 0),
]
for kind, c, h, w, ky, kx, sy, sx, py, px, ceil, cip in layers:
    assert agrees(h, py, ky, sy, ceil, cip, kind) and agrees(w, px, kx, sx, ceil, cip, kind), (h, w, ky, kx)
    x = torch.randn(1, c, h, w)
    if kind == 0:
        layer = torch.nn.AvgPool2d((ky, kx), (sy, sx), (py, px), ceil_mode=bool(ceil), count_include_pad=bool(cip))
    else:
        if py or px or overflows(h, py, ky, sy, ceil) or overflows(w, px, kx, sx, ceil):
            x = x.abs() + 0.01  # the padded maximum agrees with torch only where no window's maximum is negative
        layer = torch.nn.MaxPool2d((ky, kx), (sy, sx), (py, px), ceil_mode=bool(ceil))
    with torch.no_grad():
        y = layer(x)
    oh, ow = out_size(h, py, ky, sy, ceil), out_size(w, px, kx, sx, ceil)
    assert tuple(y.shape) == (1, c, oh, ow), (y.shape, oh, ow)
    cases.append(((kind, c, h, w, ky, kx, sy, sx, py, px, ceil, cip, oh, ow), x, y))


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "pool_fixture.txt")
with open(out, "w") as f:
    f.write("%d\n" % len(cases))
    for head, x, y in cases:
        f.write(" ".join(str(v) for v in head) + "\n")
        f.write(row(x) + "\n")
        f.write(row(y) + "\n")
print("wrote", os.path.normpath(out))
