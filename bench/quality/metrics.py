"""Quality measures for the benchmark: SI-SDR, short-time objective intelligibility, and frame-level VAD scores.

    si_sdr(reference, estimate)             dB, scale-invariant signal-to-distortion ratio
    stoi(clean, processed, fs)              in [-1, 1], higher is more intelligible
    vad_scores(labels, decisions)           precision, recall, F1, false-alarm rate, accuracy

The intelligibility measure follows Taal, Hendriks, Heusdens and Jensen, "An algorithm for intelligibility
prediction of time-frequency weighted noisy speech", IEEE TASLP 19(7), 2011: both signals at 10 kHz, frames
of 256 samples (Hann, 50 % overlap) zero-padded to 512 points, frames of the clean signal more than 40 dB below
its loudest frame dropped from both, 15 one-third-octave band envelopes from 150 Hz, 30-frame (384 ms)
segments, the processed segment scaled to the clean one's energy and clipped at a signal-to-distortion ratio of
beta = -15 dB, and the mean correlation of the segments over bands and time.
"""

import numpy as np
from scipy.signal import resample_poly

STOI_RATE = 10000
STOI_FRAME = 256
STOI_FFT = 512
STOI_BANDS = 15
STOI_LOWEST_CENTER = 150.0
STOI_SEGMENT = 30
STOI_BETA_DB = -15.0
STOI_DYNAMIC_RANGE_DB = 40.0


def si_sdr(reference, estimate):
    """Scale-invariant SDR in dB of `estimate` against `reference` (both made zero-mean first)."""
    s = np.asarray(reference, dtype=np.float64)
    e = np.asarray(estimate, dtype=np.float64)
    n = min(len(s), len(e))
    s = s[:n] - s[:n].mean()
    e = e[:n] - e[:n].mean()
    energy = np.dot(s, s)
    if energy <= 0.0:
        return float("nan")
    target = (np.dot(e, s) / energy) * s
    residual = e - target
    t, r = np.dot(target, target), np.dot(residual, residual)
    if r <= 0.0:
        return float("inf")
    if t <= 0.0:
        return float("-inf")
    return float(10.0 * np.log10(t / r))


def si_sdr_improvement(clean, noisy, processed):
    """SI-SDR of the processed signal minus that of the noisy one, both against the clean one."""
    return si_sdr(clean, processed) - si_sdr(clean, noisy)


def third_octave_bands(fs=STOI_RATE, n_fft=STOI_FFT, n_bands=STOI_BANDS, lowest=STOI_LOWEST_CENTER):
    """Centre, lower and upper edge (Hz) of each band and the [bands, bins] 0/1 matrix that sums bins into them.

    Band k is centred on lowest * 2^(k/3) and spans a third of an octave around it: edges at the centre times
    2^(-1/6) and 2^(1/6), so neighbouring bands share an edge. A bin belongs to the band whose edges, each
    rounded to the nearest bin, enclose it (lower edge included, upper edge excluded).
    """
    k = np.arange(n_bands)
    center = lowest * 2.0 ** (k / 3.0)
    lower = center * 2.0 ** (-1.0 / 6.0)
    upper = center * 2.0 ** (1.0 / 6.0)
    bin_hz = fs / n_fft
    n_bins = n_fft // 2 + 1
    matrix = np.zeros((n_bands, n_bins))
    for b in range(n_bands):
        lo = int(np.argmin(np.abs(np.arange(n_bins) * bin_hz - lower[b])))
        hi = int(np.argmin(np.abs(np.arange(n_bins) * bin_hz - upper[b])))
        matrix[b, lo:hi] = 1.0
    return center, lower, upper, matrix


def _frames(x, frame, hop):
    count = 1 + (len(x) - frame) // hop if len(x) >= frame else 0
    idx = np.arange(count)[:, None] * hop + np.arange(frame)[None, :]
    return x[idx]


def _hann(n):
    # Hann window whose zero end points lie just outside the frame: w[i] = 0.5 - 0.5 cos(2 pi (i + 1) / (n + 1)).
    return 0.5 - 0.5 * np.cos(2.0 * np.pi * np.arange(1, n + 1) / (n + 1))


