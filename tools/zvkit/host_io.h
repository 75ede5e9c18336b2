// Host-side helpers shared by the zvkit commands that drive engines through the public API.
#pragma once

#include <string>
#include <vector>

namespace zvkit {

// The whole file as float32 values; false when it cannot be read whole.
bool ReadFloats(const std::string& path, std::vector<float>* data);

// Sends the library's Warnning and Error lines to standard error, nothing else.
void LogProblemsToStderr();

struct TimeSummary {
  double mean = 0, median = 0, p99 = 0;
};
TimeSummary Summarise(std::vector<double> micros);

}  // namespace zvkit
