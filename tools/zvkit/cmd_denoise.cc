// zvkit denoise: a recording or a live stream through the denoiser. Each channel is its own stream with its
// own engine: resampled to 16 kHz, denoised hop by hop, resampled back, the denoiser's delay taken out.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/zvkit/audio_io.h"
#include "tools/zvkit/host_io.h"
#include "tools/zvkit/zvkit.h"
#include "zelva/audio/denoiser.h"
#include "zelva/audio/metrics.h"
#include "zelva/audio/stream.h"

namespace zvkit {

namespace {

using zelva::audio::kSampleRate;

struct DenoiseOptions {
  std::string in, out, reference;
  AudioOptions audio;
  bool fused = false;
};

bool ParseDenoiseOptions(const std::vector<std::string>& args, DenoiseOptions* o, std::string* error) {
  std::vector<std::string> positional;
  for (size_t i = 0; i < args.size(); ++i) {
    bool taken = false;
    if (!TakeAudioOption(args, &i, &o->audio, &taken, error)) return false;
    if (taken) continue;
    if (args[i] == "--fused") {
      o->fused = true;
    } else if (args[i] == "--reference") {
      if (!TakeValue(args, &i, &o->reference, error)) return false;
    } else if (args[i].size() > 1 && args[i][0] == '-') {
      *error = "unknown option " + args[i];
      return false;
    } else {
      positional.push_back(args[i]);
    }
  }
  if (positional.size() != 2) {
    *error = "give IN and OUT";
    return false;
  }
  o->in = positional[0];
  o->out = positional[1];
  if (o->in == o->out && o->in != "-") {
    *error = "OUT would overwrite IN while it is read";
    return false;
  }
  return true;
}

// One channel: resampler up, denoiser with its delay taken out, resampler back.
class ChannelDenoiser {
 public:
  ChannelDenoiser(const DenoiseOptions& o, int rate)
      : up_(rate, kSampleRate),
        down_(kSampleRate, rate),
        denoiser_(o.audio.model, o.audio.config, o.fused),
        hops_([this](const float* in, float* out) { denoiser_.Process(in, out); },
              zelva::audio::kDelaySamples) {}

  void Write(const float* in, size_t count, bool end, std::vector<float>* out) {
    native_.clear();
    up_.Process(in, count, end, &native_);
    denoised_.clear();
    hops_.Write(native_.data(), native_.size(), &denoised_);
    if (end) hops_.Finish(&denoised_);
    down_.Process(denoised_.data(), denoised_.size(), end, out);
  }

 private:
  Resampler up_, down_;
  zelva::audio::Denoiser denoiser_;
  zelva::audio::HopStream hops_;
  std::vector<float> native_, denoised_;
};

// SI-SDR of the input and of the output against a clean reference read alongside each.
class ReferenceScore {
 public:
  bool Open(const std::string& path, const AudioInput& in, std::string* error) {
    for (AudioInput* r : {&for_input_, &for_output_}) {
      if (!r->Open(path, error)) return false;
      if (r->rate() != in.rate() || r->channels() != in.channels()) {
        *error = "the reference " + path + " is not at the input's rate and channel count";
        return false;
      }
    }
    return true;
  }
  void AddInput(const float* x, size_t frames) { Add(&for_input_, &input_, x, frames); }
  void AddOutput(const float* y, size_t frames) { Add(&for_output_, &output_, y, frames); }
  void Print() const {
    const double in = input_.Decibels(), out = output_.Decibels();
    std::printf("SI-SDR input %.2f dB, output %.2f dB, improvement %.2f dB\n", in, out, out - in);
  }

