#!/usr/bin/python3
"""The feature contract of zelva-audio in NumPy (see zelva-audio/include/zelva/audio/contract.h).

The training scripts and the fixture generators use this module, and the C++ host is held equal to it by a test,
so this file and the header change together.

    feats = features(x)                    # x: float32 samples at 16 kHz -> [T, 80], one row per 160-sample hop
    blocks = denoise_blocks(feats)         # [T, 7, 80]: past-only context, silence before the start
    y = synthesize(x, gains)               # gains: [T, 80] network outputs -> denoised audio, delayed by 160
"""

import numpy as np

SAMPLE_RATE = 16000
HOP = 160
FRAME = 320
FFT_SIZE = 320
BINS = FFT_SIZE // 2 + 1
BANDS = 80
ENERGY_FLOOR = 1e-7
SILENCE_FEATURE = -7.0
DENOISE_ROWS = 7
DELAY_SAMPLES = HOP

BAND_CENTER = np.array([
    0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
    20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39,
    40, 41, 42, 43, 44, 45, 47, 49, 51, 53, 55, 57, 60, 62, 64, 67, 70, 72, 75, 78,
    81, 84, 87, 90, 94, 97, 101, 105, 109, 112, 117, 121, 125, 130, 134, 139, 144, 149, 155, 160])

WINDOW = np.sin(np.pi * (np.arange(FRAME) + 0.5) / FRAME).astype(np.float32)


def band_weights():
    """[80, 161] triangular weights; every column sums to 1."""
    w = np.zeros((BANDS, BINS), dtype=np.float32)
    for b in range(BANDS - 1):
        c0, c1 = BAND_CENTER[b], BAND_CENTER[b + 1]
        for k in range(c0, c1 + 1):
            t = (k - c0) / (c1 - c0)
            if k < c1:
                w[b, k] = 1.0 - t
            if k > c0:
                w[b + 1, k] = t
    w[0, 0] = 1.0
    return w


BAND_WEIGHTS = band_weights()


def frames(x):
    """[T, 320] windowed frames, T = len(x) // 160; frame t ends at sample 160 (t + 1)."""
    x = np.asarray(x, dtype=np.float32)
    t = len(x) // HOP
    padded = np.concatenate([np.zeros(HOP, np.float32), x[:t * HOP]])
    idx = np.arange(t)[:, None] * HOP + np.arange(FRAME)[None, :]
    return padded[idx] * WINDOW


def spectrum(x):
    """[T, 161] complex spectrum of each frame (unnormalised forward FFT)."""
    return np.fft.rfft(frames(x), n=FFT_SIZE, axis=1)


def band_energy(stft):
    power = stft.real.astype(np.float64) ** 2 + stft.imag.astype(np.float64) ** 2
    return power @ BAND_WEIGHTS.T.astype(np.float64)


def features(x):
    """[T, 80] float32 log band energies."""
    return np.log10(band_energy(spectrum(x)) + ENERGY_FLOOR).astype(np.float32)


def denoise_blocks(feats):
    """[T, 7, 80] past-only blocks, oldest row first, silence before the start."""
    feats = np.asarray(feats, dtype=np.float32)
    pad = np.full((DENOISE_ROWS - 1, BANDS), SILENCE_FEATURE, np.float32)
    padded = np.concatenate([pad, feats])
    idx = np.arange(len(feats))[:, None] + np.arange(DENOISE_ROWS)[None, :]
    return padded[idx]


def bin_gains(band_gains):
    """[T, 80] network outputs -> [T, 161] per-bin gains (clamped to [0, 1] first)."""
    g = np.clip(np.asarray(band_gains, dtype=np.float32), 0.0, 1.0)
    return g @ BAND_WEIGHTS


def synthesize(x, band_gains):
    """Applies [T, 80] gains to x and overlap-adds; output sample n is input sample n - 160."""
    stft = spectrum(x)
    y = np.fft.irfft(stft * bin_gains(band_gains), n=FFT_SIZE, axis=1).astype(np.float32) * WINDOW
    t = len(y)
    out = np.zeros((t + 1) * HOP, np.float32)
    for i in range(t):
        out[i * HOP:i * HOP + FRAME] += y[i]
    return out[:t * HOP]


def ideal_gains(speech, noise):
    """[T, 80] band gains sqrt(E_speech / E_mixture), clipped to [0, 1]: the training target."""
    es = band_energy(spectrum(speech))
    em = band_energy(spectrum(np.asarray(speech) + np.asarray(noise)))
    return np.clip(np.sqrt(es / (em + 1e-12)), 0.0, 1.0).astype(np.float32)


if __name__ == "__main__":
    rng = np.random.default_rng(0)
    x = (0.1 * rng.standard_normal(16000)).astype(np.float32)
    y = synthesize(x, np.ones((len(x) // HOP, BANDS)))
    err = np.abs(y[HOP:] - x[:len(y) - HOP]).max()
    print("unit-gain reconstruction error", err)
    assert err < 1e-5
