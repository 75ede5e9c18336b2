#!/usr/bin/python3
"""Makes the audio the denoise and VAD networks are trained and evaluated on, from what Debian's packages hold.

Speech
  synthetic  espeak-ng (many languages, voice variants, speed and pitch), flite voices, festival's kal_diphone,
             reading sentences cut from the packaged licence texts.
  recorded   human speech shipped in packages: ktuberling's words in many languages (one speaker per language),
             the asterisk prompts, warzone2100's spoken messages, the alsa-utils channel clips.
Noise
  synthetic  sox-made white, pink and brown noise (filtered and modulated at random), mains hum at 50 or 60 Hz
             with harmonics, babble of many overlapping synthesised voices.
  recorded   ambience and effects from game data (lincity-ng's city sounds: traffic, crowds, water, industry,
             farms...; extremetuxracer's slides and music; warzone2100's effects), babble of recorded speakers.

Some voices, languages, speakers and noise files are held out: they go only into the evaluation set, never into
the training pools (HELD_OUT_* below).

Outputs under --root (default /work/data):
  train/<pool>.npy, train/<pool>_idx.npy   float32 16 kHz clips back to back and their start offsets (n + 1),
                                           pools speech_synthetic, speech_recorded, noise_synthetic,
                                           noise_recorded; the trainers mix them on the fly
  heldout/manifest.csv                     name,set,snr_db,noisy,clean,labels (paths relative to heldout/)
  heldout/<set>/<name>_{noisy,clean}.wav   16 kHz mono 16-bit, equal length; clean is the speech exactly as
                                           mixed (after level and reverberation)
  heldout/<set>/<name>_labels.txt          one 0/1 per 10 ms hop (label rule: speech_labels below)

Everything is drawn from --seed, so the same seed gives the same data.

  /usr/bin/python3 tools/make_audio_data.py [--root /work/data] [--seed 1] [--per-snr 30] [--jobs 2]
"""

import argparse
import csv
import glob
import os
import random
import re
import subprocess
import tempfile
import wave
import zipfile
from multiprocessing import Pool

import numpy as np
from scipy.signal import fftconvolve

RATE = 16000
HOP = 160

KTUBERLING = "/usr/share/ktuberling/sounds"
ASTERISK = "/usr/share/asterisk/sounds"
ALSA = "/usr/share/sounds/alsa"
WARZONE = "/usr/share/games/warzone2100/base.wz"
LINCITY = "/usr/share/games/lincity-ng/sounds"
TUXRACER = "/usr/share/games/etr"

# Held out for evaluation only.
HELD_OUT_ESPEAK_LANGS = {"de", "es", "pl", "hi", "sv", "en-us-nyc", "en-gb-scotland", "fr-be", "pt-br", "tr", "vi"}
HELD_OUT_ESPEAK_VARIANTS = {"Andrea", "Storm", "klatt4", "m4", "f4", "whisper"}
HELD_OUT_FLITE = {"slt"}
HELD_OUT_KTUBERLING = {"de", "el", "it", "pt", "sv", "uk"}  # one speaker per language
HELD_OUT_NOISE = re.compile(r"(Harbor|Fire\d|SportsCroud3|TraficHigh3|TraficLow3|Water3|Water5|IndustryHigh3|"
                            r"RailTrain3|MarketFull|Shanty5|School3|WindMill3|lincity\.ogg|freezingpoint|"
                            r"snow_slide|rock_slide)")

SNRS = (-5, 0, 5, 10)


def run(cmd, **kw):
    return subprocess.run(cmd, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, **kw).stdout


def decode(path):
    """Any file sox reads -> float32 mono 16 kHz."""
    raw = run(["sox", "-V1", path, "-t", "f32", "-e", "floating-point", "-c", "1", "-r", str(RATE), "-"])
    return np.frombuffer(raw, dtype=np.float32).copy()


