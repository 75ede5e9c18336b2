#include "tools/zvkit/model_files.h"

#include <sys/stat.h>
#include <cstdint>

#include <cstdio>
#include <exception>
#include <functional>
#include <vector>

#include "zelva/src/runtime/file_visitor.h"
#include "zelva/src/runtime/json_visitor.h"
// After json_visitor.h, which configures RapidJSON.
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include "tools/zvkit/log_sink.h"
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

// A log line without its decoration (tag, level, function, file, line): the message itself.
std::string Message(const std::string& line) {
  return LogMessage(line);
}

}  // namespace

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

namespace {

// One binary reading at `precision`, as the library's FromBin does, on a file that this function holds, so
// that it can tell where the reading stopped.
struct Attempt {
  std::unique_ptr<zelva::runtime::Serializable> object;
  std::string reason;    // "" when the reading went through
  int64_t left = -1;     // bytes after the point where the reading stopped (-1: unknown)
  std::string warnings;  // the library's other lines meanwhile
  bool Whole() const { return reason.empty() && left == 0; }
  std::string Outcome() const {
    if (!reason.empty()) return reason;
    if (left < 0) return "cannot tell where the file ends";
    return "stops " + std::to_string(left) + " bytes before the end of the file";
  }
};

Attempt ReadBinaryAt(const std::function<std::unique_ptr<zelva::runtime::Serializable>()>& make,
                     const std::string& path, const std::string& precision) {
  Attempt attempt;
  attempt.object = make();
  attempt.reason = Guarded(
      [&] {
        std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
        std::shared_ptr<zelva::runtime::Visitor> reader =
            std::make_shared<zelva::runtime::FILEReader>(file.get(), 0, precision);
        attempt.object->VisitAttr(reader);
        struct stat info;
        const off_t position = ftello(file.get());
        if (position >= 0 && fstat(fileno(file.get()), &info) == 0 && S_ISREG(info.st_mode)) {
          attempt.left = static_cast<int64_t>(info.st_size) - static_cast<int64_t>(position);
        }
      },
      &attempt.warnings);
  return attempt;
}

// The object as compact JSON text: two readings of one file are the same object when their texts are equal.
std::string JsonText(zelva::runtime::Serializable& object) {
  rapidjson::Document document(rapidjson::kObjectType);
  std::shared_ptr<zelva::runtime::Visitor> setter =
      std::make_shared<zelva::runtime::JSONNodeSetter>(&document, &document.GetAllocator(), true);
  object.VisitAttr(setter);
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

std::string LoadBinaryFindingPrecision(
    const std::function<std::unique_ptr<zelva::runtime::Serializable>()>& make, const std::string& path,
    const std::string& given, const std::string& option,
    std::unique_ptr<zelva::runtime::Serializable>* object, BinaryPrecision* found, std::string* warnings) {
  auto keep = [&](Attempt& attempt, const std::string& precision, const std::string& how) {
    *object = std::move(attempt.object);
    found->precision = precision;
    found->how = how;
    if (warnings != nullptr) *warnings += attempt.warnings;
    return std::string();
  };
  if (!given.empty()) {
    Attempt attempt = ReadBinaryAt(make, path, given);
    if (!attempt.reason.empty()) return attempt.reason;
    if (attempt.left > 0 && warnings != nullptr) {
      *warnings += "reading the file as " + given + " " + attempt.Outcome() + ": are its weights " +
                   (given == "fp16" ? "fp32" : "fp16") + "?\n";
    }
    return keep(attempt, given, "given");
  }
  Attempt half = ReadBinaryAt(make, path, "fp16");
  Attempt full = ReadBinaryAt(make, path, "fp32");
  if (half.Whole() && full.Whole()) {
    std::string same_text;
    const std::string reason =
        Guarded([&] { same_text = JsonText(*half.object) == JsonText(*full.object) ? "1" : ""; }, nullptr);
    if (reason.empty() && !same_text.empty()) {
      return keep(half, "fp16", "found: the file holds no weights; fp16 and fp32 read it alike");
    }
    return "the file reads to its end both as fp16 and as fp32, with different contents; say which with " +
           option + " fp16|fp32";
  }
  if (half.Whole()) return keep(half, "fp16", "found: only fp16 reads the file exactly to its end");
  if (full.Whole()) return keep(full, "fp32", "found: only fp32 reads the file exactly to its end");
  return "neither precision reads the file exactly to its end (as fp16: " + half.Outcome() +
         "; as fp32: " + full.Outcome() + ")";
}

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
