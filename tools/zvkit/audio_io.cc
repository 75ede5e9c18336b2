#include "tools/zvkit/audio_io.h"

#include <samplerate.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/zvkit/log_sink.h"
#include "tools/zvkit/zvkit.h"
#include "zelva/audio/contract.h"

namespace zvkit {

namespace {
constexpr int kRawRate = zelva::audio::kSampleRate;
}  // namespace

AudioInput::~AudioInput() {
  if (file_ != nullptr) sf_close(file_);
}

bool AudioInput::Open(const std::string& path, std::string* error) {
  path_ = path;
  if (path == "-") {
    rate_ = kRawRate;
    channels_ = 1;
    return true;
  }
  SF_INFO info{};
  file_ = sf_open(path.c_str(), SFM_READ, &info);
  if (file_ == nullptr) {
    *error = "cannot read " + path + ": " + sf_strerror(nullptr);
    return false;
  }
  if (info.samplerate <= 0 || info.channels <= 0) {
    *error = "cannot read " + path + ": no sample rate or no channels";
    return false;
  }
  rate_ = info.samplerate;
  channels_ = info.channels;
  frames_ = info.frames;
  const int subtype = info.format & SF_FORMAT_SUBMASK;
  float_ = subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
  return true;
}

size_t AudioInput::Read(float* buffer, size_t frames) {
  size_t got = 0;
  if (file_ != nullptr) {
    got = static_cast<size_t>(std::max<sf_count_t>(0, sf_readf_float(file_, buffer, frames)));
  } else {
    raw_.resize(frames);
    got = std::fread(raw_.data(), sizeof(int16_t), frames, stdin);
    for (size_t i = 0; i < got; ++i) buffer[i] = raw_[i] / 32768.0f;
  }
  for (size_t i = 0; i < got * channels_; ++i) {
    if (!std::isfinite(buffer[i])) {
      buffer[i] = 0.0f;
      if (!warned_)
        std::fprintf(stderr,
                     "%s: %s holds samples that are not numbers or are infinite; they are read as 0\n",
                     command_.c_str(), path_.c_str());
      warned_ = true;
    }
  }
  return got;
}

AudioOutput::~AudioOutput() {
  Close();
}

bool AudioOutput::Open(const std::string& path, int rate, int channels, bool float_samples,
                       std::string* error) {
  path_ = path;
  channels_ = channels;
  if (path == "-") {
    raw_ = true;
    return true;
  }
  SF_INFO info{};
  info.samplerate = rate;
  info.channels = channels;
  info.format = SF_FORMAT_WAV | (float_samples ? SF_FORMAT_FLOAT : SF_FORMAT_PCM_16);
  file_ = sf_open(path.c_str(), SFM_WRITE, &info);
  if (file_ == nullptr) {
    *error = "cannot write " + path + ": " + sf_strerror(nullptr);
    return false;
  }
  sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
  return true;
}

bool AudioOutput::Write(const float* frames, size_t count) {
  const size_t samples = count * channels_;
  clamped_.resize(samples);
  for (size_t i = 0; i < samples; ++i) {
    const float v = frames[i];
    clamped_[i] = v != v ? 0.0f : std::min(1.0f, std::max(-1.0f, v));
  }
  if (!raw_) return sf_writef_float(file_, clamped_.data(), count) == static_cast<sf_count_t>(count);
  pcm_.resize(samples);
  for (size_t i = 0; i < samples; ++i) pcm_[i] = static_cast<int16_t>(std::lrint(clamped_[i] * 32767.0f));
  const bool ok = std::fwrite(pcm_.data(), sizeof(int16_t), samples, stdout) == samples;
  return std::fflush(stdout) == 0 && ok;
}

bool AudioOutput::Close() {
  bool ok = true;
  if (file_ != nullptr) {
    ok = sf_error(file_) == SF_ERR_NO_ERROR;
    ok = sf_close(file_) == 0 && ok;
    file_ = nullptr;
  }
  return ok;
}

Resampler::Resampler(int from_rate, int to_rate) : ratio_(static_cast<double>(to_rate) / from_rate) {
  if (from_rate == to_rate) return;
  int error = 0;
  state_ = src_new(SRC_SINC_MEDIUM_QUALITY, 1, &error);
  if (state_ == nullptr) {
    std::fprintf(stderr, "zvkit: cannot start the resampler: %s\n", src_strerror(error));
    std::exit(1);
  }
}

Resampler::~Resampler() {
  if (state_ != nullptr) src_delete(state_);
}

void Resampler::Process(const float* in, size_t count, bool end, std::vector<float>* out) {
  if (state_ == nullptr) {
    out->insert(out->end(), in, in + count);
    return;
  }
  static const float kNothing = 0.0f;
  if (in == nullptr) in = &kNothing;  // the converter wants a pointer even for no samples
  float buffer[4096];
  for (;;) {
    SRC_DATA data{};
    data.data_in = in;
    data.input_frames = static_cast<long>(count);
    data.data_out = buffer;
    data.output_frames = static_cast<long>(sizeof(buffer) / sizeof(buffer[0]));
    data.end_of_input = end ? 1 : 0;
    data.src_ratio = ratio_;
    const int error = src_process(state_, &data);
    if (error != 0) {
      std::fprintf(stderr, "zvkit: the resampler failed: %s\n", src_strerror(error));
      std::exit(1);
    }
    out->insert(out->end(), buffer, buffer + data.output_frames_gen);
    in += data.input_frames_used;
    count -= static_cast<size_t>(data.input_frames_used);
    if (count == 0 && (!end || data.output_frames_gen == 0)) return;
  }
}

// $ZVKIT_MODELS, else models/ beside the folder zvkit runs from (build/zvkit -> models/ of the source tree),
// else share/zelva/models of an installed tree. No path of the build machine is compiled in.
std::string DefaultModelPath(const std::string& file) {
  const char* dir = std::getenv("ZVKIT_MODELS");
  if (dir != nullptr && *dir != '\0') return std::string(dir) + "/" + file;
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
  std::string root = "..";
  if (n > 0) {
    const std::string path(exe, static_cast<size_t>(n));
    root = path.substr(0, path.rfind('/')) + "/..";
  }
  for (const char* sub : {"/models/", "/share/zelva/models/"}) {
    const std::string candidate = root + sub + file;
    if (access(candidate.c_str(), R_OK) == 0) return candidate;
  }
  return root + "/models/" + file;
}

Progress::Progress(int64_t total_frames, int rate, bool quiet)
    : total_(total_frames), enabled_(!quiet && total_frames > 5LL * rate && isatty(STDERR_FILENO)) {}

void Progress::Update(int64_t done_frames) {
  if (!enabled_) return;
  const int percent = static_cast<int>(std::min<int64_t>(100, done_frames * 100 / total_));
  if (percent == shown_) return;
  shown_ = percent;
  const int width = 40, filled = percent * width / 100;
  std::fprintf(stderr, "\r[%.*s%*s] %3d%%", filled, "########################################",
               width - filled, "", percent);
}

void Progress::Done() {
  if (enabled_ && shown_ >= 0) std::fprintf(stderr, "\r%*s\r", 48, "");
}

bool TakeValue(const std::vector<std::string>& args, size_t* i, std::string* value, std::string* error) {
  if (*i + 1 >= args.size()) {
    *error = args[*i] + " needs a value";
    return false;
  }
  *value = args[++*i];
  return true;
}

bool TakeAudioOption(const std::vector<std::string>& args, size_t* i, AudioOptions* o, bool* taken,
                     std::string* error) {
  const std::string& a = args[*i];
  *taken = true;
  if (a == "--model") return TakeValue(args, i, &o->model, error);
  if (a == "--config") return TakeValue(args, i, &o->config, error);
  if (a == "--quiet") {
    o->quiet = true;
    ShowErrorsOnly();
    return true;
  }
  *taken = false;
  return true;
}

bool CheckModelShape(const std::string& command, const std::string& model, const std::string& config,
                     bool fused, bool vad, size_t want_in, size_t want_out) {
  for (const std::string& path : {model, config}) {
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
      std::fclose(f);
    } else {
      std::fprintf(stderr,
                   "%s: cannot open %s (give --model and --config, or set ZVKIT_MODELS to their folder)\n",
                   command.c_str(), path.c_str());
      return false;
    }
  }
  size_t in = 0, out = 0;
  std::string error;
  if (!BlockSizes(model, config, fused, vad, &in, &out, &error)) {
    std::fprintf(stderr, "%s: %s\n", command.c_str(), error.c_str());
    return false;
  }
  if (in != want_in || out != want_out) {
    std::fprintf(stderr, "%s: %s takes %zu floats and gives %zu; this command needs %zu in and %zu out\n",
                 command.c_str(), model.c_str(), in, out, want_in, want_out);
    return false;
  }
  return true;
}

}  // namespace zvkit