def trim(x, below_db=40.0):
    """Drops leading and trailing hops quieter than the loudest hop minus below_db."""
    if len(x) < HOP:
        return x
    e = np.array([np.mean(x[i:i + HOP] ** 2) for i in range(0, len(x) - HOP + 1, HOP)]) + 1e-12
    on = np.nonzero(10 * np.log10(e) > 10 * np.log10(e.max()) - below_db)[0]
    if len(on) == 0:
        return x[:0]
    return x[on[0] * HOP:min(len(x), (on[-1] + 1) * HOP)]


def speech_labels(clean):
    """The label rule: hop t (samples [160 t, 160 t + 160)) is speech when its mean energy is within 30 dB of the
    loudest hop of the file and above -70 dBFS."""
    t = len(clean) // HOP
    e = np.mean(clean[:t * HOP].astype(np.float64).reshape(t, HOP) ** 2, axis=1) + 1e-12
    db = 10 * np.log10(e)
    return ((db > db.max() - 30.0) & (db > -70.0)).astype(np.int8)


def sentences():
    text = []
    for path in sorted(glob.glob("/usr/share/common-licenses/*")):
        if os.path.isfile(path):
            with open(path, errors="ignore") as f:
                text.append(f.read())
    words = re.sub(r"[^A-Za-z,.;' ]+", " ", " ".join(text)).split()
    return words


def pick_text(rng, words):
    n = rng.randint(5, 18)
    i = rng.randrange(len(words) - n)
    return " ".join(words[i:i + n])


def tts(job):
    """job: (engine, voice, text, speed, pitch) -> float32 16 kHz clip."""
    engine, voice, text, speed, pitch = job
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "o.wav")
        try:
            if engine == "espeak":
                run(["espeak-ng", "-v", voice, "-s", str(speed), "-p", str(pitch), "-w", out, text])
            elif engine == "flite":
                run(["flite", "-voice", voice, "--setf", f"duration_stretch={175.0 / speed:.3f}", "-t", text,
                     "-o", out])
            else:
                run(["text2wave", "-eval", f"({voice})", "-o", out], input=text.encode())
            return trim(decode(out))
        except subprocess.CalledProcessError:
            return np.zeros(0, np.float32)


def decode_job(path):
    try:
        return trim(decode(path), 60.0)
    except subprocess.CalledProcessError:
        return np.zeros(0, np.float32)


def espeak_voices():
    langs = [line.split()[1] for line in run(["espeak-ng", "--voices"]).decode().splitlines()[1:]]
    variants = [line.split()[4].split("/")[-1] for line in
                run(["espeak-ng", "--voices=variant"]).decode().splitlines()[1:]]
    return sorted(set(langs)), sorted(set(variants))


def synth_jobs(rng, words, held_out, count):
    langs, variants = espeak_voices()
    langs = [l for l in langs if (l in HELD_OUT_ESPEAK_LANGS) == held_out]
    variants = [v for v in variants if (v in HELD_OUT_ESPEAK_VARIANTS) == held_out]
    flites = [v for v in ("kal16", "awb", "rms", "slt") if (v in HELD_OUT_FLITE) == held_out]
    jobs = []
    for _ in range(count):
        r = rng.random()
        speed = rng.randint(120, 230)
        if r < 0.75:
            voice = rng.choice(langs) + ("+" + rng.choice(variants) if rng.random() < 0.7 else "")
            jobs.append(("espeak", voice, pick_text(rng, words), speed, rng.randint(20, 80)))
        elif r < 0.92 or held_out:
            jobs.append(("flite", rng.choice(flites), pick_text(rng, words), speed, 0))
        else:
            jobs.append(("festival", "voice_kal_diphone", pick_text(rng, words), speed, 0))
    return jobs


