#include "tools/zvkit/model_files.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <vector>

#include "zelva/src/runtime/json_visitor.h"
// After json_visitor.h, which configures RapidJSON.
#include <rapidjson/error/en.h>
#include "zelva/src/utility/logging.h"

namespace zvkit {
namespace {

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Log lines delivered while a library call runs.
std::vector<std::string>& Captured() {
  static std::vector<std::string> lines;
  return lines;
}

int32_t Capture(const char* text) {
  Captured().emplace_back(text);
  return 0;
}

std::string Trim(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
  return text;
}

// A log line without its decoration (tag, level, function, file, line): the message itself.
std::string Message(const std::string& line) {
  const size_t at = line.find("LINE<");
  if (at != std::string::npos) {
    const size_t end = line.find(">. ", at);
    if (end != std::string::npos && end + 3 < line.size()) return Trim(line.substr(end + 3));
  }
  return Trim(line);
}

// Runs `call` with the library's log captured; the reason of a failure, or "".
std::string Guarded(const std::function<void()>& call, std::string* warnings) {
  const zelva::utility::LogCallback previous = zelva::utility::GetLogCallback();
  Captured().clear();
  zelva::utility::SetLogCallback(&Capture);
  std::string reason;
  try {
    call();
  } catch (const std::exception& e) {
    reason = Message(e.what());
    if (reason.empty()) reason = "unknown failure";
  }
  zelva::utility::SetLogCallback(previous);
  std::string last_error;
  for (const std::string& line : Captured()) {
    if (line.find("Error") != std::string::npos || line.find("Assert Failed") != std::string::npos) {
      last_error = Message(line);
    } else if (warnings != nullptr) {
      *warnings += Message(line) + "\n";
    }
  }
  // The library's own words beat the bare exception text; a refusal that only logs counts as a failure.
  if (!last_error.empty()) reason = last_error;
  return reason;
}

}  // namespace

FileForm FormOf(const std::string& path) {
  if (EndsWith(path, ".json")) return FileForm::kJson;
  if (IsModelBinaryPath(path) || IsConfigBinaryPath(path)) return FileForm::kBinary;
  return FileForm::kUnknown;
}

bool IsModelBinaryPath(const std::string& path) {
  return EndsWith(path, ".zvmod") || EndsWith(path, ".zvmods");
}

bool IsConfigBinaryPath(const std::string& path) {
  return EndsWith(path, ".zvcfg") || EndsWith(path, ".zvcfgs");
}

std::string RootTypeOf(const std::string& path, FileForm form) {
  if (form == FileForm::kJson) {
    std::string text;
    const std::string reason = Guarded([&] { text = zelva::runtime::ReadJsonFile2String(path); }, nullptr);
    if (!reason.empty()) throw std::runtime_error(reason);
    rapidjson::Document document;
    document.Parse<zelva::runtime::kJsonParseFlags>(text.c_str(), text.size());  // iterative: no depth limit
    if (document.HasParseError()) {
      throw std::runtime_error(std::string("not JSON: ") +
                               rapidjson::GetParseError_En(document.GetParseError()) + " (at byte " +
                               std::to_string(document.GetErrorOffset()) + ")");
    }
    if (!document.IsObject()) throw std::runtime_error("the JSON root is not an object");
    const auto it = document.FindMember("serializable_type");
    if (it == document.MemberEnd() || !it->value.IsString()) {
      throw std::runtime_error("the root object has no \"serializable_type\" string");
    }
    return std::string(it->value.GetString(), it->value.GetStringLength());
  }
  // Binary: uint32 version, uint64 length, the name.
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (file == nullptr) throw std::runtime_error("cannot open the file");
  uint32_t version = 0;
  uint64_t length = 0;
  if (std::fread(&version, 4, 1, file.get()) != 1 || std::fread(&length, 8, 1, file.get()) != 1) {
    throw std::runtime_error("the file is too short for a header");
  }
  if (length == 0 || length > 256) throw std::runtime_error("no class name after the header");
  std::string name(static_cast<size_t>(length), '\0');
  if (std::fread(&name[0], 1, name.size(), file.get()) != name.size()) {
    throw std::runtime_error("the file is too short for its class name");
  }
  return name;
}

RootKind KindOfRoot(const std::string& root_type) {
  if (root_type == "ZVModelInfo") return RootKind::kModel;
  if (root_type == "ZVModelMultiBackendCfgs") return RootKind::kConfig;
  return RootKind::kOther;
}

std::string Load(zelva::runtime::Serializable& object, const std::string& path, FileForm form,
                 const std::string& precision, std::string* warnings) {
  return Guarded(
      [&] {
        if (form == FileForm::kJson) {
          object.FromFile(path, "json");
        } else {
          object.FromBin(path, precision);
        }
      },
      warnings);
}

std::string Save(zelva::runtime::Serializable& object, const std::string& path, FileForm form,
                 const std::string& precision) {
  return Guarded(
      [&] {
        if (form == FileForm::kJson) {
          object.ToFile(path, "json");
        } else {
          object.ToBin(path, precision);
        }
      },
      nullptr);
}

}  // namespace zvkit