 private:
  void Add(AudioInput* reader, zelva::audio::SiSdr* score, const float* x, size_t frames) {
    clean_.assign(frames * reader->channels(), 0.0f);  // a shorter reference counts as silence
    reader->Read(clean_.data(), frames);
    score->Add(clean_.data(), x, clean_.size());
  }
  AudioInput for_input_{"zvkit denoise"}, for_output_{"zvkit denoise"};
  zelva::audio::SiSdr input_, output_;
  std::vector<float> clean_;
};

// Moves the first `count` samples of every channel into `interleaved` frames (silence where one is short).
void TakeFrames(std::vector<std::vector<float>>* channels, size_t count, std::vector<float>* interleaved) {
  const size_t nch = channels->size();
  interleaved->assign(count * nch, 0.0f);
  for (size_t c = 0; c < nch; ++c) {
    std::vector<float>& samples = (*channels)[c];
    const size_t have = std::min(count, samples.size());
    for (size_t i = 0; i < have; ++i) (*interleaved)[i * nch + c] = samples[i];
    samples.erase(samples.begin(), samples.begin() + have);
  }
}

}  // namespace

int CmdDenoise(const std::vector<std::string>& args) {
  const char* kCommand = "zvkit denoise";
  DenoiseOptions o;
  std::string error;
  if (!ParseDenoiseOptions(args, &o, &error)) {
    std::fprintf(stderr, "%s: %s (see zvkit denoise --help)\n", kCommand, error.c_str());
    return 2;
  }
  if (o.audio.model.empty()) o.audio.model = DefaultModelPath("denoise.zvmod");
  if (o.audio.config.empty()) o.audio.config = DefaultModelPath("denoise.cfg.json");

  AudioInput in(kCommand);
  if (!in.Open(o.in, &error)) {
    std::fprintf(stderr, "%s: %s\n", kCommand, error.c_str());
    return 1;
  }
  if (o.out == "-" && (in.rate() != kSampleRate || in.channels() != 1)) {
    std::fprintf(stderr,
                 "%s: raw output is mono at %d Hz; %s has %d channels at %d Hz (write a file instead)\n",
                 kCommand, kSampleRate, o.in.c_str(), in.channels(), in.rate());
    return 1;
  }
  std::unique_ptr<ReferenceScore> score;
  if (!o.reference.empty()) {
    score = std::make_unique<ReferenceScore>();
    if (!score->Open(o.reference, in, &error)) {
      std::fprintf(stderr, "%s: %s\n", kCommand, error.c_str());
      return 1;
    }
  }
  LogProblemsToStderr();
  if (!CheckModelShape(kCommand, o.audio.model, o.audio.config, o.fused, false, zelva::audio::kDenoiseBlock,
                       zelva::audio::kBands))
    return 1;
  std::vector<std::unique_ptr<ChannelDenoiser>> channels;
  try {
    for (int c = 0; c < in.channels(); ++c)
      channels.push_back(std::make_unique<ChannelDenoiser>(o, in.rate()));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", kCommand, e.what());
    return 1;
  }
  AudioOutput out(kCommand);
  if (!out.Open(o.out, in.rate(), in.channels(), in.float_samples(), &error)) {
    std::fprintf(stderr, "%s: %s\n", kCommand, error.c_str());
    return 1;
  }

  // Raw input goes a hop at a time, so that a live stream comes out as it goes in.
  const size_t chunk = in.raw() ? zelva::audio::kHop : 4096;
  const int nch = in.channels();
  std::vector<float> frames(chunk * nch), planar(chunk), interleaved;
  std::vector<std::vector<float>> pending(nch);
  int64_t read = 0, written = 0;
  double busy = 0.0;
  Progress progress(in.frames(), in.rate(), o.audio.quiet);
  bool ok = true;
  for (bool end = false; !end && ok;) {
    const size_t got = in.Read(frames.data(), chunk);
    end = got == 0;
    const auto t0 = std::chrono::steady_clock::now();
    if (score) score->AddInput(frames.data(), got);
    read += static_cast<int64_t>(got);
    try {
      for (int c = 0; c < nch; ++c) {
        for (size_t i = 0; i < got; ++i) planar[i] = frames[i * nch + c];
        channels[c]->Write(planar.data(), got, end, &pending[c]);
      }
    } catch (const std::exception& e) {
      std::fprintf(stderr, "%s: %s\n", kCommand, e.what());
      return 1;
    }
    // Every channel gives the same count; the output never runs ahead of the input (the converters' rounding
    // at the end is trimmed, and a sample short is made up with silence).
    size_t ready = pending[0].size();
    for (const auto& p : pending) ready = std::min(ready, p.size());
    ready = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(ready), read - written));
    if (end) ready = static_cast<size_t>(read - written);
    TakeFrames(&pending, ready, &interleaved);
    ok = out.Write(interleaved.data(), ready);
    if (score) score->AddOutput(interleaved.data(), ready);
    written += static_cast<int64_t>(ready);
    busy += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    progress.Update(read);
  }
  progress.Done();
  if (!out.Close() || !ok) {
    std::fprintf(stderr, "%s: cannot write %s\n", kCommand, o.out.c_str());
    return 1;
  }
  if (score) score->Print();
  const double seconds = static_cast<double>(read) / in.rate();
  std::fprintf(stderr, "real-time factor %.6f\n", seconds > 0 ? busy / seconds : 0.0);
  return 0;
}

}  // namespace zvkit
