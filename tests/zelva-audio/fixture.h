// The audio fixture of tools/gen_audio_fixture.py (the NumPy feature contract), read as float32 arrays.
#pragma once

#include <fstream>
#include <string>
#include <vector>

namespace zelva::audio::test {

inline std::string AudioData(const std::string& name) {
  return std::string(ZELVA_TEST_DATA_DIR) + "/audio/" + name;
}

inline std::vector<float> ReadFixture(const std::string& name) {
  std::ifstream f(AudioData(name), std::ios::binary | std::ios::ate);
  std::vector<float> data(f ? static_cast<size_t>(f.tellg()) / sizeof(float) : 0);
  f.seekg(0);
  f.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(data.size() * sizeof(float)));
  return data;
}

}  // namespace zelva::audio::test
