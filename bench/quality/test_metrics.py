#!/usr/bin/python3
"""Tests of the quality measures. Exits 77 (a skip for CTest) when NumPy or SciPy is missing."""

import math
import os
import sys
import unittest

try:
    import numpy as np
    import scipy  # noqa: F401
except ImportError as e:
    print(f"skipped: {e}")
    sys.exit(77)

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import metrics  # noqa: E402

FS = 16000


def speech_like(seconds=3.0, seed=1):
    """Voiced syllables: a harmonic series on a gliding pitch, each syllable with its own spectral tilt and a
    smooth 4-per-second envelope, short pauses between them."""
    rng = np.random.default_rng(seed)
    n = int(seconds * FS)
    t = np.arange(n) / FS
    f0 = 120 + 40 * np.sin(2 * np.pi * 0.7 * t)
    phase = 2 * np.pi * np.cumsum(f0) / FS
    syllable = int(0.25 * FS)
    out = np.zeros(n)
    for start in range(0, n - syllable + 1, syllable):
        seg = slice(start, start + syllable)
        tilt = rng.uniform(0.6, 0.95)
        voice = sum(tilt ** h * np.sin(h * phase[seg] + rng.uniform(0, 2 * np.pi)) for h in range(1, 30))
        env = np.sin(np.pi * np.arange(syllable) / syllable) ** 2 * rng.uniform(0.3, 1.0)
        env[int(0.8 * syllable):] = 0.0
        out[seg] = voice * env
    return out / np.abs(out).max() * 0.5


def add_noise(x, snr_db, seed=2):
    noise = np.random.default_rng(seed).standard_normal(len(x))
    noise *= np.sqrt(np.mean(x ** 2) / np.mean(noise ** 2) / 10 ** (snr_db / 10))
    return x + noise


class SiSdrTest(unittest.TestCase):
    def test_hand_case(self):
        # s = [1, -1, 1, -1]; estimate = 2 s + e with e = [1, 1, -1, -1] orthogonal to s: the projection is 2 s
        # (energy 16), the residual e (energy 4): 10 log10(4) dB. A constant offset is removed with the mean.
        s = np.array([1.0, -1.0, 1.0, -1.0])
        e = np.array([1.0, 1.0, -1.0, -1.0])
        self.assertAlmostEqual(metrics.si_sdr(s, 2 * s + e), 10 * math.log10(4.0), places=9)
        self.assertAlmostEqual(metrics.si_sdr(s, 2 * s + e + 3.0), 10 * math.log10(4.0), places=9)
        self.assertAlmostEqual(metrics.si_sdr(s, -0.5 * s + e), 10 * math.log10(1.0 / 4.0), places=9)
        self.assertEqual(metrics.si_sdr(s, 7 * s), float("inf"))

    def test_improvement_is_scale_invariant(self):
        x = speech_like(1.0)
        noisy = add_noise(x, 0.0)
        better = x + 0.1 * (noisy - x)
        imp = metrics.si_sdr_improvement(x, noisy, better)
        self.assertAlmostEqual(imp, 20.0, delta=0.2)
        self.assertAlmostEqual(metrics.si_sdr_improvement(x, noisy, 0.01 * better), imp, places=9)


class StoiTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.clean = speech_like()

    def test_identity_is_one(self):
        self.assertAlmostEqual(metrics.stoi(self.clean, self.clean, FS), 1.0, delta=1e-6)
        self.assertAlmostEqual(metrics.stoi(self.clean[:16000], self.clean[:16000], 10000), 1.0, delta=1e-6)

    def test_rises_with_snr(self):
        scores = [metrics.stoi(self.clean, add_noise(self.clean, snr), FS) for snr in (-15, -10, -5, 0, 5, 10, 20)]
        for lower, higher in zip(scores, scores[1:]):
            self.assertLess(lower, higher)
        self.assertLess(scores[0], 0.75)
        self.assertGreater(scores[-1], 0.95)

    def test_falls_with_added_noise(self):
        noisy = add_noise(self.clean, 5.0)
        noisier = noisy + (add_noise(self.clean, 5.0, seed=9) - self.clean)
        self.assertLess(metrics.stoi(self.clean, noisier, FS), metrics.stoi(self.clean, noisy, FS) - 0.01)

    def test_invariant_to_gain(self):
        noisy = add_noise(self.clean, 0.0)
        ref = metrics.stoi(self.clean, noisy, FS)
        self.assertAlmostEqual(metrics.stoi(self.clean, 0.01 * noisy, FS), ref, places=9)
        self.assertAlmostEqual(metrics.stoi(self.clean, 30.0 * noisy, FS), ref, places=9)
        self.assertAlmostEqual(metrics.stoi(3.0 * self.clean, noisy, FS), ref, places=9)

    def test_leading_and_trailing_silence_do_not_count(self):
        noisy = add_noise(self.clean, 0.0)
        ref = metrics.stoi(self.clean, noisy, FS)
        lead, trail = np.zeros(FS), np.zeros(int(1.5 * FS))
        clean_padded = np.concatenate([lead, self.clean, trail])
        # The processed signal holds faint noise where the clean one is silent: those frames, if kept, would
        # correlate with nothing and pull the score down.
        hiss = 1e-4 * np.random.default_rng(5).standard_normal(len(clean_padded))
        noisy_padded = np.concatenate([lead, noisy, trail]) + hiss * (clean_padded == 0)
        self.assertAlmostEqual(metrics.stoi(clean_padded, noisy_padded, FS), ref, delta=0.003)

    def test_silent_frame_rule(self):
        # Frames 40 dB or more below the loudest one go; frames just above stay.
        frame, hop = metrics.STOI_FRAME, metrics.STOI_FRAME // 2
        x = np.random.default_rng(3).standard_normal(20 * hop)
        x[6 * hop:12 * hop] *= 10 ** (-45 / 20)
        x[14 * hop:] *= 10 ** (-35 / 20)
        kept, _ = metrics.drop_silent_frames(x, x)
        # 19 frames: 0-4 loud, 5-11 touch the -45 dB stretch (5 and 11 straddle it), 12-18 louder than -40 dB.
        frames = 1 + (len(kept) - frame) // hop
        self.assertEqual(frames, 19 - 5)

    def test_too_short_is_nan(self):
        self.assertTrue(math.isnan(metrics.stoi(self.clean[:4000], self.clean[:4000], FS)))

    def test_third_octave_band_edges(self):
        center, lower, upper, matrix = metrics.third_octave_bands()
        self.assertEqual(len(center), 15)
        self.assertAlmostEqual(center[0], 150.0)
        self.assertAlmostEqual(lower[0], 150.0 / 2 ** (1 / 6), places=9)  # 133.6 Hz
        self.assertAlmostEqual(center[3], 300.0, places=9)  # an octave every three bands
        self.assertAlmostEqual(center[14], 150.0 * 2 ** (14 / 3), places=6)  # 3810 Hz
        self.assertAlmostEqual(upper[14], 4276.0, delta=1.0)
        np.testing.assert_allclose(upper[:-1], lower[1:])  # neighbours share an edge
        np.testing.assert_allclose(upper / lower, 2 ** (1 / 3))
        # Bins (19.53 Hz apart at 10 kHz / 512 points): band 0 (133.6 to 168.4 Hz) takes bins 7..8 (136.7 and
        # 156.3 Hz), the last band (3394 to 4276 Hz) bins 174..218; no bin in two bands, none outside 7..218.
        self.assertEqual(list(np.nonzero(matrix[0])[0]), [7, 8])
        self.assertEqual(np.nonzero(matrix[14])[0][[0, -1]].tolist(), [174, 218])
        self.assertTrue(np.all(matrix.sum(axis=0) <= 1))
        covered = np.nonzero(matrix.sum(axis=0))[0]
        self.assertEqual(covered.tolist(), list(range(7, 219)))


class VadScoresTest(unittest.TestCase):
    def test_hand_case(self):
        labels = [0, 0, 1, 1, 1, 1, 0, 0, 0, 0]
        decide = [1, 0, 1, 1, 0, 0, 0, 1, 0, 0]
        s = metrics.vad_scores(labels, decide)
        # TP 2, FP 2, FN 2, TN 4.
        self.assertEqual((s["tp"], s["fp"], s["fn"], s["tn"]), (2, 2, 2, 4))
        self.assertAlmostEqual(s["precision"], 0.5)
        self.assertAlmostEqual(s["recall"], 0.5)
        self.assertAlmostEqual(s["f1"], 0.5)
        self.assertAlmostEqual(s["false_alarm"], 2 / 6)
        self.assertAlmostEqual(s["accuracy"], 0.6)

    def test_lengths_and_empty_classes(self):
        s = metrics.vad_scores([1, 1, 0, 1], [1, 1, 1])  # the extra label is ignored
        self.assertAlmostEqual(s["f1"], 0.8)
        self.assertAlmostEqual(s["false_alarm"], 1.0)
        s = metrics.vad_scores([1, 1], [1, 1])
        self.assertTrue(math.isnan(s["false_alarm"]))
        self.assertAlmostEqual(s["f1"], 1.0)


class AlignTest(unittest.TestCase):
    def test_recovers_a_delay(self):
        import quality

        noisy = add_noise(speech_like(1.0), 0.0)
        for lag in (0, 96, 480):
            delayed = np.concatenate([np.zeros(lag), 0.5 * noisy])[:len(noisy)]
            aligned, found = quality.align(noisy, delayed)
            self.assertEqual(found, lag)
            self.assertEqual(len(aligned), len(noisy))
            np.testing.assert_allclose(aligned[:len(noisy) - lag], 0.5 * noisy[:len(noisy) - lag])


if __name__ == "__main__":
    unittest.main()