def recorded_speech_files(held_out):
    files = []
    for lang in sorted(os.listdir(KTUBERLING)):
        d = os.path.join(KTUBERLING, lang)
        if os.path.isdir(d) and (lang in HELD_OUT_KTUBERLING) == held_out:
            files += sorted(glob.glob(d + "/*.ogg"))
    if held_out:
        files += sorted(glob.glob(ALSA + "/*.wav"))
        files = [f for f in files if not f.endswith("Noise.wav")]
    else:
        files += sorted(glob.glob(ASTERISK + "/*/*.wav"))
    return files


def warzone(tmp, kinds):
    """Extracts warzone2100's sound files whose folder is in kinds; returns their paths."""
    out = []
    if not os.path.exists(WARZONE):
        return out
    with zipfile.ZipFile(WARZONE) as z:
        for info in z.infolist():
            parts = info.filename.split("/")
            if info.filename.endswith(".ogg") and len(parts) > 2 and parts[1] in kinds:
                path = os.path.join(tmp, info.filename.replace("/", "_"))
                with open(path, "wb") as f:
                    f.write(z.read(info))
                out.append(path)
    return sorted(out)


def recorded_noise_files(held_out):
    files = sorted(glob.glob(LINCITY + "/*.wav") + glob.glob(LINCITY + "/../music/*/*.ogg") +
                   glob.glob(TUXRACER + "/**/*.wav", recursive=True) + glob.glob(TUXRACER + "/**/*.ogg",
                                                                                   recursive=True))
    files = [f for f in files if not re.search(r"(Click|Window|pickup|tree_hit)", f)]
    return [f for f in files if bool(HELD_OUT_NOISE.search(os.path.basename(f))) == held_out]


def sox_noise(seed, kind, seconds, rng):
    """White, pink or brown noise from sox, coloured and modulated at random."""
    effects = []
    if rng.random() < 0.5:
        effects += ["lowpass", str(rng.randint(1500, 7500))]
    if rng.random() < 0.3:
        effects += ["highpass", str(rng.randint(100, 1500))]
    if rng.random() < 0.3:
        effects += ["tremolo", f"{rng.uniform(0.2, 4):.2f}", str(rng.randint(20, 80))]
    raw = run(["sox", "-R", "-n", "-t", "f32", "-e", "floating-point", "-c", "1", "-r", str(RATE), "-",
               "synth", str(seconds), kind + "noise", "vol", "0.5"] + effects, env=dict(os.environ))
    x = np.frombuffer(raw, dtype=np.float32).copy()
    # sox -R repeats the same draw: start at a random offset of a longer draw instead
    return x


def hum(rng, seconds):
    f0 = rng.choice([50.0, 60.0])
    t = np.arange(int(seconds * RATE)) / RATE
    x = np.zeros_like(t)
    for k in range(1, rng.randint(4, 30)):
        x += rng.uniform(0, 1) / k ** rng.uniform(0.3, 1.5) * np.sin(2 * np.pi * f0 * k * t + rng.uniform(0, 6.3))
    x += rng.uniform(0.0, 0.05) * np.random.default_rng(rng.randrange(1 << 30)).standard_normal(len(t))
    return (x / (np.abs(x).max() + 1e-9) * 0.5).astype(np.float32)


def babble(rng, clips, seconds, talkers):
    n = int(seconds * RATE)
    out = np.zeros(n, np.float32)
    for _ in range(talkers):
        stream = []
        total = 0
        while total < n:
            c = clips[rng.randrange(len(clips))]
            c = c / (np.sqrt(np.mean(c ** 2)) + 1e-9) * 10 ** (rng.uniform(-6, 6) / 20)
            stream.append(c)
            total += len(c)
            gap = int(rng.uniform(0, 0.3) * RATE)
            stream.append(np.zeros(gap, np.float32))
            total += gap
        s = np.concatenate(stream)
        start = rng.randrange(max(1, len(s) - n))
        out += s[start:start + n]
    return out