def drop_silent_frames(clean, processed, frame=STOI_FRAME, dynamic_range_db=STOI_DYNAMIC_RANGE_DB):
    """Both signals rebuilt (overlap-add of Hann frames, hop frame/2) without the frames in which the clean
    signal is more than dynamic_range_db below its loudest frame."""
    hop = frame // 2
    w = _hann(frame)
    fc = _frames(clean, frame, hop) * w
    fp = _frames(processed, frame, hop) * w
    if len(fc) == 0:
        return clean[:0], processed[:0]
    energy_db = 20.0 * np.log10(np.linalg.norm(fc, axis=1) + np.finfo(np.float64).eps)
    keep = energy_db > energy_db.max() - dynamic_range_db
    fc, fp = fc[keep], fp[keep]
    n = len(fc)
    out_c = np.zeros((n - 1) * hop + frame) if n else np.zeros(0)
    out_p = np.zeros_like(out_c)
    for i in range(n):
        out_c[i * hop:i * hop + frame] += fc[i]
        out_p[i * hop:i * hop + frame] += fp[i]
    return out_c, out_p


def _band_envelopes(x, bands):
    """[bands, frames] one-third-octave magnitudes: sqrt of the summed bin powers of each band."""
    bins = np.fft.rfft(_frames(x, STOI_FRAME, STOI_FRAME // 2) * _hann(STOI_FRAME), n=STOI_FFT, axis=1)
    return np.sqrt(bands @ (np.abs(bins) ** 2).T)


def stoi(clean, processed, fs):
    """Short-time objective intelligibility of `processed` against `clean` (same length, rate fs).

    Returns nan when fewer than 30 frames remain after dropping the silent ones (too short to judge).
    """
    x = np.asarray(clean, dtype=np.float64)
    y = np.asarray(processed, dtype=np.float64)
    n = min(len(x), len(y))
    x, y = x[:n], y[:n]
    if fs != STOI_RATE:
        g = np.gcd(int(fs), STOI_RATE)
        x = resample_poly(x, STOI_RATE // g, int(fs) // g)
        y = resample_poly(y, STOI_RATE // g, int(fs) // g)
    x, y = drop_silent_frames(x, y)
    _, _, _, bands = third_octave_bands()
    X = _band_envelopes(x, bands)
    Y = _band_envelopes(y, bands)
    frames = X.shape[1]
    if frames < STOI_SEGMENT:
        return float("nan")
    clip = 1.0 + 10.0 ** (-STOI_BETA_DB / 20.0)
    eps = np.finfo(np.float64).eps
    total, count = 0.0, 0
    for m in range(STOI_SEGMENT, frames + 1):
        xs = X[:, m - STOI_SEGMENT:m]
        ys = Y[:, m - STOI_SEGMENT:m]
        # Scale each band's processed segment to the clean one's energy, then bound it at the clean envelope
        # times (1 + 10^(-beta/20)).
        alpha = np.linalg.norm(xs, axis=1, keepdims=True) / (np.linalg.norm(ys, axis=1, keepdims=True) + eps)
        ys = np.minimum(alpha * ys, xs * clip)
        xs = xs - xs.mean(axis=1, keepdims=True)
        ys = ys - ys.mean(axis=1, keepdims=True)
        num = np.sum(xs * ys, axis=1)
        den = np.linalg.norm(xs, axis=1) * np.linalg.norm(ys, axis=1) + eps
        total += np.sum(num / den)
        count += STOI_BANDS
    return float(total / count)


def vad_scores(labels, decisions):
    """Frame-level scores of 0/1 `decisions` against 0/1 `labels` (truncated to the shorter of the two).

    precision = TP / (TP + FP), recall = TP / (TP + FN), F1 their harmonic mean, false-alarm rate =
    FP / (FP + TN) (the share of non-speech frames called speech), accuracy = (TP + TN) / frames. A ratio whose
    denominator is zero is nan.
    """
    n = min(len(labels), len(decisions))
    t = np.asarray(labels[:n]).astype(bool)
    d = np.asarray(decisions[:n]).astype(bool)
    tp = int(np.sum(t & d))
    fp = int(np.sum(~t & d))
    fn = int(np.sum(t & ~d))
    tn = int(np.sum(~t & ~d))
    return vad_scores_from_counts(tp, fp, fn, tn)


def vad_scores_from_counts(tp, fp, fn, tn):
    def ratio(a, b):
        return a / b if b else float("nan")

    precision = ratio(tp, tp + fp)
    recall = ratio(tp, tp + fn)
    return {
        "tp": tp, "fp": fp, "fn": fn, "tn": tn,
        "precision": precision,
        "recall": recall,
        "f1": ratio(2 * tp, 2 * tp + fp + fn),
        "false_alarm": ratio(fp, fp + tn),
        "accuracy": ratio(tp + tn, tp + fp + fn + tn),
    }
