// What zvkit's file commands share: telling a model from a configuration, loading either with the library's
// failure turned into one readable line, and the extension rules of the two file forms.
#pragma once

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

// Loads `path` into `object` (JSON, or binary at `precision`). Returns an empty string on success, else the
// reason: the library's own failure line when it logged one, the exception's text otherwise. Library
// warnings met on the way are appended to `warnings`, one per line.
std::string Load(zelva::runtime::Serializable& object, const std::string& path, FileForm form,
                 const std::string& precision, std::string* warnings);
// Writes `object` to `path` (JSON, or binary at `precision`); same reporting as Load.
std::string Save(zelva::runtime::Serializable& object, const std::string& path, FileForm form,
                 const std::string& precision);

// Floats in all weight fields of the model's layers (what `zvkit info` totals).
uint64_t ModelWeightFloats(zelva::runtime::ZVModelInfo& model);

}  // namespace zvkit