def save_pool(path, clips):
    clips = [c.astype(np.float32) for c in clips if len(c) >= HOP * 10]
    idx = np.zeros(len(clips) + 1, np.int64)
    idx[1:] = np.cumsum([len(c) for c in clips])
    np.save(path + ".npy", np.concatenate(clips) if clips else np.zeros(0, np.float32))
    np.save(path + "_idx.npy", idx)
    print(f"{os.path.basename(path)}: {len(clips)} clips, {idx[-1] / RATE / 60:.1f} min", flush=True)


def reverb_ir(rng):
    """A synthetic room: direct path, then exponentially decaying noise (RT60 0.15-0.8 s)."""
    rt60 = rng.uniform(0.15, 0.8)
    n = int(rt60 * RATE)
    t = np.arange(n) / RATE
    g = np.random.default_rng(rng.randrange(1 << 30))
    tail = g.standard_normal(n) * np.exp(-6.91 * t / rt60)
    pre = int(rng.uniform(0.002, 0.02) * RATE)
    tail[:pre] = 0
    ir = tail * 10 ** (rng.uniform(-12, -3) / 20) / np.sqrt(np.sum(tail ** 2) + 1e-12)
    ir[0] = 1.0
    return ir.astype(np.float32)


def mix(rng, speech, noise, snr_db, level_db, reverb):
    """Returns (noisy, clean) with the speech at snr_db over the noise and the mixture at level_db dBFS (RMS)."""
    if reverb:
        speech = fftconvolve(speech, reverb_ir(rng))[:len(speech)].astype(np.float32)
    ps = np.mean(speech.astype(np.float64) ** 2) + 1e-12
    pn = np.mean(noise.astype(np.float64) ** 2) + 1e-12
    noise = noise * np.sqrt(ps / pn / 10 ** (snr_db / 10))
    noisy = speech + noise
    gain = 10 ** (level_db / 20) / np.sqrt(np.mean(noisy.astype(np.float64) ** 2) + 1e-12)
    peak = np.abs(noisy).max() * gain
    if peak > 0.95:
        gain *= 0.95 / peak
    return (noisy * gain).astype(np.float32), (speech * gain).astype(np.float32)


def utterance(rng, clips, lo, hi):
    """Clips back to back with short pauses, silence at both ends, lo..hi seconds long."""
    target = rng.uniform(lo, hi)
    parts = [np.zeros(int(rng.uniform(0.1, 0.5) * RATE), np.float32)]
    total = len(parts[0])
    while total < target * RATE:
        c = clips[rng.randrange(len(clips))]
        c = c / (np.sqrt(np.mean(c ** 2)) + 1e-9) * 10 ** (rng.uniform(-4, 4) / 20)
        parts += [c, np.zeros(int(rng.uniform(0.05, 0.6) * RATE), np.float32)]
        total += len(c) + len(parts[-1])
    x = np.concatenate(parts)
    n = int(min(hi, max(lo, len(x) / RATE)) * RATE) // HOP * HOP
    if len(x) < n:
        x = np.concatenate([x, np.zeros(n - len(x), np.float32)])
    return x[:n]


