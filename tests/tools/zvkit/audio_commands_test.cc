// zvkit denoise and zvkit vad as a user runs them: on audio files made here with libsndfile, good and bad.
// What cannot be read gives one line on stderr and exit 1; valid audio gives valid audio (finite, within full
// scale) of the same length, rate and channel count.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kData = std::string(ZELVA_SOURCE_DIR) + "/tests/data/audio/";
const std::string kWork = ZVKIT_TEST_WORK_DIR;
const std::string kUnitModel =
    " --model " + kData + "unit_gain.json --config " + kData + "unit_gain.cfg.json";
const std::string kTinyVad = " --model " + kData + "vad_tiny.json --config " + kData + "vad_tiny.cfg.json";

struct Audio {
  int rate = 0, channels = 0, format = 0;
  std::vector<float> samples;  // interleaved
  size_t frames() const { return samples.size() / channels; }
};

std::string Path(const std::string& name) {
  return kWork + "/" + name;
}

void WriteAudio(const std::string& name, const Audio& a) {
  SF_INFO info{};
  info.samplerate = a.rate;
  info.channels = a.channels;
  info.format = a.format;
  SNDFILE* f = sf_open(Path(name).c_str(), SFM_WRITE, &info);
  ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
  sf_command(f, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
  ASSERT_EQ(sf_writef_float(f, a.samples.data(), a.frames()), static_cast<sf_count_t>(a.frames()));
  sf_close(f);
}

// Everything libsndfile reads from the file (a truncated file: what is there).
Audio ReadAudio(const std::string& name) {
  Audio a;
  SF_INFO info{};
  SNDFILE* f = sf_open(Path(name).c_str(), SFM_READ, &info);
  if (f == nullptr) return a;
  a.rate = info.samplerate;
  a.channels = info.channels;
  a.format = info.format;
  std::vector<float> chunk(1024 * info.channels);
  for (sf_count_t got; (got = sf_readf_float(f, chunk.data(), 1024)) > 0;)
    a.samples.insert(a.samples.end(), chunk.begin(), chunk.begin() + got * info.channels);
  sf_close(f);
  return a;
}

void WriteBytes(const std::string& name, const std::string& bytes) {
  std::ofstream(Path(name), std::ios::binary) << bytes;
}

std::string ReadText(const std::string& path) {
  std::stringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

struct Outcome {
  int status;
  std::string out, err;
};

Outcome Zvkit(const std::string& arguments) {
  // ctest runs the tests of this file side by side: each keeps its own capture files.
  const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string out = Path(test + ".stdout"), err = Path(test + ".stderr");
  const int raw = std::system((std::string(ZVKIT) + " " + arguments + " >" + out + " 2>" + err).c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadText(out), ReadText(err)};
}

Audio Tone(int rate, int channels, double seconds, int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
  Audio a{rate, channels, format, {}};
  const size_t frames = static_cast<size_t>(rate * seconds);
  for (size_t n = 0; n < frames; ++n)
    for (int c = 0; c < channels; ++c)
      a.samples.push_back(static_cast<float>(0.3 * std::sin(2 * M_PI * (220.0 * (c + 1)) * n / rate) +
                                             0.05 * std::sin(0.37 * n * n / rate)));
  return a;
}

// Valid audio out: the input's rate, channels and length, every sample finite and within full scale.
void ExpectValidOutput(const Audio& in, const std::string& out_name) {
  const Audio out = ReadAudio(out_name);
  ASSERT_EQ(out.rate, in.rate);
  ASSERT_EQ(out.channels, in.channels);
  ASSERT_EQ(out.frames(), in.frames());
  for (float v : out.samples) ASSERT_TRUE(std::isfinite(v) && std::fabs(v) <= 1.0f) << v;
}

size_t Lines(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

class AudioCommands : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { std::system(("mkdir -p " + kWork).c_str()); }
};

TEST_F(AudioCommands, WhatCannotBeReadIsOneLineAndExitOne) {
  WriteBytes("not_audio.wav", "this is a text file, not a recording\n");
  WriteBytes("empty.wav", "");
  WriteAudio("whole.wav", Tone(16000, 1, 0.5, SF_FORMAT_WAV | SF_FORMAT_PCM_16));
  WriteBytes("header_cut.wav", ReadText(Path("whole.wav")).substr(0, 30));
  for (const char* name : {"not_audio.wav", "empty.wav", "header_cut.wav", "no_such_file.wav"}) {
    for (const std::string& command :
         {"denoise " + Path(name) + " " + Path("never.wav"), "vad " + Path(name)}) {
      const Outcome r = Zvkit(command);
      EXPECT_EQ(r.status, 1) << command;
      EXPECT_EQ(Lines(r.err), 1u) << command << ": " << r.err;
      EXPECT_EQ(
          r.err.rfind("zvkit " + command.substr(0, command.find(' ')) + ": cannot read " + Path(name), 0), 0u)
          << r.err;
    }
  }
  EXPECT_FALSE(std::ifstream(Path("never.wav")).good());
}

TEST_F(AudioCommands, ValidAudioGivesValidAudioOfTheSameShape) {
  std::vector<std::pair<std::string, Audio>> inputs = {
      {"rate_8k.wav", Tone(8000, 1, 1.3, SF_FORMAT_WAV | SF_FORMAT_PCM_16)},
      {"rate_96k.wav", Tone(96000, 1, 0.7)},
      {"six_channels.wav", Tone(44100, 6, 0.4, SF_FORMAT_WAV | SF_FORMAT_PCM_16)},
      {"silence.wav", Audio{16000, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, std::vector<float>(2 * 12345, 0.0f)}},
      {"short.flac", Tone(22050, 1, 0.01, SF_FORMAT_FLAC | SF_FORMAT_PCM_16)},
  };
  // Full-scale clipping: a square wave at +-1, and float samples far beyond it.
  Audio clipped = Tone(16000, 1, 0.8);
  for (size_t n = 0; n < clipped.samples.size(); ++n) clipped.samples[n] = (n / 40) % 2 ? 1.0f : -1.0f;
  clipped.samples[100] = 8.0f;
  clipped.samples[200] = -1e6f;
  inputs.emplace_back("clipped.wav", clipped);
  for (const auto& [name, audio] : inputs) {
    SCOPED_TRACE(name);
    WriteAudio(name, audio);
    const Outcome r = Zvkit("denoise --quiet " + Path(name) + " " + Path("out_" + name + ".wav"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("real-time factor "), std::string::npos);
    ExpectValidOutput(ReadAudio(name), "out_" + name + ".wav");
    EXPECT_EQ(Zvkit("vad " + Path(name) + kTinyVad).status, 0);
  }
}

TEST_F(AudioCommands, TruncatedDataAndNaNSamplesAreReadAsFarAsTheyGo) {
  WriteAudio("long.wav", Tone(16000, 2, 0.5, SF_FORMAT_WAV | SF_FORMAT_PCM_16));
  const std::string whole = ReadText(Path("long.wav"));
  WriteBytes("truncated.wav", whole.substr(0, whole.size() / 2 + 1));  // cut inside a frame
  Outcome r = Zvkit("denoise " + Path("truncated.wav") + " " + Path("out_truncated.wav"));
  ASSERT_EQ(r.status, 0) << r.err;
  ExpectValidOutput(ReadAudio("truncated.wav"), "out_truncated.wav");

  Audio nan = Tone(16000, 1, 0.5);
  for (size_t n = 1000; n < 1500; n += 7) nan.samples[n] = std::numeric_limits<float>::quiet_NaN();
  nan.samples[3000] = std::numeric_limits<float>::infinity();
  WriteAudio("nan.wav", nan);
  r = Zvkit("denoise " + Path("nan.wav") + " " + Path("out_nan.wav"));
  ASSERT_EQ(r.status, 0) << r.err;
  ExpectValidOutput(nan, "out_nan.wav");
  EXPECT_EQ(Lines(r.err), 2u) << r.err;  // the one warning and the real-time factor
  EXPECT_NE(r.err.find("are read as 0"), std::string::npos);
}

// With a network that gives every band the gain 1, the host's output is its input: the delay is taken out,
// and at another rate the two conversions give the input back up to their filters.
TEST_F(AudioCommands, UnitGainsGiveTheInputBackInTime) {
  const Audio native = Tone(16000, 1, 0.9);
  WriteAudio("native.wav", native);
  ASSERT_EQ(Zvkit("denoise " + Path("native.wav") + " " + Path("out_native.wav") + kUnitModel).status, 0);
  const Audio back = ReadAudio("out_native.wav");
  ASSERT_EQ(back.frames(), native.frames());
  for (size_t n = 0; n < back.samples.size(); ++n)
    ASSERT_NEAR(back.samples[n], native.samples[n], 1e-5f) << n;

  // Through the converters and back: the SI-SDR against the input would fall far with a shift of a sample.
  for (const Audio& other : {Tone(44100, 2, 0.6), Tone(8000, 1, 0.6), Tone(96000, 1, 0.6)}) {
    SCOPED_TRACE(other.rate);
    WriteAudio("other.wav", other);
    const Outcome r = Zvkit("denoise " + Path("other.wav") + " " + Path("out_other.wav") + kUnitModel +
                            " --reference " + Path("other.wav"));
    ASSERT_EQ(r.status, 0) << r.err;
    double in_db = 0, out_db = 0, gain_db = 0;
    ASSERT_EQ(std::sscanf(r.out.c_str(), "SI-SDR input %lf dB, output %lf dB, improvement %lf dB", &in_db,
                          &out_db, &gain_db),
              3)
        << r.out;
    EXPECT_TRUE(std::isinf(in_db));
    EXPECT_GT(out_db, 30.0);
  }
}

TEST_F(AudioCommands, RawStreamsGoThroughHopByHop) {
  std::string pcm;
  const Audio tone = Tone(16000, 1, 0.5);
  for (float v : tone.samples) {
    const int16_t s = static_cast<int16_t>(std::lrint(v * 32767));
    pcm.append(reinterpret_cast<const char*>(&s), 2);
  }
  WriteBytes("in.raw", pcm.substr(0, pcm.size() - 2 * 37));  // not a whole number of hops
  const Outcome r = Zvkit("denoise - - " + kUnitModel + " --fused <" + Path("in.raw"));
  // The unit-gain network has no fused form: the engine cannot be created.
  EXPECT_EQ(r.status, 1);
  ASSERT_EQ(std::system((std::string(ZVKIT) + " denoise - - " + kUnitModel + " <" + Path("in.raw") + " >" +
                         Path("out.raw") + " 2>/dev/null")
                            .c_str()),
            0);
  const std::string out = ReadText(Path("out.raw"));
  ASSERT_EQ(out.size(), pcm.size() - 2 * 37);
  for (size_t i = 0; i < out.size(); i += 2) {
    int16_t a, b;
    std::memcpy(&a, &out[i], 2);
    std::memcpy(&b, &pcm[i], 2);
    ASSERT_NEAR(a, b, 1) << i / 2;
  }
  // Raw output is mono 16 kHz only.
  WriteAudio("stereo.wav", Tone(16000, 2, 0.1));
  EXPECT_EQ(Zvkit("denoise " + Path("stereo.wav") + " -").status, 1);
}

TEST_F(AudioCommands, VadPrintsSegmentsAndOneProbabilityPerHop) {
  Audio signal{16000, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT, {}};
  std::ifstream f(kData + "signal.f32", std::ios::binary);
  signal.samples.resize(16000);
  f.read(reinterpret_cast<char*>(signal.samples.data()), 16000 * sizeof(float));
  WriteAudio("signal.wav", signal);
  std::vector<float> want(100);
  std::ifstream(kData + "vad_probability.f32", std::ios::binary)
      .read(reinterpret_cast<char*>(want.data()), 100 * sizeof(float));

  Outcome r = Zvkit("vad " + Path("signal.wav") + kTinyVad + " --csv -");
  ASSERT_EQ(r.status, 0) << r.err;
  std::istringstream csv(r.out);
  std::string line;
  std::getline(csv, line);
  EXPECT_EQ(line, "time,probability");
  for (int t = 0; t < 100; ++t) {
    double time = -1, p = -1;
    ASSERT_TRUE(std::getline(csv, line));
    ASSERT_EQ(std::sscanf(line.c_str(), "%lf,%lf", &time, &p), 2) << line;
    EXPECT_NEAR(time, t * 0.01, 1e-9);
    EXPECT_NEAR(p, want[t], 1e-4) << t;
  }
  EXPECT_FALSE(std::getline(csv, line));

  // Segments: every line START END within the second, in order; a threshold of 1 finds none.
  r = Zvkit("vad " + Path("signal.wav") + kTinyVad + " --threshold 0.5 --hangover 30 --csv " + Path("p.csv"));
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Lines(ReadText(Path("p.csv"))), 101u);
  std::istringstream segments(r.out);
  double previous_end = 0, start, end;
  size_t count = 0;
  while (segments >> start >> end) {
    EXPECT_LE(previous_end, start);
    EXPECT_LT(start, end);
    EXPECT_LE(end, 1.0);
    previous_end = end;
    ++count;
  }
  EXPECT_GT(count, 0u);
  EXPECT_EQ(Zvkit("vad " + Path("signal.wav") + kTinyVad + " --threshold 1").out, "");
  EXPECT_EQ(Zvkit("vad " + Path("signal.wav") + kTinyVad + " --threshold 2").status, 2);
}

}  // namespace
