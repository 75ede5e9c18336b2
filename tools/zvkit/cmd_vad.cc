// zvkit vad: where a recording or a live stream holds speech. The channels are mixed to one, resampled to
// 16 kHz and run through the VAD network hop by hop; a threshold and a hangover turn the probabilities into
// segments.
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/zvkit/audio_io.h"
#include "tools/zvkit/host_io.h"
#include "tools/zvkit/zvkit.h"
#include "zelva/audio/stream.h"
#include "zelva/audio/voice.h"

namespace zvkit {

namespace {

// One "time,probability" row, as "%.2f,%.6f\n" would print it, by std::to_chars: printf's formatting cost as
// much as a hop's features.
void WriteCsvRow(std::FILE* csv, double seconds, float probability) {
  char row[64];
  char* end = std::to_chars(row, row + 30, seconds, std::chars_format::fixed, 2).ptr;
  *end++ = ',';
  end = std::to_chars(end, row + 62, static_cast<double>(probability), std::chars_format::fixed, 6).ptr;
  *end++ = '\n';
  std::fwrite(row, 1, static_cast<size_t>(end - row), csv);
}

using zelva::audio::kHop;
using zelva::audio::kSampleRate;

struct VadOptions {
  std::string in, csv;
  AudioOptions audio;
  double threshold = 0.5, hangover_ms = 200.0;
};

bool ParseNumber(const std::string& option, const std::string& text, double low, double high, double* value,
                 std::string* error) {
  char* end = nullptr;
  *value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || !(*value >= low && *value <= high)) {
    *error = option + " takes a number from " + std::to_string(low) + " to " + std::to_string(high);
    return false;
  }
  return true;
}

bool ParseVadOptions(const std::vector<std::string>& args, VadOptions* o, std::string* error) {
  std::vector<std::string> positional;
  for (size_t i = 0; i < args.size(); ++i) {
    bool taken = false;
    std::string value;
    if (!TakeAudioOption(args, &i, &o->audio, &taken, error)) return false;
    if (taken) continue;
    const std::string& a = args[i];
    if (a == "--csv") {
      if (!TakeValue(args, &i, &o->csv, error)) return false;
    } else if (a == "--threshold") {
      if (!TakeValue(args, &i, &value, error) || !ParseNumber(a, value, 0.0, 1.0, &o->threshold, error))
        return false;
    } else if (a == "--hangover") {
      if (!TakeValue(args, &i, &value, error) || !ParseNumber(a, value, 0.0, 3.6e6, &o->hangover_ms, error))
        return false;
    } else if (a.size() > 1 && a[0] == '-') {
      *error = "unknown option " + a;
      return false;
    } else {
      positional.push_back(a);
    }
  }
  if (positional.size() != 1) {
    *error = "give one IN";
    return false;
  }
  o->in = positional[0];
  return true;
}

double Seconds(int64_t hop) {
  return static_cast<double>(hop) * kHop / kSampleRate;
}

}  // namespace

int CmdVad(const std::vector<std::string>& args) {
  const char* kCommand = "zvkit vad";
  VadOptions o;
  std::string error;
  if (!ParseVadOptions(args, &o, &error)) {
    std::fprintf(stderr, "%s: %s (see zvkit vad --help)\n", kCommand, error.c_str());
    return 2;
  }
  if (o.audio.model.empty()) o.audio.model = DefaultModelPath("vad.zvmod");
  if (o.audio.config.empty()) o.audio.config = DefaultModelPath("vad.cfg.json");

  AudioInput in(kCommand);
  if (!in.Open(o.in, &error)) {
    std::fprintf(stderr, "%s: %s\n", kCommand, error.c_str());
    return 1;
  }
  LogProblemsToStderr();
  if (!CheckModelShape(kCommand, o.audio.model, o.audio.config, false, true, zelva::audio::kVadBlock, 1))
    return 1;
  std::unique_ptr<zelva::audio::VoiceDetector> detector;
  try {
    detector = std::make_unique<zelva::audio::VoiceDetector>(o.audio.model, o.audio.config);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", kCommand, e.what());
    return 1;
  }
  std::FILE* csv = nullptr;
  if (o.csv == "-") {
    csv = stdout;
  } else if (!o.csv.empty() && (csv = std::fopen(o.csv.c_str(), "w")) == nullptr) {
    std::fprintf(stderr, "%s: cannot write %s\n", kCommand, o.csv.c_str());
    return 1;
  }
  // A file's rows go out in large writes, not one system call for every few kilobytes of a hop loop.
  // (Static: the stream may still be open when an error path returns, and exit flushes it.)
  static char csv_buffer[1 << 16];
  if (csv != nullptr && csv != stdout) std::setvbuf(csv, csv_buffer, _IOFBF, sizeof(csv_buffer));
  if (csv != nullptr) std::fprintf(csv, "time,probability\n");
  const bool print_segments = csv != stdout;

  zelva::audio::Segmenter segmenter(static_cast<float>(o.threshold),
                                    std::llround(o.hangover_ms * kSampleRate / 1000.0 / kHop));
  int64_t hop = 0;
  auto emit = [&](const zelva::audio::Segment& s) {
    if (print_segments) {
      std::printf("%.2f %.2f\n", Seconds(s.start), Seconds(s.end));
      if (in.raw()) std::fflush(stdout);  // live: each segment as it closes
    }
  };
  zelva::audio::HopStream hops(
      [&](const float* in_hop, float*) {
        const float p = detector->Process(in_hop);
        if (csv != nullptr) WriteCsvRow(csv, Seconds(hop), p);
        zelva::audio::Segment s;
        if (segmenter.Push(p, &s)) emit(s);
        ++hop;
      },
      0);
  Resampler up(in.rate(), kSampleRate);

  const size_t chunk = in.raw() ? kHop : 4096;
  const int nch = in.channels();
  std::vector<float> frames(chunk * nch), mono(chunk), native, unused;
  int64_t read = 0;
  double busy = 0.0;
  Progress progress(in.frames(), in.rate(), o.audio.quiet);
  try {
    for (bool end = false; !end;) {
      const size_t got = in.Read(frames.data(), chunk);
      end = got == 0;
      const auto t0 = std::chrono::steady_clock::now();
      read += static_cast<int64_t>(got);
      // One channel goes on as read; more are averaged.
      const float* samples = frames.data();
      if (nch > 1) {
        for (size_t i = 0; i < got; ++i) {
          float sum = 0.0f;
          for (int c = 0; c < nch; ++c) sum += frames[i * nch + c];
          mono[i] = sum / nch;
        }
        samples = mono.data();
      }
      if (up.identity()) {
        hops.Write(samples, got, &unused);
      } else {
        native.clear();
        up.Process(samples, got, end, &native);
        hops.Write(native.data(), native.size(), &unused);
      }
      if (end) hops.Finish(&unused);
      unused.clear();
      busy += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      progress.Update(read);
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", kCommand, e.what());
    return 1;
  }
  progress.Done();
  zelva::audio::Segment last;
  if (segmenter.Finish(&last)) emit(last);
  if (csv != nullptr && csv != stdout && std::fclose(csv) != 0) {
    std::fprintf(stderr, "%s: cannot write %s\n", kCommand, o.csv.c_str());
    return 1;
  }
  const double seconds = static_cast<double>(read) / in.rate();
  std::fprintf(stderr, "real-time factor %.6f\n", seconds > 0 ? busy / seconds : 0.0);
  return 0;
}

}  // namespace zvkit
