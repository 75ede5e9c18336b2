#include "tools/zvkit/log_sink.h"

#include <cstdio>

#include "zv2.h"

namespace zvkit {
namespace {

bool verbose_sink = false;
bool errors_only = false;
// How the denoise engine announces its hand-fused path: logged at the Error level, but no error.
const char* const kFusedNotice = "using hyper specific audio denoise model";

enum class Level { kPlain, kWarning, kError };

std::string TrimEnd(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  return text;
}

// The level of a composed line, from what follows its "[TAG]".
Level LevelOf(const std::string& line) {
  if (line.empty() || line[0] != '[') return Level::kPlain;
  const size_t close = line.find(']');
  if (close == std::string::npos) return Level::kPlain;
  const std::string rest = line.substr(close + 1);
  if (rest.rfind(" (Warnning): ", 0) == 0) return Level::kWarning;
  if (rest.rfind(": Error in ", 0) == 0 || rest.rfind(": Assert Failed in ", 0) == 0) return Level::kError;
  return Level::kPlain;
}

int32_t Sink(const char* text) {
  const std::string line = text != nullptr ? text : "";
  if (errors_only && (LevelOf(line) != Level::kError || LogMessage(line) == kFusedNotice)) return 0;
  if (verbose_sink) {
    std::fprintf(stderr, "%s\n", line.c_str());
  } else {
    std::fprintf(stderr, "%s\n", QuietLogLine(line).c_str());
  }
  std::fflush(stderr);
  return 0;
}

}  // namespace

void InstallLogSink(bool verbose) {
  verbose_sink = verbose;
  ZV2_SetLogCallback(&Sink);
}

void RestoreLogSink() {
  ZV2_SetLogCallback(&Sink);
}

void ShowErrorsOnly() {
  errors_only = true;
}

bool Verbose() {
  return verbose_sink;
}

std::string LogMessage(const std::string& line) {
  std::string text = line;
  // "[TAG] (Level): message".
  if (!text.empty() && text[0] == '[') {
    const size_t close = text.find(']');
    if (close != std::string::npos && text.compare(close + 1, 2, " (") == 0) {
      const size_t colon = text.find("): ", close);
      if (colon != std::string::npos) text.erase(0, colon + 3);
    }
  }
  // "[TAG]: Error in FUNCTION<f>, FILE<p>, LINE<n>. " and "[TAG]: Assert Failed in ...", wherever they stand.
  for (;;) {
    const size_t function = text.find(" in FUNCTION<");
    if (function == std::string::npos) break;
    const size_t start = text.rfind('[', function);
    const size_t line_at = text.find("LINE<", function);
    if (start == std::string::npos || line_at == std::string::npos) break;
    size_t end = text.find(">. ", line_at);
    end = end == std::string::npos ? text.size() : end + 3;
    text.erase(start, end - start);
  }
  return TrimEnd(text);
}

std::string QuietLogLine(const std::string& line) {
  const std::string message = LogMessage(line);
  // The denoise engine's notice that it runs the hand-fused path comes at the Error level; it is no error.
  if (message == kFusedNotice) return "zelva: " + message;
  switch (LevelOf(line)) {
    case Level::kWarning:
      return "zelva: warning: " + message;
    case Level::kError:
      return "zelva: error: " + message;
    case Level::kPlain:
      break;
  }
  return "zelva: " + message;
}

}  // namespace zvkit
