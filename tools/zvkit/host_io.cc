#include "tools/zvkit/host_io.h"

#include <algorithm>
#include <cstdio>

#include "tools/zvkit/log_sink.h"
#include "zv2.h"

namespace zvkit {

bool ReadFloats(const std::string& path, std::vector<float>* data) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  std::fseek(f, 0, SEEK_END);
  const long bytes = std::ftell(f);
  std::fseek(f, 0, SEEK_SET);
  data->resize(bytes > 0 ? static_cast<size_t>(bytes) / sizeof(float) : 0);
  const size_t got = data->empty() ? 0 : std::fread(data->data(), sizeof(float), data->size(), f);
  std::fclose(f);
  return got == data->size();
}

void LogProblemsToStderr() {
  RestoreLogSink();
  if (!Verbose()) ZV2_SetLogLevel(ZV2_LOG_WARNNING | ZV2_LOG_ERROR);
}

TimeSummary Summarise(std::vector<double> micros) {
  TimeSummary s;
  if (micros.empty()) return s;
  for (double m : micros) s.mean += m;
  s.mean /= static_cast<double>(micros.size());
  std::sort(micros.begin(), micros.end());
  s.median = micros[micros.size() / 2];
  s.p99 = micros[std::min(micros.size() - 1, micros.size() * 99 / 100)];
  return s;
}

}  // namespace zvkit
