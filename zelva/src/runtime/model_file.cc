// Whole-file reading and writing of a Serializable: the members FromFile, FromBin, FromJsonString, ToFile and
// ToBin. They choose and build the concrete visitors (JSON getter/setter, binary reader/writer), so they live
// here, above the visitors, rather than beside the serialisation base.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>

#include "zelva/src/runtime/file_visitor.h"
#include "zelva/src/runtime/json_visitor.h"
#include "zelva/src/runtime/serialization.h"
#include "zelva/src/utility/logging.h"
#include "zelva/src/utility/string_util.h"

namespace zelva {
namespace runtime {
namespace {

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

// Paths are UTF-8; the platform's narrow open takes them as they are. A path that does not open gives a null
// file, which the binary reader refuses with its own message.
FilePtr OpenForReading(const std::string& path) {
  FilePtr file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (file != nullptr) {
    struct stat info;
    ZV_ASSERT(fstat(fileno(file.get()), &info) != 0 || !S_ISDIR(info.st_mode),
              "Error in opening the file [%s]: is a directory.", path.c_str());
  }
  return file;
}

FilePtr OpenForWriting(const std::string& path) {
  FilePtr file(std::fopen(path.c_str(), "wb"), &std::fclose);
  ZV_ASSERT(file != nullptr, "Error in opening the file [%s] for writing: %s.", path.c_str(),
            std::strerror(errno));
  return file;
}

bool IsKnownPrecision(const std::string& precision) {
  return precision == "fp16" || precision == "fp32";
}

// The parse flags make the parse iterative: the depth of nesting in a file costs heap, never stack.
// `origin` names the text in the message.
void CheckParsed(const rapidjson::Document& document, const std::string& origin) {
  ZV_ASSERT(!document.HasParseError(), "JSON parse error in %s: %s (at byte %zu).", origin.c_str(),
            rapidjson::GetParseError_En(document.GetParseError()), document.GetErrorOffset());
}

void VisitJsonDocument(Serializable& object, rapidjson::Document& document) {
  ZV_ASSERT(document.IsObject(), nullptr);
  std::shared_ptr<Visitor> getter = std::make_shared<JSONNodeGetter>(&document, 0);
  object.VisitAttr(getter);
}

void ReadBinary(Serializable& object, const std::string& path, const std::string& precision) {
  FilePtr file = OpenForReading(path);
  std::shared_ptr<Visitor> reader = std::make_shared<FILEReader>(file.get(), 0, precision);
  object.VisitAttr(reader);
}

void WriteBinary(Serializable& object, const std::string& path, const std::string& precision) {
  FilePtr file = OpenForWriting(path);
  std::shared_ptr<Visitor> writer = std::make_shared<FILEWriter>(file.get(), true, precision);
  object.VisitAttr(writer);
  // Buffered bytes reach the file here; a failure to flush is a failed write like any other.
  ZV_ASSERT(std::fflush(file.get()) == 0, "failed to write a %s value, error code is %d.\n", "file",
            std::ferror(file.get()));
}

}  // namespace

void Serializable::FromFile(const std::string& path, const std::string& type) {
  if (type == "json") {
    std::string text = ReadJsonFile2String(path);
    rapidjson::Document document;
    document.ParseInsitu<kJsonParseFlags>(&text[0]);  // strings stay in `text`: no second copy of the weights
    CheckParsed(document, "the file [" + path + "]");
    VisitJsonDocument(*this, document);
  } else if (type == "bin") {
    ReadBinary(*this, path, "fp16");
  } else {
    ZV_LOG_ERROR("Unknow file type, file path: %s.", path.c_str());
  }
}

void Serializable::FromFile(const std::string& path) {
  if (utility::EndsWithChecked(path, ".json")) {
    FromFile(path, "json");
    return;
  }
  if (utility::EndsWithChecked(path, ".zvmod") || utility::EndsWithChecked(path, ".zvcfg") ||
      utility::EndsWithChecked(path, ".zvmods") || utility::EndsWithChecked(path, ".zvcfgs")) {
    FromFile(path, "bin");
    return;
  }
  ZV_ASSERT(false, "Unknow nets file type, file path: %s.", path.c_str());
}

void Serializable::FromBin(const std::string& path, const std::string& precision) {
  if (!IsKnownPrecision(precision)) {
    ZV_LOG_ERROR("Unknow precision type: %s, try fp16 or fp32", precision.c_str());
    return;
  }
  ReadBinary(*this, path, precision);
}

void Serializable::FromJsonString(const std::string& text) {
  rapidjson::Document document;
  document.Parse<kJsonParseFlags>(text.c_str(), text.size());
  CheckParsed(document, "the given text");
  VisitJsonDocument(*this, document);
}

void Serializable::ToFile(const std::string& path, const std::string& type) {
  if (type == "json") {
    rapidjson::Document document(rapidjson::kObjectType);
    std::shared_ptr<Visitor> setter =
        std::make_shared<JSONNodeSetter>(&document, &document.GetAllocator(), true);
    VisitAttr(setter);
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 4);
    // The writer stops at a NaN or an infinity, which JSON cannot hold: refuse rather than leave a cut text.
    ZV_ASSERT(document.Accept(writer), "a NaN or infinite number cannot be written to JSON, file path: %s.",
              path.c_str());
    std::ofstream out(path, std::ios::binary);
    ZV_ASSERT(out.is_open(), "Error in opening the file [%s] for writing: %s.", path.c_str(),
              std::strerror(errno));
    out.write(buffer.GetString(), static_cast<std::streamsize>(buffer.GetSize()));
  } else if (type == "bin") {
    WriteBinary(*this, path, "fp16");
  } else {
    ZV_LOG_ERROR("Unknow file type, file path: %s.", path.c_str());
  }
}

void Serializable::ToBin(const std::string& path, const std::string& precision) {
  if (!IsKnownPrecision(precision)) {
    ZV_LOG_ERROR("Unknow precision type: %s, try fp16 or fp32", precision.c_str());
    return;
  }
  WriteBinary(*this, path, precision);
}

}  // namespace runtime
}  // namespace zelva
