#!/usr/bin/python3
"""The denoise network's time per block against its floors and other runtimes, in one run.

Each round measures, one after the other: the floors (a) streaming the fused network's 4,364,960-byte block
once and (b) its fixed-order matrix-vector work on L1-resident weights (build/bench/zelva_bench, filter
DenoiseFloor), each variant of the fused network that the processor runs with its ratio to streaming the block
measured beside it (filter DenoiseFused), `zvkit bench` on the fused and on the generic path, PyTorch on one thread
(tools/bench_denoise_torch.py) and, given --ort, ONNX Runtime on one thread (bench/denoise_onnx.js). Rounds are
interleaved so that a slow stretch of the machine hits every figure alike; each figure is the median of its
per-round medians.

  /usr/bin/python3 bench/compare.py [--rounds 5] [--blocks 2000] [--ort SCRATCH/node_modules]

Needs a built tree (build/zvkit, build/bench/zelva_bench); PyTorch is Debian's (/usr/bin/python3).
"""

import argparse
import json
import os
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))


def run(cmd):
    result = subprocess.run(cmd, cwd=ROOT, capture_output=True, text=True)
    if result.returncode != 0:
        sys.exit(f"compare: {' '.join(cmd)} failed:\n{result.stdout}{result.stderr}")
    return result.stdout


def median_of(text, pattern):
    match = re.search(pattern, text)
    if not match:
        sys.exit(f"compare: no figure in:\n{text}")
    return float(match.group(1))


def fused_variants(build):
    """Each fused variant this processor runs: microseconds per block and its ratio to streaming the block."""
    out = run([os.path.join(build, "bench", "zelva_bench"), "--benchmark_filter=DenoiseFused",
               "--benchmark_format=json"])
    figures = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("error_occurred"):
            continue
        name = b["name"].split("/", 1)[1]
        figures[f"fused {name}"] = b["cpu_time"]
        figures[f"fused {name} x stream"] = b["x_stream"]
    return figures


def floors(build):
    out = run([os.path.join(build, "bench", "zelva_bench"), "--benchmark_filter=DenoiseFloor",
               "--benchmark_format=json", "--benchmark_repetitions=5", "--benchmark_report_aggregates_only=true"])
    figures = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("aggregate_name") != "median":
            continue
        micros = b["cpu_time"]  # microseconds of this thread: a busy machine's preemptions left out
        if "MatVec" in b["name"]:
            micros *= b.get("scale", 1.0)
            figures["(b) matvec, rows interleaved" if "<4>" in b["name"] else "(b) matvec, one row at a time"] = micros
        else:
            figures["(a) stream 4,364,960 bytes"] = micros
    return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--blocks", type=int, default=2000)
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    parser.add_argument("--ort", default="", help="node_modules folder holding onnxruntime-node")
    args = parser.parse_args()

    zvkit = os.path.join(args.build, "zvkit")
    model, config = "models/denoise.zvmod", "models/denoise.cfg.json"
    blocks = str(args.blocks)
    per_round = {}
    with tempfile.TemporaryDirectory() as tmp:
        onnx = os.path.join(tmp, "denoise.onnx")
        if args.ort:
            run([sys.executable, "tools/bench_denoise_torch.py", "--blocks", "10", "--warmup", "0", "--onnx", onnx])
        for r in range(args.rounds):
            figures = floors(args.build)
            figures.update(fused_variants(args.build))
            for name, flag in (("zelva fused", ["--fused"]), ("zelva generic", [])):
                out = run([zvkit, "bench", "--model", model, "--config", config, "--blocks", blocks] + flag)
                figures[name] = median_of(out, r"median ([0-9.]+) us")
            out = run([sys.executable, "tools/bench_denoise_torch.py", "--blocks", blocks])
            figures["PyTorch, 1 thread"] = median_of(out, r"median ([0-9.]+) us")
            if args.ort:
                out = run(["node", "bench/denoise_onnx.js", args.ort, onnx, blocks])
                figures["ONNX Runtime, 1 thread"] = median_of(out, r"median ([0-9.]+) us")
            for name, value in figures.items():
                per_round.setdefault(name, []).append(value)
            print(f"round {r + 1}/{args.rounds}: " + ", ".join(f"{k} {v:.1f}" for k, v in figures.items()),
                  file=sys.stderr)

    med = {name: statistics.median(values) for name, values in per_round.items()}
    print(f"median over {args.rounds} rounds, microseconds per block:")
    for name, value in med.items():
        print(f"  {name:32s} {value:10.1f}")
    floor = max(med["(a) stream 4,364,960 bytes"], med["(b) matvec, rows interleaved"])
    fused, generic = med["zelva fused"], med["zelva generic"]
    print("ratios:")
    print(f"  fused / floor (larger of a and b)      {fused / floor:6.2f}")
    print(f"  generic / fused                        {generic / fused:6.2f}")
    print(f"  PyTorch / fused                        {med['PyTorch, 1 thread'] / fused:6.2f}")
    for name, value in med.items():
        if name.startswith("fused ") and name.endswith(" x stream"):
            print(f"  {name[:-9] + ' / stream (same run)':38s} {value:6.2f}")
    if "ONNX Runtime, 1 thread" in med:
        print(f"  ONNX Runtime / fused                   {med['ONNX Runtime, 1 thread'] / fused:6.2f}")
        print(f"  ONNX Runtime / generic                 {med['ONNX Runtime, 1 thread'] / generic:6.2f}")


if __name__ == "__main__":
    main()
