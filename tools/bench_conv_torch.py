#!/usr/bin/python3
"""PyTorch on one thread on the layers of the convolution benchmark (bench/conv2d_bench.cc, ConvLayer/): 3x3
stride 1 padded at 32 and 64 channels on 56x56 and 112x112 maps, and a 1x1 from 64 to 128 channels on 56x56,
batch 1, float32, with bias. Prints the median time per call and GFLOP/s (2 * out * in * kernel taps *
output pixels per call), the measure the benchmark reports.

Run with the system interpreter that has torch: /usr/bin/python3 tools/bench_conv_torch.py [--seconds S]
"""
import argparse
import statistics
import time

import torch

LAYERS = [
    ("3x3_32_56x56", 32, 32, 56, 56, 3, 1),
    ("3x3_32_112x112", 32, 32, 112, 112, 3, 1),
    ("3x3_64_56x56", 64, 64, 56, 56, 3, 1),
    ("3x3_64_112x112", 64, 64, 112, 112, 3, 1),
    ("1x1_64to128_56x56", 64, 128, 56, 56, 1, 0),
]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=1.0, help="timing per layer")
    args = parser.parse_args()
    torch.set_num_threads(1)
    torch.manual_seed(1)
    print("torch %s, %d thread" % (torch.__version__, torch.get_num_threads()))
    for label, cin, cout, h, w, k, pad in LAYERS:
        conv = torch.nn.Conv2d(cin, cout, k, padding=pad, bias=True).eval()
        x = torch.rand(1, cin, h, w) * 2 - 1
        flops = 2.0 * cout * cin * k * k * h * w
        times = []
        with torch.no_grad():
            for _ in range(3):
                conv(x)
            end = time.perf_counter() + args.seconds
            while time.perf_counter() < end:
                start = time.thread_time_ns()
                conv(x)
                times.append((time.thread_time_ns() - start) * 1e-9)
        t = statistics.median(times)
        print("%-20s %9.3f ms  %7.2f GFLOP/s  (%d calls)" % (label, t * 1e3, flops / t * 1e-9, len(times)))


if __name__ == "__main__":
    main()
