// Shared scaffolding of the loader fuzz targets: a quiet log, a per-process scratch file that receives each
// input (the binary loaders read from a path), and a check that what loads also writes and re-reads to the
// same bytes.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/logging.h"

namespace zvfuzz {

inline int32_t DropLine(const char*) {
  return 0;
}

// Every assertion writes its line to the log: keep the fuzzer's output readable.
inline void QuietLog() {
  static const bool done = [] {
    zelva::utility::SetLogCallback(&DropLine);
    zelva::utility::SetLogLevelMask(0);
    return true;
  }();
  (void)done;
}

// A scratch path of this process with the given extension, removed at exit.
inline const std::string& ScratchPath(int slot, const char* extension) {
  static std::deque<std::string> paths;  // references stay valid as it grows
  static const bool registered = [] {
    std::atexit([] {
      for (const std::string& p : paths) std::remove(p.c_str());
    });
    return true;
  }();
  (void)registered;
  const char* dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  std::string path =
      std::string(dir) + "/zvfuzz_" + std::to_string(getpid()) + "_" + std::to_string(slot) + extension;
  for (const std::string& p : paths)
    if (p == path) return p;
  paths.push_back(path);
  return paths.back();
}

inline void WriteFile(const std::string& path, const uint8_t* data, size_t size) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, file) != size) std::abort();
  std::fclose(file);
}

inline std::vector<char> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// `loaded` came out of a file without failure. Written as fp32 binary, read back into a fresh object and
// written again, it must give the same bytes: the walk that reads is the walk that writes.
inline bool Repeats(const std::vector<std::string>& ids) {
  return std::set<std::string>(ids.begin(), ids.end()).size() != ids.size();
}
inline bool HasRepeatedIds(const zelva::runtime::ZVModelInfo& model) {
  return Repeats(model.squential_ids);
}
inline bool HasRepeatedIds(const zelva::runtime::ZVModelMultiBackendCfgs& configs) {
  for (const auto* cfg : {&configs.cpu_sse, &configs.cpu_avx, &configs.cpu_armv7, &configs.cpu_armv8,
                          &configs.gpu_opengl, &configs.gpu_metal, &configs.gpu_cuda, &configs.cpu_armv82}) {
    if (*cfg == nullptr) continue;
    if (Repeats((*cfg)->squential_ids)) return true;
    for (const auto& layer : (*cfg)->layer_cfgs) {
      if (layer.second == nullptr) continue;
      if (Repeats(layer.second->input_converters->kernel_ids) ||
          Repeats(layer.second->output_converters->kernel_ids))
        return true;
    }
  }
  return false;
}

// One exception: a file that lists an entry twice under one id reads both visits into one object (a kept
// quirk of the format), so its own output need not read back; that read must then fail cleanly.
template <class T>
void CheckBinaryRoundTrip(T& loaded) {
  const std::string& first = ScratchPath(1, ".zvmod");
  const std::string& second = ScratchPath(2, ".zvmod");
  loaded.ToBin(first, "fp32");  // writing what was read must not fail
  T again;
  try {
    again.FromBin(first, "fp32");
  } catch (const std::exception&) {
    if (!HasRepeatedIds(loaded)) std::abort();  // our own output must read back
    return;
  }
  again.ToBin(second, "fp32");
  if (!HasRepeatedIds(loaded) && ReadFile(first) != ReadFile(second)) std::abort();
}

// One target's body: `data` written as a file with `extension` and read as a T the way the engines read it
// (FromFile; a binary file once more with fp32 weights), and whatever reads is written back and read again.
template <class T>
int LoadAndCheck(const uint8_t* data, size_t size, const char* extension, bool binary) {
  QuietLog();
  const std::string& path = ScratchPath(0, extension);
  WriteFile(path, data, size);
  for (int pass = 0; pass < (binary ? 2 : 1); ++pass) {
    T loaded;
    try {
      if (pass == 0) {
        loaded.FromFile(path);  // binary files by the extension route: fp16 weights
      } else {
        loaded.FromBin(path, "fp32");
      }
    } catch (const std::exception&) {
      continue;  // a clean refusal is the expected answer to most inputs
    }
    CheckBinaryRoundTrip(loaded);
  }
  return 0;
}

}  // namespace zvfuzz
