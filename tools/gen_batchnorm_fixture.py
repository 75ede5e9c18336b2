#!/usr/bin/python3
"""Writes tests/data/batchnorm2d_fixture.txt: a BatchNorm2d layer in eval mode with random running
statistics and affine parameters, one random input and the layer's output.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_batchnorm_fixture.py

File format (whitespace separated, one record per line):
  channels height width eps
  scale[channels]
  shift[channels]
  mean[channels]
  variance[channels]
  input[channels*height*width]   (planar, channel-major)
  output[channels*height*width]
"""
import os

import torch

torch.manual_seed(20240607)
channels, height, width, eps = 5, 3, 7, 1e-3

bn = torch.nn.BatchNorm2d(channels, eps=eps, affine=True, track_running_stats=True)
with torch.no_grad():
    bn.weight.copy_(torch.randn(channels))
    bn.bias.copy_(torch.randn(channels))
    bn.running_mean.copy_(torch.randn(channels))
    bn.running_var.copy_(torch.rand(channels) * 2.0 + 0.05)
bn.eval()

x = torch.randn(1, channels, height, width)
with torch.no_grad():
    y = bn(x)


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "batchnorm2d_fixture.txt")
with open(out, "w") as f:
    f.write("%d %d %d %.9g\n" % (channels, height, width, eps))
    for t in (bn.weight, bn.bias, bn.running_mean, bn.running_var, x, y):
        f.write(row(t.detach()) + "\n")
print("wrote", os.path.normpath(out))
