// The WebRTC audio-processing peer of the quality bench (built by bench/quality/run.sh, never by the
// project's build): noise suppression at its highest level, and the voice detector, on 10 ms frames at 16
// kHz.
//
//   webrtc_peer IN.wav OUT.wav FLAGS.txt
//
// IN is 16 kHz mono 16-bit PCM WAV. OUT gets the suppressor's output, sample for sample as it comes out (same
// length as IN; the suppressor's own delay is left in). FLAGS gets one line per 10 ms frame, 1 where the
// voice detector found voice. The two run as separate passes over the audio, each timed on the process CPU
// clock (processing calls only, no file I/O), printed as "ns_cpu_seconds X" and "vad_cpu_seconds Y".
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "webrtc/modules/audio_processing/include/audio_processing.h"
#include "webrtc/modules/interface/module_common_types.h"

namespace {

constexpr int kRate = 16000;
constexpr size_t kFrame = 160;

uint32_t Le32(const unsigned char* p) {
  return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint16_t Le16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] | p[1] << 8);
}

bool ReadWav(const char* path, std::vector<int16_t>* samples, std::string* error) {
  FILE* f = std::fopen(path, "rb");
  if (!f) {
    *error = std::string("cannot open ") + path;
    return false;
  }
  std::vector<unsigned char> bytes;
  unsigned char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
  std::fclose(f);
  if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) || std::memcmp(bytes.data() + 8, "WAVE", 4)) {
    *error = std::string(path) + " is not a WAV file";
    return false;
  }
  bool format_ok = false;
  for (size_t pos = 12; pos + 8 <= bytes.size();) {
    const unsigned char* chunk = bytes.data() + pos;
    const size_t size = Le32(chunk + 4);
    const size_t body = pos + 8;
    if (!std::memcmp(chunk, "fmt ", 4) && size >= 16 && body + 16 <= bytes.size()) {
      const unsigned char* fmt = bytes.data() + body;
      format_ok = Le16(fmt) == 1 && Le16(fmt + 2) == 1 && Le32(fmt + 4) == kRate && Le16(fmt + 14) == 16;
      if (!format_ok) {
        *error = std::string(path) + " is not 16 kHz mono 16-bit PCM";
        return false;
      }
    } else if (!std::memcmp(chunk, "data", 4)) {
      if (!format_ok) break;
      const size_t avail = std::min(size, bytes.size() - body) / 2;
      samples->resize(avail);
      for (size_t i = 0; i < avail; ++i)
        (*samples)[i] = static_cast<int16_t>(Le16(bytes.data() + body + 2 * i));
      return true;
    }
    pos = body + size + (size & 1);
  }
  *error = std::string(path) + " has no 16-bit PCM data chunk";
  return false;
}

bool WriteWav(const char* path, const std::vector<int16_t>& samples) {
  FILE* f = std::fopen(path, "wb");
  if (!f) return false;
  const uint32_t data = static_cast<uint32_t>(samples.size() * 2);
  unsigned char h[44];
  auto put32 = [&](int at, uint32_t v) {
    for (int i = 0; i < 4; ++i) h[at + i] = static_cast<unsigned char>(v >> (8 * i));
  };
  auto put16 = [&](int at, uint16_t v) {
    h[at] = static_cast<unsigned char>(v);
    h[at + 1] = static_cast<unsigned char>(v >> 8);
  };
  std::memcpy(h, "RIFF", 4);
  put32(4, 36 + data);
  std::memcpy(h + 8, "WAVEfmt ", 8);
  put32(16, 16);
  put16(20, 1);
  put16(22, 1);
  put32(24, kRate);
  put32(28, kRate * 2);
  put16(32, 2);
  put16(34, 16);
  std::memcpy(h + 36, "data", 4);
  put32(40, data);
  std::vector<unsigned char> body(data);
  for (size_t i = 0; i < samples.size(); ++i) {
    body[2 * i] = static_cast<unsigned char>(static_cast<uint16_t>(samples[i]));
    body[2 * i + 1] = static_cast<unsigned char>(static_cast<uint16_t>(samples[i]) >> 8);
  }
  const bool ok =
      std::fwrite(h, 1, 44, f) == 44 && std::fwrite(body.data(), 1, body.size(), f) == body.size();
  return std::fclose(f) == 0 && ok;
}

double CpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Runs every 10 ms frame of `in` through a fresh processor with one component enabled. `out` (if given) gets
// the processed samples; `flags` (if given) one voice flag per frame. Returns the CPU seconds of the calls.
double RunPass(const std::vector<int16_t>& in, bool suppress, std::vector<int16_t>* out,
               std::vector<int>* flags) {
  std::unique_ptr<webrtc::AudioProcessing> apm(webrtc::AudioProcessing::Create());
  if (suppress) {
    apm->noise_suppression()->set_level(webrtc::NoiseSuppression::kVeryHigh);
    apm->noise_suppression()->Enable(true);
  } else {
    apm->voice_detection()->Enable(true);
  }
  webrtc::AudioFrame frame;
  const size_t frames = (in.size() + kFrame - 1) / kFrame;
  if (out) out->assign(frames * kFrame, 0);
  if (flags) flags->assign(frames, 0);
  double cpu = 0.0;
  for (size_t t = 0; t < frames; ++t) {
    frame.sample_rate_hz_ = kRate;
    frame.num_channels_ = 1;
    frame.samples_per_channel_ = kFrame;
    for (size_t i = 0; i < kFrame; ++i) {
      const size_t at = t * kFrame + i;
      frame.data_[i] = at < in.size() ? in[at] : 0;
    }
    const double t0 = CpuSeconds();
    const int r = apm->ProcessStream(&frame);
    const bool voice = !suppress && apm->voice_detection()->stream_has_voice();
    cpu += CpuSeconds() - t0;
    if (r != webrtc::AudioProcessing::kNoError) {
      std::fprintf(stderr, "webrtc_peer: frame %zu failed (%d)\n", t, r);
      return -1.0;
    }
    if (out) std::memcpy(out->data() + t * kFrame, frame.data_, kFrame * sizeof(int16_t));
    if (flags) (*flags)[t] = voice ? 1 : 0;
  }
  if (out) out->resize(in.size());
  return cpu;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: webrtc_peer IN.wav OUT.wav FLAGS.txt\n");
    return 2;
  }
  std::vector<int16_t> in;
  std::string error;
  if (!ReadWav(argv[1], &in, &error)) {
    std::fprintf(stderr, "webrtc_peer: %s\n", error.c_str());
    return 1;
  }
  std::vector<int16_t> out;
  std::vector<int> flags;
  const double ns_cpu = RunPass(in, true, &out, nullptr);
  const double vad_cpu = RunPass(in, false, nullptr, &flags);
  if (ns_cpu < 0 || vad_cpu < 0) return 1;
  if (!WriteWav(argv[2], out)) {
    std::fprintf(stderr, "webrtc_peer: cannot write %s\n", argv[2]);
    return 1;
  }
  FILE* f = std::fopen(argv[3], "w");
  if (!f) {
    std::fprintf(stderr, "webrtc_peer: cannot write %s\n", argv[3]);
    return 1;
  }
  for (int v : flags) std::fprintf(f, "%d\n", v);
  std::fclose(f);
  std::printf("ns_cpu_seconds %.6f\nvad_cpu_seconds %.6f\n", ns_cpu, vad_cpu);
  return 0;
}
