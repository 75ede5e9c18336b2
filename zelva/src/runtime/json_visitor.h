// The JSON form of the serialisation walk. A Serializable becomes a JSON object whose members are named by
// the keys of its visits, in visit order; a root object carries "serialization_protocol_version" first of
// all.
//
// The getter is lax on purpose: it looks up only what it is asked for. A missing member reads as 0, 0.0,
// false or an empty vector, and a missing nested object keeps its constructor's values; only string members
// are required. Unknown members are ignored.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "zelva/src/runtime/rapidjson_config.h"
#include "zelva/src/runtime/serialization.h"

namespace zelva {
namespace runtime {

class JSONNodeGetter : public Visitor {
 public:
  // `version` 0 marks the root: the version is then read from the node's "serialization_protocol_version"
  // (20018 when absent, refused when above 20018). Nested getters pass their parent's version on.
  JSONNodeGetter(const rapidjson::Value* node, uint32_t version);

  ZV_VISIT_OVERRIDES

 private:
  // The member `name` of the node, or null when absent (or when the node is not an object).
  const rapidjson::Value* Find(const std::string& name) const;
  // The member as an array to read a vector from, or null when absent or JSON null.
  const rapidjson::Value* FindArray(const std::string& name) const;

  const rapidjson::Value* node_;
};

class JSONNodeSetter : public Visitor {
 public:
  // `node` must be an object; members are appended to it in visit order, their keys and values allocated in
  // `allocator`. `write_version` (root only) first appends "serialization_protocol_version": 20018.
  JSONNodeSetter(rapidjson::Value* node, rapidjson::Document::AllocatorType* allocator, bool write_version);

  ZV_VISIT_OVERRIDES

 private:
  void Append(const std::string& name, rapidjson::Value& value);
  template <typename T>
  void AppendArray(const std::vector<T>& values, const std::string& name);

  rapidjson::Value* node_;
  rapidjson::Document::AllocatorType* allocator_;
};

// The whole file as text. Fails "Error in opening the file [%s]." (with ": is a directory" for a directory)
// or "Error in read the whole file [%s].".
std::stringstream ReadJsonFile2StrStream(const std::string& path);
// The same as a plain string, without the stream's copies (large models carry megabytes of Base64 text).
std::string ReadJsonFile2String(const std::string& path);

// Parse flags used for every model and configuration text. The parse is iterative, so that nesting in a file,
// however deep, costs heap and not stack. NaN and Infinity literals are accepted. Numbers take the parser's
// normal-precision path (within 3 ULP of a double): every value the files hold is a float or a half widened
// to double, which that path reads back to the same float. The installed parser's exact-number path is not
// used: it misreads zero significands with large exponents and overruns its power table on long mantissas.
constexpr unsigned kJsonParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNanAndInfFlag;

}  // namespace runtime
}  // namespace zelva
