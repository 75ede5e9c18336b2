#!/usr/bin/python3
"""Writes the fixture that holds the C++ audio host to the NumPy feature contract (tools/audio_features.py).

A deterministic one-second signal (a rising chirp with noise, a stretch of exact silence, then noise alone) and
what the contract makes of it, as raw little-endian float32 files under tests/data/audio/:

  signal.f32           16000 samples
  features.f32         [100, 80] log band energies, one row per hop
  band_gains.f32       [100, 80] gains for the synthesis, some of them outside [0, 1] to exercise the clamp
  bin_gains.f32        [100, 161] the per-bin gains they give
  synthesis.f32        16000 samples: the signal through those gains, delayed by one hop
  vad_tiny.json        a tiny recurrent VAD network (1 x 1 x 80 -> GRU 8 -> dense 1 -> sigmoid), random weights,
  vad_tiny.cfg.json    with its kernel configuration, for the host's tests
  vad_probability.f32  [100] PyTorch's probabilities of that network on features.f32, state carried
  unit_gain.json       a denoise network that gives every band the gain 1 whatever its block (a dense layer with
  unit_gain.cfg.json   zero weights and unit biases), with its configuration: the host's output is then its input

Run with Debian's PyTorch: /usr/bin/python3 tools/gen_audio_fixture.py [--out DIR] [--seed N]
"""

import argparse
import json
import os

import numpy as np
import torch

import audio_features as af
import gen_e2e_models as e2e


def test_signal(rng):
    n = af.SAMPLE_RATE
    t = np.arange(n) / af.SAMPLE_RATE
    # Chirp from 100 Hz to 6 kHz over the first 0.7 s, under noise; exact zeros from 0.7 s to 0.85 s; then noise.
    f0, f1, span = 100.0, 6000.0, 0.7
    phase = 2 * np.pi * (f0 * t + (f1 - f0) * t * t / (2 * span))
    x = 0.3 * np.sin(phase) + 0.02 * rng.standard_normal(n)
    x[int(0.7 * n):int(0.85 * n)] = 0.0
    x[int(0.85 * n):] = 0.05 * rng.standard_normal(n - int(0.85 * n))
    return x.astype(np.float32)


def test_gains(hops):
    t = np.arange(hops)[:, None]
    b = np.arange(af.BANDS)[None, :]
    return (0.5 + 0.7 * np.sin(0.3 * t + 0.2 * b)).astype(np.float32)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out", default=os.path.join(here, "..", "tests", "data", "audio"))
    parser.add_argument("--seed", type=int, default=16000)
    args = parser.parse_args()
    os.makedirs(args.out, exist_ok=True)
    rng = np.random.default_rng(args.seed)
    torch.manual_seed(args.seed)

    def write(name, array):
        np.asarray(array, dtype="<f4").tofile(os.path.join(args.out, name))

    def write_json(name, obj):
        with open(os.path.join(args.out, name), "w") as f:
            json.dump(obj, f, indent=1)
            f.write("\n")

    x = test_signal(rng)
    feats = af.features(x)
    gains = test_gains(len(feats))
    write("signal.f32", x)
    write("features.f32", feats)
    write("band_gains.f32", gains)
    write("bin_gains.f32", af.bin_gains(gains))
    write("synthesis.f32", af.synthesize(x, gains))

    vad = e2e.RecurrentNet("gru", frames=1, features=af.BANDS, hidden=8, outputs=1,
                           activation=e2e.ACT_SIGMOID).eval()
    e2e.randomize(vad, rng)
    write_json("vad_tiny.json", e2e.model_json(e2e.layers_of(vad), e2e.extra_info(vad, "tiny VAD, random weights")))
    write_json("vad_tiny.cfg.json",
               e2e.config(e2e.kernels_of("GRU_SSE_SC_F32_M1", "Sigmoid_SSE_Float_M1"), "tiny VAD"))
    probability = e2e.stream(vad, feats.reshape(len(feats), 1, 1, af.BANDS)).reshape(-1)
    write("vad_probability.f32", probability)
    # The unit-gain network: block [1, 7, 80] -> vector [560] -> dense with zero weights, biases 1 -> 80 gains.
    block = af.DENOISE_ROWS * af.BANDS
    unit = [
        dict(kind=e2e.KIND_INPUT, cls="InputInfo", id="input", inputs=[], location=0),
        dict(kind=e2e.KIND_RESHAPE, cls="TensorReshapeInfo", id="to_vector", inputs=["input"], new_shape=[1, -1]),
        dict(kind=e2e.KIND_FULLCONNECTION, cls="FullConnectionInfo", id="dense", inputs=["to_vector"],
             in_features=block, out_features=af.BANDS, if_bias=True, weight=np.zeros(block * af.BANDS),
             bias=np.ones(af.BANDS)),
    ]
    unit_extra = dict(e2e.extra_info(vad, "unit gains"), model_base_h=af.DENOISE_ROWS, model_base_w=af.BANDS)
    write_json("unit_gain.json", e2e.model_json(unit, unit_extra))
    write_json("unit_gain.cfg.json", e2e.config([("input", "Input_Fallback_M1"),
                                                 ("to_vector", "Reshape_Fallback_To_C_M1"),
                                                 ("dense", "FullConnection_SSE_C_Float_M1")], "unit gains"))
    print("%d hops; features in [%.2f, %.2f]; probabilities in [%.3f, %.3f]" % (
        len(feats), feats.min(), feats.max(), probability.min(), probability.max()))


if __name__ == "__main__":
    main()
