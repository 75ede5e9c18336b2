// The feature contract between audio and the two bundled networks.
//
// Everything a host must agree on with the training code (tools/audio_features.py implements the same
// contract in NumPy, and a test holds the two equal on the same audio):
//
//   Audio        16 kHz, mono, float samples in [-1, 1]. Other rates and channel counts are converted at the
//                edge (zvkit resamples to 16 kHz and back, and runs one stream per channel).
//   Hop          160 samples (10 ms). One frame of features, one network call and one hop of output per hop
//                of input.
//   Frame        320 samples (20 ms): the previous hop followed by the current one (zeros before the start).
//   Window       w[n] = sin(pi * (n + 0.5) / 320), n = 0..319, used for analysis and again for synthesis.
//                w[n]^2 + w[n + 160]^2 = 1, so with unit gains the output is the input delayed by one hop.
//   FFT          real forward FFT of 320 points, unnormalised: X[k] = sum_n x[n] w[n] e^{-2 pi i k n / 320},
//                k = 0..160 (161 bins, 50 Hz apart). Inverse: unnormalised inverse divided by 320.
//   Bands        80 triangular bands centred on the bins kBandCenter[b] (a mel scale from 0 to 8 kHz, at least
//                one bin apart, so the 46 lowest bands are single bins). Between two neighbouring centres
//                c_b <= k <= c_{b+1}, bin k belongs to band b with weight 1 - t and to band b + 1 with weight
//                t, t = (k - c_b) / (c_{b+1} - c_b). Every bin's weights sum to 1.
//   Feature      f_b = log10(E_b + 1e-7), E_b = sum_k weight_b(k) |X[k]|^2. Silence gives -7.
//
// Denoiser (the fused network, 1 x 7 x 80 in, 80 out):
//   Block        the features of the 7 most recent frames, oldest first: row 6 is the current frame, row 0 the
//                frame 60 ms earlier. Past frames only: look-ahead would add its length to the latency, and the
//                three GRU layers already carry the longer context. Before the stream's start, missing rows
//                hold the silence feature -7.
//   Gains        g_b = min(max(out_b, 0), 1) for the 80 outputs; the gain of bin k is sum_b weight_b(k) g_b
//                (the same triangular weights), multiplied into X[k] of the current frame.
//   Synthesis    y = w * irfft(gain * X); the output hop is the second half of the previous frame's y plus
//                the first half of this frame's y (overlap-add).
//   Latency      output sample n is input sample n - 160: 10 ms of delay, plus the 10 ms hop that has to be
//                gathered before a frame can run, 20 ms of algorithmic latency in all.
//
// Voice activity (the recurrent VAD network, 1 x 1 x 80 in, 1 out):
//   Block        the 80 features of the current frame alone; the network's recurrent state carries the past.
//   Output       the probability that the current frame (its 10 ms hop) holds speech. Decisions (threshold,
//                hangover) are the host's.
#pragma once

#include <cstddef>

namespace zelva::audio {

constexpr int kSampleRate = 16000;
constexpr int kHop = 160;
constexpr int kFrame = 320;
constexpr int kFftSize = 320;
constexpr int kBins = kFftSize / 2 + 1;
constexpr int kBands = 80;
constexpr float kEnergyFloor = 1e-7f;
constexpr float kSilenceFeature = -7.0f;  // log10(kEnergyFloor)
constexpr int kDenoiseRows = 7;
constexpr int kDenoiseBlock = kDenoiseRows * kBands;  // floats in one denoise block
constexpr int kVadBlock = kBands;                     // floats in one VAD block
constexpr int kDelaySamples = kHop;
constexpr double kAlgorithmicLatencyMs = 1000.0 * (kFrame) / kSampleRate;

// Centre bin of each band.
constexpr int kBandCenter[kBands] = {
    0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14,  15,  16,  17,  18,  19,
    20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34,  35,  36,  37,  38,  39,
    40, 41, 42, 43, 44, 45, 47, 49, 51, 53, 55, 57, 60, 62, 64,  67,  70,  72,  75,  78,
    81, 84, 87, 90, 94, 97, 101, 105, 109, 112, 117, 121, 125, 130, 134, 139, 144, 149, 155, 160};

}  // namespace zelva::audio
