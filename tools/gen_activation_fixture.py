#!/usr/bin/python3
"""Writes tests/data/activation_fixture.txt: inputs and the outputs of torch's float32 activations, the
independent reference for the exact parts of the activation kernels.

Run with the system interpreter that has torch: /usr/bin/python3 tools/gen_activation_fixture.py

File format (whitespace separated), one record of three lines per function:
  name alpha count        (alpha: the slope of leaky_relu and prelu, a value a 16-bit half holds exactly)
  input[count]
  output[count]
"""
import os

import torch

torch.manual_seed(20240611)
COUNT = 240

# Spread over the interesting range, with the usual landmarks mixed in.
landmarks = torch.tensor([0.0, -0.0, 1.0, -1.0, 3.0, -3.0, 6.0, -6.0, 0.5, -0.5, 2.9990234, -2.9990234,
                          10.0, -10.0, 20.0, -20.0, 40.0, -40.0, 87.0, -87.0, 1e-4, -1e-4])
x = torch.cat([landmarks, torch.randn(COUNT - len(landmarks)) * 5.0]).to(torch.float32)
x = x[torch.randperm(COUNT)]

half = lambda v: float(torch.tensor(v, dtype=torch.float16))
leaky_alpha = half(0.01)
prelu_alpha = half(0.25)

functions = [
    ("sigmoid", 0.0, torch.sigmoid),
    ("tanh", 0.0, torch.tanh),
    ("hardsigmoid", 0.0, torch.nn.functional.hardsigmoid),
    ("hardswish", 0.0, torch.nn.functional.hardswish),
    ("silu", 0.0, torch.nn.functional.silu),
    ("relu6", 0.0, torch.nn.functional.relu6),
    ("leaky_relu", leaky_alpha, lambda t: torch.nn.functional.leaky_relu(t, leaky_alpha)),
    ("prelu", prelu_alpha, lambda t: torch.nn.functional.prelu(t, torch.tensor([prelu_alpha]))),
]

path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "data", "activation_fixture.txt")
with open(path, "w") as out:
    for name, alpha, fn in functions:
        with torch.no_grad():
            y = fn(x.clone())
        out.write("%s %.9g %d\n" % (name, alpha, COUNT))
        out.write(" ".join("%.9g" % v for v in x.tolist()) + "\n")
        out.write(" ".join("%.9g" % v for v in y.tolist()) + "\n")
print("wrote", os.path.normpath(path))
