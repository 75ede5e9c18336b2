#include "zelva/src/utility/logging.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
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

// The mask and the sink are read on every call and may be changed by a host at any time: atomics. The tag and
// the shared message buffer sit behind one small lock of the logger's own, held only to copy text in or out,
// never while formatting or while the sink runs (so a sink may itself log).
std::atomic<uint32_t> log_level_mask{kDefaultLogLevelMask};
std::atomic<LogCallback> log_callback{&WriteToStdout};
std::mutex& LogStateMutex() {
  static std::mutex* mutex = new std::mutex();  // never destroyed: usable during static teardown
  return *mutex;
}
std::string& LogTagStorage() {
  static std::string* tag = new std::string("ZELVA");  // never destroyed: usable during static teardown
  return *tag;
}
char log_message_buffer[kLogMessageBufferSize];

// One message, formatted by its own caller: vsnprintf truncates to 2,047 characters and terminates.
struct Message {
  char text[kLogMessageBufferSize];
  void Format(const char* format, va_list args) {
    std::vsnprintf(text, kLogMessageBufferSize, format, args);
    text[kLogMessageBufferSize - 1] = '\0';
  }
};

// Copies a formatted message into the shared buffer and returns the tag to compose its line with.
std::string Publish(const Message& message) {
  std::lock_guard<std::mutex> lock(LogStateMutex());
  std::memcpy(log_message_buffer, message.text, std::strlen(message.text) + 1);
  return LogTagStorage();
}

std::string SharedMessage() {
  std::lock_guard<std::mutex> lock(LogStateMutex());
  return std::string(log_message_buffer);
}

std::string Tag() {
  std::lock_guard<std::mutex> lock(LogStateMutex());
  return LogTagStorage();
}

// Runs the sink on the calling thread, outside every lock of the logger.
void Deliver(const std::string& line) {
  const LogCallback callback = log_callback.load(std::memory_order_acquire);
  if (callback != nullptr) {
    callback(line.c_str());
  } else {
    WriteToStdout(line.c_str());
  }
}

std::string PlaceDecoration(const std::string& tag, const char* what, const char* function, const char* file,
                            int32_t line) {
  std::string text;
  text.reserve(128);
  text += '[';
  text += tag;
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

std::string Log(uint32_t level, const char* function, const char* file, int32_t line, const char* format,
                ...) {
  const bool known = level == kLogVerbose || level == kLogInfo || level == kLogWarnning || level == kLogError;
  if (!known || (log_level_mask.load(std::memory_order_relaxed) & level) == 0) {
    return SharedMessage();  // the last message shown, by any thread
  }
  Message message;
  va_list args;
  va_start(args, format);
  message.Format(format, args);
  va_end(args);
  const std::string tag = Publish(message);

  std::string text;
  switch (level) {
    case kLogVerbose:
      text = "[" + tag + "] (Verbose): " + message.text;
      break;
    case kLogInfo:
      text = "[" + tag + "] (Info): " + message.text;
      break;
    case kLogWarnning:
      text = "[" + tag + "] (Warnning): " + message.text;
      break;
    default:
      text = PlaceDecoration(tag, "]: Error in FUNCTION<", function, file, line);
      text += message.text;
      text += '\n';
      break;
  }
  Deliver(text);
  return std::string(message.text);
}

void Assert(const char* function, const char* file, int32_t line, bool condition, const char* format, ...) {
  if (condition) return;
  if (format == nullptr) {
    throw std::runtime_error(PlaceDecoration(Tag(), "]: Assert Failed in FUNCTION<", function, file, line));
  }
  Message message;
  va_list args;
  va_start(args, format);
  message.Format(format, args);
  va_end(args);
  std::string text = PlaceDecoration(Publish(message), "]: Assert Failed in FUNCTION<", function, file, line);
  text += message.text;
  text += '\n';
  Deliver(text);
  // The exception carries the whole line, message included, so that the engine's own Error line says why.
  throw std::runtime_error(text);
}

uint32_t GetLogLevelMask() {
  return log_level_mask.load(std::memory_order_relaxed);
}
void SetLogLevelMask(uint32_t mask) {
  log_level_mask.store(mask, std::memory_order_relaxed);
}
void SetLogCallback(LogCallback callback) {
  log_callback.store(callback, std::memory_order_release);
}
LogCallback GetLogCallback() {
  return log_callback.load(std::memory_order_acquire);
}
void SetLogTag(const char* tag) {
  std::string copy(tag);
  std::lock_guard<std::mutex> lock(LogStateMutex());
  LogTagStorage().swap(copy);
}
std::string GetLogTag() {
  return Tag();
}

}  // namespace utility
}  // namespace zelva
