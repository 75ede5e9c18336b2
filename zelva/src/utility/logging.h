// Process-wide logger: a bit mask of levels, a tag, a replaceable sink, one shared message buffer,
// and an assertion that raises std::runtime_error.
//
// Any thread may log at any time. Each call formats its message in a buffer of its own, publishes it into the
// shared buffer under a short lock of the logger's own, and runs the sink on the calling thread outside that
// lock, so lines of concurrent callers never mix and a sink may itself log.
//
// Use the macros: they pass the caller's function, repo-relative source path and line.
//   ZV_LOG(zelva::utility::kLogError, "handle(%u) not found.", h);
//   ZV_ASSERT(ptr != nullptr, "Invaild input data.");
//   ZV_ASSERT(ok, nullptr);   // raises without delivering a line
#pragma once

#include <cstdint>
#include <string>

namespace zelva {
namespace utility {

// Levels are single bits, not a threshold. Level 2 is a trace level that no mask can show.
enum LogLevel : uint32_t {
  kLogVerbose = 1,
  kLogTrace = 2,
  kLogInfo = 4,
  kLogWarnning = 8,
  kLogError = 16,
};

constexpr uint32_t kDefaultLogLevelMask = 30;
constexpr size_t kLogMessageBufferSize = 2048;

using LogCallback = int32_t (*)(const char* text);

// When the level is shown: formats the message, publishes it into the shared buffer, decorates it by level,
// hands the line to the sink and returns the message. Otherwise returns the shared buffer's content: the last
// message shown, by any thread.
// `function` may be a plain name or a compiler's pretty signature; the latter is cut to its qualified name.
std::string Log(uint32_t level, const char* function, const char* file, int32_t line, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// Returns at once when `condition` holds. Otherwise, when `format` is not null, delivers the decorated
// message and a newline whatever the mask, and raises std::runtime_error with that same text; with a null
// `format` it delivers nothing and raises with the decoration alone.
void Assert(const char* function, const char* file, int32_t line, bool condition, const char* format, ...);

// The qualified function name inside a compiler's pretty signature:
// "int zelva::dlvad::VAD::Load(int32_t, const char**)" -> "zelva::dlvad::VAD::Load".
std::string QualifiedFunctionName(const char* pretty);

// State accessors behind the exported ZV2_SetLog... functions.
uint32_t GetLogLevelMask();
void SetLogLevelMask(uint32_t mask);
void SetLogCallback(LogCallback callback);
LogCallback GetLogCallback();
void SetLogTag(const char* tag);
std::string GetLogTag();

}  // namespace utility
}  // namespace zelva

#define ZV_FUNCTION __PRETTY_FUNCTION__
#define ZV_FILE __FILE__

#define ZV_LOG(level, ...) ::zelva::utility::Log((level), ZV_FUNCTION, ZV_FILE, __LINE__, __VA_ARGS__)
#define ZV_LOG_ERROR(...) ZV_LOG(::zelva::utility::kLogError, __VA_ARGS__)
#define ZV_LOG_INFO(...) ZV_LOG(::zelva::utility::kLogInfo, __VA_ARGS__)

// The condition is evaluated once; the call happens only on failure, so asserts are cheap on hot paths.
#define ZV_ASSERT(condition, ...)                                                   \
  do {                                                                              \
    if (__builtin_expect(!(condition), 0))                                          \
      ::zelva::utility::Assert(ZV_FUNCTION, ZV_FILE, __LINE__, false, __VA_ARGS__); \
  } while (0)
