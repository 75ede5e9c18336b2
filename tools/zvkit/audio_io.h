// What zvkit denoise and zvkit vad share: audio in and out in chunks (files through libsndfile, "-" for raw
// 16-bit little-endian mono PCM at 16 kHz on stdin/stdout), streaming resampling through libsamplerate, the
// models' default paths, a progress bar and the options both commands take.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

typedef struct SRC_STATE_tag SRC_STATE;

namespace zvkit {

// Reads interleaved float frames, a chunk at a time, so that files of any length take bounded memory.
class AudioInput {
 public:
  explicit AudioInput(std::string command) : command_(std::move(command)) {}
  ~AudioInput();
  // "-" is raw s16le mono 16 kHz on stdin. False with a one-line reason when the input cannot be read.
  bool Open(const std::string& path, std::string* error);
  // Up to `frames` frames into `buffer` (frames x channels()); 0 at the end. Samples that are not numbers (or
  // are infinite) come back as 0, with one warning line for the whole input.
  size_t Read(float* buffer, size_t frames);

  int rate() const { return rate_; }
  int channels() const { return channels_; }
  int64_t frames() const { return frames_; }  // -1 when not known (raw input)
  bool raw() const { return file_ == nullptr; }
  bool float_samples() const { return float_; }

 private:
  std::string command_, path_;
  SNDFILE* file_ = nullptr;
  int rate_ = 0, channels_ = 0;
  int64_t frames_ = -1;
  bool float_ = false, warned_ = false;
  std::vector<int16_t> raw_;
};

// Writes interleaved float frames, each sample clamped to full scale (and a stray NaN to 0).
class AudioOutput {
 public:
  explicit AudioOutput(std::string command) : command_(std::move(command)) {}
  ~AudioOutput();
  // "-" is raw s16le on stdout, flushed at every write; otherwise a WAV file (float samples, or 16-bit PCM).
  bool Open(const std::string& path, int rate, int channels, bool float_samples, std::string* error);
  bool Write(const float* frames, size_t count);
  // Closes the file; false when the last writes failed.
  bool Close();

 private:
  std::string command_, path_;
  SNDFILE* file_ = nullptr;
  bool raw_ = false;
  int channels_ = 1;
  std::vector<float> clamped_;
  std::vector<int16_t> pcm_;
};

// Streaming sample-rate conversion of one channel (SRC_SINC_MEDIUM_QUALITY). A ratio of 1 passes through.
class Resampler {
 public:
  Resampler(int from_rate, int to_rate);
  ~Resampler();
  Resampler(const Resampler&) = delete;
  Resampler& operator=(const Resampler&) = delete;
  // Appends the converted samples of `in` to *out; `end` drains what the converter still holds.
  void Process(const float* in, size_t count, bool end, std::vector<float>* out);
  // Whether the rates are equal, so that Process only copies.
  bool identity() const { return state_ == nullptr; }

 private:
  SRC_STATE* state_ = nullptr;
  double ratio_;
};

// The bundled models: $ZVKIT_MODELS, else the source tree's models/ folder.
std::string DefaultModelPath(const std::string& file);

// A progress bar on stderr, only for inputs longer than five seconds and only when stderr is a terminal.
class Progress {
 public:
  Progress(int64_t total_frames, int rate, bool quiet);
  void Update(int64_t done_frames);
  void Done();

 private:
  int64_t total_;
  bool enabled_;
  int shown_ = -1;
};

// The value of the option args[*i] (the next argument, *i advanced to it); false with *error when missing.
bool TakeValue(const std::vector<std::string>& args, size_t* i, std::string* value, std::string* error);

// --model, --config and --quiet, which both audio commands take.
struct AudioOptions {
  std::string model, config;
  bool quiet = false;
};
// Takes args[*i] when it is one of those (sets *taken); false only on a missing value.
bool TakeAudioOption(const std::vector<std::string>& args, size_t* i, AudioOptions* o, bool* taken,
                     std::string* error);

// Refuses a network whose block or output is not the size the audio host gives and takes.
bool CheckModelShape(const std::string& command, const std::string& model, const std::string& config,
                     bool fused, bool vad, size_t want_in, size_t want_out);

}  // namespace zvkit
