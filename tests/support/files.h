// Reading the raw float32 files of tests/data/ and models/.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace zvtest {

// The float32 values of a file, in order; empty when it cannot be opened.
inline std::vector<float> ReadFloats(const std::string& path) {
  std::vector<float> values;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return values;
  float v;
  while (std::fread(&v, sizeof(v), 1, file) == 1) values.push_back(v);
  std::fclose(file);
  return values;
}

}  // namespace zvtest
