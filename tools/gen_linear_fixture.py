#!/usr/bin/python3
"""Writes tests/data/linear_fixture.txt: dense layers (nn.Linear) with and without bias, each applied to a
small batch of random inputs.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_linear_fixture.py

File format (whitespace separated, one record per line), repeated once per case:
  in_features out_features has_bias batch
  weight[out_features*in_features]   (row-major: out rows of in values)
  bias[out_features]                 (an empty line when has_bias is 0)
  input[batch*in_features]
  output[batch*out_features]
Sizes are multiples of 8 so that every member of the family, blocked ones included, applies to every case.
"""
import os

import torch

torch.manual_seed(20240611)

CASES = [
    # in, out, bias, batch
    (40, 24, True, 3),
    (72, 32, True, 2),
    (16, 8, False, 3),
]


def row(t):
    return " ".join("%.9g" % v for v in t.flatten().tolist())


out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "linear_fixture.txt")
with open(out, "w") as f:
    for in_features, out_features, has_bias, batch in CASES:
        layer = torch.nn.Linear(in_features, out_features, bias=has_bias)
        x = torch.randn(batch, in_features)
        with torch.no_grad():
            y = layer(x)
        f.write("%d %d %d %d\n" % (in_features, out_features, 1 if has_bias else 0, batch))
        f.write(row(layer.weight.detach()) + "\n")
        f.write((row(layer.bias.detach()) if has_bias else "") + "\n")
        f.write(row(x) + "\n")
        f.write(row(y) + "\n")
print("wrote", os.path.normpath(out))
