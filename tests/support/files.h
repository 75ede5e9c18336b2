// Reading the raw float32 files of tests/data/ and models/, and creating engines on the fixture files.
#pragma once

#include <cstdint>
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

#ifdef ZELVA_TEST_DATA_DIR
// A file of tests/data/<folder>/.
inline std::string DataFile(const std::string& folder, const std::string& name) {
  return std::string(ZELVA_TEST_DATA_DIR) + "/" + folder + "/" + name;
}
#endif

// Creates an engine through a family's entry `create` on a model and a configuration, by their paths.
template <class CreateFn>
auto CreateOn(CreateFn create, uint32_t* handle, const std::string& model, const std::string& config) {
  const char* argv[] = {model.c_str(), config.c_str()};
  return create(handle, 2, argv);
}

}  // namespace zvtest
