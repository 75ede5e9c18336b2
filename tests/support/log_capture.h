// Captures the library's log lines through the public callback (the only way a host sees them).
// The callback cannot be unset: the sink stays installed after the capture goes.
#pragma once

#include <string>
#include <vector>

#include "zv2_common.h"

namespace zvtest {

class LogCapture {
 public:
  // Installs the capturing sink (other tests may have set theirs) and clears what was captured so far.
  LogCapture() {
    ZV2_SetLogCallback(&LogCapture::Sink);
    Lines().clear();
  }
  const std::vector<std::string>& lines() const { return Lines(); }
  void Clear() { Lines().clear(); }
  std::string Last() const { return Lines().empty() ? std::string() : Lines().back(); }

  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }

 private:
  static int32_t Sink(const char* text) {
    Lines().emplace_back(text);
    return 0;
  }
};

// "[ZELVA]: Error in FUNCTION<fn>, FILE<...>, LINE<n>. message\n" -> true when fn and message match.
inline bool IsErrorLine(const std::string& line, const std::string& function, const std::string& message) {
  const std::string head = "]: Error in FUNCTION<" + function + ">, FILE<";
  return line.find(head) != std::string::npos && line.size() > message.size() + 1 &&
         line.compare(line.size() - message.size() - 1, message.size() + 1, message + "\n") == 0;
}

}  // namespace zvtest
