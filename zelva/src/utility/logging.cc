#include "zelva/src/utility/logging.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace zelva {
namespace utility {
namespace {

int32_t WriteToStdout(const char* text) {
  std::fputs(text, stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
  return 0;
}

// No lock guards this state: a host sets mask, tag and sink before it creates anything.
uint32_t log_level_mask = kDefaultLogLevelMask;
std::string& LogTagStorage() {
  static std::string* tag = new std::string("ZELVA");  // never destroyed: usable during static teardown
  return *tag;
}
LogCallback log_callback = &WriteToStdout;
char log_message_buffer[kLogMessageBufferSize];

void Deliver(const std::string& line) {
  if (log_callback != nullptr) {
    log_callback(line.c_str());
  } else {
    WriteToStdout(line.c_str());
  }
}

std::string PlaceDecoration(const char* what, const char* function, const char* file, int32_t line) {
  std::string text;
  text.reserve(128);
  text += '[';
  text += LogTagStorage();
  text += what;
  text += QualifiedFunctionName(function);
  text += ">, FILE<";
  text += file != nullptr ? file : "";
  text += ">, LINE<";
  text += std::to_string(line);
  text += ">. ";
  return text;
}

}  // namespace

std::string QualifiedFunctionName(const char* pretty) {
  if (pretty == nullptr) return std::string();
  const size_t n = std::strlen(pretty);
  // End of the name: the '(' that opens the parameter list, outside template brackets. A parenthesis group
  // followed by "::" belongs to the name (a local class: "f()::Local::g").
  size_t end = n;
  int depth = 0;
  for (size_t i = 0; i < n && end == n; ++i) {
    const char c = pretty[i];
    if (c == '<') {
      ++depth;
    } else if (c == '>' && depth > 0) {
      --depth;
    } else if (c == '(' && depth == 0) {
      size_t j = i;
      int parens = 0;
      for (; j < n; ++j) {
        if (pretty[j] == '(') ++parens;
        if (pretty[j] == ')' && --parens == 0) break;
      }
      if (j + 2 < n && pretty[j + 1] == ':' && pretty[j + 2] == ':') {
        i = j;
      } else {
        end = i;
      }
    }
  }
  // Start: after the last space outside brackets and parentheses (drops the return type).
  size_t begin = 0;
  depth = 0;
  for (size_t i = end; i-- > 0;) {
    const char c = pretty[i];
    if (c == '>' || c == ')') {
      ++depth;
    } else if ((c == '<' || c == '(') && depth > 0) {
      --depth;
    } else if (c == ' ' && depth == 0) {
      begin = i + 1;
      break;
    }
  }
  // A pointer or reference return type sticks to the name: "const char* f()".
  while (begin < end && (pretty[begin] == '*' || pretty[begin] == '&')) ++begin;
  return std::string(pretty + begin, end - begin);
}

std::string Log(uint32_t level, const char* function, const char* file, int32_t line, const char* format, ...) {
  const bool known = level == kLogVerbose || level == kLogInfo || level == kLogWarnning || level == kLogError;
  if (known && (log_level_mask & level) != 0) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(log_message_buffer, kLogMessageBufferSize, format, args);
    va_end(args);
    log_message_buffer[kLogMessageBufferSize - 1] = '\0';

    std::string text;
    switch (level) {
      case kLogVerbose:
        text = "[" + LogTagStorage() + "] (Verbose): " + log_message_buffer;
        break;
      case kLogInfo:
        text = "[" + LogTagStorage() + "] (Info): " + log_message_buffer;
        break;
      case kLogWarnning:
        text = "[" + LogTagStorage() + "] (Warnning): " + log_message_buffer;
        break;
      default:
        text = PlaceDecoration("]: Error in FUNCTION<", function, file, line);
        text += log_message_buffer;
        text += '\n';
        break;
    }
    Deliver(text);
  }
  return std::string(log_message_buffer);
}

void Assert(const char* function, const char* file, int32_t line, bool condition, const char* format, ...) {
  if (condition) return;
  std::string text = PlaceDecoration("]: Assert Failed in FUNCTION<", function, file, line);
  if (format != nullptr) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(log_message_buffer, kLogMessageBufferSize, format, args);
    va_end(args);
    log_message_buffer[kLogMessageBufferSize - 1] = '\0';
    Deliver(text + log_message_buffer + "\n");
  }
  throw std::runtime_error(text);
}

uint32_t GetLogLevelMask() { return log_level_mask; }
void SetLogLevelMask(uint32_t mask) { log_level_mask = mask; }
void SetLogCallback(LogCallback callback) { log_callback = callback; }
LogCallback GetLogCallback() { return log_callback; }
void SetLogTag(const char* tag) { LogTagStorage() = tag; }
std::string GetLogTag() { return LogTagStorage(); }

}  // namespace utility
}  // namespace zelva