def noise_segment(rng, clips, n):
    c = clips[rng.randrange(len(clips))]
    if len(c) < n:
        c = np.tile(c, n // len(c) + 1)
    start = rng.randrange(len(c) - n + 1)
    return c[start:start + n]


def load_pools(root):
    """The training pools as lists of clips (views of the memory-mapped arrays)."""
    pools = {}
    for name in ("speech_synthetic", "speech_recorded", "noise_synthetic", "noise_recorded"):
        data = np.load(os.path.join(root, "train", name + ".npy"), mmap_mode="r")
        idx = np.load(os.path.join(root, "train", name + "_idx.npy"))
        pools[name] = [data[idx[i]:idx[i + 1]] for i in range(len(idx) - 1)]
    return pools


def training_example(rng, pools, seconds):
    """One mixture drawn from the training pools: (noisy, clean), seconds long, a whole number of hops.

    Recorded speech and recorded noise are drawn more often than synthetic ones; one mixture in ten has no
    speech; one in four layers a second noise; SNR -5..20 dB, level -40..-10 dBFS, reverberation one in three."""
    n = int(seconds * RATE) // HOP * HOP
    kind = "speech_recorded" if rng.random() < 0.65 else "speech_synthetic"
    speech = utterance(rng, pools[kind], seconds, seconds)[:n].astype(np.float32)
    first = "noise_recorded" if rng.random() < 0.6 else "noise_synthetic"
    noise = noise_segment(rng, pools[first], n).astype(np.float32)
    if rng.random() < 0.25:
        other = noise_segment(rng, pools[rng.choice(["noise_recorded", "noise_synthetic"])], n)
        noise = noise / (np.std(noise) + 1e-9) + other / (np.std(other) + 1e-9) * 10 ** (rng.uniform(-15, 5) / 20)
    noisy, clean = mix(rng, speech, noise.astype(np.float32), rng.uniform(-5, 20), rng.uniform(-40, -10),
                       rng.random() < 1 / 3)
    if rng.random() < 0.1:
        noisy, clean = noisy - clean, np.zeros_like(clean)
    return noisy, clean


def write_wav(path, x):
    pcm = np.clip(np.round(x * 32767.0), -32768, 32767).astype("<i2")
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(RATE)
        w.writeframes(pcm.tobytes())


def read_wav(path):
    with wave.open(path, "rb") as w:
        return np.frombuffer(w.readframes(w.getnframes()), dtype="<i2").astype(np.float32) / 32768.0


def copy_example(held_dir, dest):
    """The bundled example: the first held-out recorded-speech mixture at 0 dB that is 4 to 6 s long."""
    import shutil
    with open(os.path.join(held_dir, "manifest.csv")) as f:
        for row in csv.DictReader(f):
            if row["set"] == "recorded" and int(row["snr_db"]) == 0:
                n = len(read_wav(os.path.join(held_dir, row["noisy"])))
                if 4 * RATE <= n <= 6 * RATE:
                    shutil.copyfile(os.path.join(held_dir, row["noisy"]), os.path.join(dest, "example_noisy.wav"))
                    shutil.copyfile(os.path.join(held_dir, row["clean"]), os.path.join(dest, "example_clean.wav"))
                    print(f"example: {row['name']}, {n / RATE:.2f} s")
                    return
    raise SystemExit("no held-out recorded mixture at 0 dB of 4 to 6 s")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--root", default="/work/data")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--per-snr", type=int, default=30, help="held-out files per set and SNR")
    parser.add_argument("--synthetic", type=int, default=900, help="synthesised training utterances")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--quick", action="store_true", help="every tenth file only (to try the tool out)")
    parser.add_argument("--example", default="", help="only copy the bundled example from the held-out set "
                        "into this folder (as example_noisy.wav and example_clean.wav)")
    args = parser.parse_args()
    if args.example:
        copy_example(os.path.join(args.root, "heldout"), args.example)
        return

    rng = random.Random(args.seed)
    words = sentences()
    train_dir = os.path.join(args.root, "train")
    held_dir = os.path.join(args.root, "heldout")
    os.makedirs(train_dir, exist_ok=True)

    with Pool(args.jobs) as pool, tempfile.TemporaryDirectory() as tmp:
        # Speech.
        syn_train = pool.map(tts, synth_jobs(rng, words, False, args.synthetic), chunksize=4)
        syn_held = pool.map(tts, synth_jobs(rng, words, True, 160), chunksize=4)
        wz_speech = warzone(tmp, {"tutorial", "memressp", "vtoltalk", "nexus", "coltive", "countdown",
                                  "trnsppil", "proxmessages", "taunts"})
        step = 10 if args.quick else 1
        rec_train = pool.map(decode_job, (recorded_speech_files(False) + wz_speech)[::step], chunksize=8)
        rec_held = pool.map(decode_job, recorded_speech_files(True), chunksize=8)
        syn_train = [c for c in syn_train if len(c) > RATE // 2]
        syn_held = [c for c in syn_held if len(c) > RATE // 2]
        rec_train = [c for c in rec_train if len(c) > RATE // 5]
        rec_held = [c for c in rec_held if len(c) > RATE // 5]
        # Recorded noise.
        wz_noise = warzone(tmp, {"sfx", "multi", "extra"})
        wz_noise = [f for f in wz_noise if "sfx" in f]
        rn_train = pool.map(decode_job, (recorded_noise_files(False) + wz_noise)[::step], chunksize=4)
        rn_held = pool.map(decode_job, recorded_noise_files(True), chunksize=4)
        rn_train = [c for c in rn_train if len(c) > RATE // 4]
        rn_held = [c for c in rn_held if len(c) > RATE // 4]

    # Synthetic noise (sox draws are repeatable, so each clip cuts a random stretch of a long draw).
    long_draw = {k: sox_noise(0, k, 120, random.Random(0)) for k in ("white", "pink", "brown")}

    def synthetic_noises(count, tts_clips):
        out = []
        for i in range(count):
            kind = i % 5
            if kind < 3:
                name = ("white", "pink", "brown")[kind]
                x = sox_noise(0, name, 12, rng)
                start = rng.randrange(len(long_draw[name]) - len(x))
                x = (x + long_draw[name][start:start + len(x)]) * 0.5 if rng.random() < 0.5 else x
                x = np.roll(x, rng.randrange(len(x)))
            elif kind == 3:
                x = hum(rng, 12)
            else:
                x = babble(rng, tts_clips, 12, rng.randint(4, 12))
            out.append(x.astype(np.float32))
        return out

    sn_train = synthetic_noises(100, syn_train)
    sn_held = synthetic_noises(40, syn_held)
    rn_train += [babble(rng, rec_train, 12, rng.randint(4, 12)) for _ in range(30)]
    rn_held += [babble(rng, rec_held, 12, rng.randint(4, 12)) for _ in range(12)]

    save_pool(os.path.join(train_dir, "speech_synthetic"), syn_train)
    save_pool(os.path.join(train_dir, "speech_recorded"), rec_train)
    save_pool(os.path.join(train_dir, "noise_synthetic"), sn_train)
    save_pool(os.path.join(train_dir, "noise_recorded"), rn_train)

    # Held-out mixtures.
    rows = []
    for set_name, speech, noises in (("synthetic", syn_held, sn_held), ("recorded", rec_held, rn_held)):
        os.makedirs(os.path.join(held_dir, set_name), exist_ok=True)
        for snr in SNRS:
            for i in range(args.per_snr):
                s = utterance(rng, speech, 3.0, 8.0)
                n = noise_segment(rng, noises, len(s))
                noisy, clean = mix(rng, s, n, snr, rng.uniform(-40, -10), rng.random() < 0.3)
                name = f"{set_name}_{snr:+d}dB_{i:03d}"
                base = os.path.join(set_name, name)
                write_wav(os.path.join(held_dir, base + "_noisy.wav"), noisy)
                write_wav(os.path.join(held_dir, base + "_clean.wav"), clean)
                # labels from the clean speech as written (16-bit), one per hop
                labels = speech_labels(read_wav(os.path.join(held_dir, base + "_clean.wav")))
                np.savetxt(os.path.join(held_dir, base + "_labels.txt"), labels, fmt="%d")
                rows.append([name, set_name, snr, base + "_noisy.wav", base + "_clean.wav", base + "_labels.txt"])
    with open(os.path.join(held_dir, "manifest.csv"), "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(["name", "set", "snr_db", "noisy", "clean", "labels"])
        w.writerows(rows)
    print(f"held-out: {len(rows)} mixtures in {held_dir}/manifest.csv", flush=True)


if __name__ == "__main__":
    main()
