// Host-side helpers shared by the zvkit commands that drive engines through the public API.
#pragma once

#include <string>
#include <vector>

namespace zvkit {

// The whole file as float32 values; false when it cannot be read whole.
bool ReadFloats(const std::string& path, std::vector<float>* data);

// Narrows the library's log to its Warnning and Error lines (zvkit's sink writes them to standard error);
// with --verbose the mask stays as it is, Info lines included.
void LogProblemsToStderr();

struct TimeSummary {
  double mean = 0, median = 0, p99 = 0;
};
TimeSummary Summarise(std::vector<double> micros);

}  // namespace zvkit
