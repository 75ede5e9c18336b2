// What zvkit's file commands share: telling a model from a configuration, loading either with the library's
// failure turned into one readable line, and the extension rules of the two file forms.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zvkit {

enum class FileForm { kJson, kBinary, kUnknown };
enum class RootKind { kModel, kConfig, kOther };

// By extension: ".json"; ".zvmod", ".zvmods", ".zvcfg", ".zvcfgs"; anything else.
FileForm FormOf(const std::string& path);
// True for the binary extensions of models (".zvmod", ".zvmods") / of configurations (".zvcfg", ".zvcfgs").
bool IsModelBinaryPath(const std::string& path);
bool IsConfigBinaryPath(const std::string& path);

// The class name of a file's root object ("serializable_type", the first value of every file), read without
// loading the whole. Throws std::runtime_error with a readable text when it cannot be found.
std::string RootTypeOf(const std::string& path, FileForm form);
RootKind KindOfRoot(const std::string& root_type);

// Runs `call` with the library's log captured. Returns "" or the reason of a failure: the library's last
// error line, or the exception's text without its decoration. Other library lines are appended to `warnings`.
std::string Guarded(const std::function<void()>& call, std::string* warnings);

// Loads `path` into `object` (JSON, or binary at `precision`). Returns an empty string on success, else the
// reason: the library's own failure line when it logged one, the exception's text otherwise. Library
// warnings met on the way are appended to `warnings`, one per line.
std::string Load(zelva::runtime::Serializable& object, const std::string& path, FileForm form,
                 const std::string& precision, std::string* warnings);
// Writes `object` to `path` (JSON, or binary at `precision`); same reporting as Load.
std::string Save(zelva::runtime::Serializable& object, const std::string& path, FileForm form,
                 const std::string& precision);

// How the precision of a binary input's weights was settled. A binary file does not record it.
struct BinaryPrecision {
  std::string precision;  // "fp16" or "fp32"
  std::string how;        // "given", "found: ...", for the user
};

// Reads the binary file `path` into an object made by `make`, as Load does. With `given` ("fp16" or "fp32")
// at that precision, as told (a reading that stops before the file's end adds a warning). With `given` empty
// it reads at both precisions and keeps the one whose reading ends exactly at the file's end; it refuses when
// neither does, or when both do and give different objects (a file without weights reads alike at both, and
// then fp16 is taken). Returns "" or the reason, which names `option` as the way to settle it.
std::string LoadBinaryFindingPrecision(
    const std::function<std::unique_ptr<zelva::runtime::Serializable>()>& make, const std::string& path,
    const std::string& given, const std::string& option,
    std::unique_ptr<zelva::runtime::Serializable>* object, BinaryPrecision* found, std::string* warnings);

// Floats in all weight fields of the model's layers (what `zvkit info` totals).
uint64_t ModelWeightFloats(zelva::runtime::ZVModelInfo& model);

}  // namespace zvkit
