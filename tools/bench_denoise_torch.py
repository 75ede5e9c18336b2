#!/usr/bin/python3
"""Times the bundled denoise network in PyTorch on one thread, streaming block by block with the GRU state
carried (TorchScript by tracing, frozen), and optionally exports it to ONNX with the hidden states as extra inputs and
outputs, for timing in another runtime.

The weights are those of models/denoise.zvmod: tools/gen_denoise_model.py rebuilds them from its seed.

  /usr/bin/python3 tools/bench_denoise_torch.py [--blocks N] [--warmup N] [--onnx PATH]

Prints one line: "torch: median X us, mean Y us, p99 Z us per block (N blocks, 1 thread)".
"""

import argparse
import os
import sys
import time

import numpy as np
import torch

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import gen_denoise_model  # noqa: E402


class Streaming(torch.nn.Module):
    """One block: x (1, 1, 7, 80) and the three hidden states in; 80 values and the new states out."""

    def __init__(self, net):
        super().__init__()
        self.net = net

    def forward(self, x, h20, h21, h22):
        y, (a, b, c) = self.net(x, (h20, h21, h22))
        return y, a, b, c


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seed", type=int, default=20018)
    parser.add_argument("--blocks", type=int, default=2000)
    parser.add_argument("--warmup", type=int, default=200)
    parser.add_argument("--onnx", default="", help="also write the network as ONNX here")
    args = parser.parse_args()

    torch.set_num_threads(1)
    net, rng = gen_denoise_model.build_net(args.seed)
    model = Streaming(net).eval()
    x = torch.from_numpy(rng.uniform(-1.5, 1.5, size=(64, 1, 1, 7, 80)).astype(np.float32))
    h = tuple(torch.zeros(1, 1, 256) for _ in range(3))

    if args.onnx:
        torch.onnx.export(model, (x[0],) + h, args.onnx, input_names=["x", "h20", "h21", "h22"],
                          output_names=["y", "h20_out", "h21_out", "h22_out"], opset_version=13)

    with torch.no_grad():
        scripted = torch.jit.freeze(torch.jit.trace(model, (x[0],) + h))
        micros = []
        for b in range(args.warmup + args.blocks):
            t0 = time.perf_counter()
            y, h0, h1, h2 = scripted(x[b % 64], *h)
            t1 = time.perf_counter()
            h = (h0, h1, h2)
            if b >= args.warmup:
                micros.append((t1 - t0) * 1e6)
    micros.sort()
    mean = sum(micros) / len(micros)
    p99 = micros[min(len(micros) - 1, len(micros) * 99 // 100)]
    print(f"torch: median {micros[len(micros) // 2]:.1f} us, mean {mean:.1f} us, p99 {p99:.1f} us per block "
          f"({args.blocks} blocks, 1 thread)")


if __name__ == "__main__":
    main()
