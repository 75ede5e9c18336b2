// Small string helpers shared by the loaders.
#pragma once

#include <stdexcept>
#include <string>

namespace zelva {
namespace utility {

// True when `text` ends in `suffix` (exact, case-sensitive). Taking the tail is a checked operation: a text
// shorter than the suffix raises std::out_of_range("invalid string position") instead of answering false.
inline bool EndsWithChecked(const std::string& text, const char* suffix) {
  const std::string tail(suffix);
  if (text.size() < tail.size()) throw std::out_of_range("invalid string position");
  return text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace utility
}  // namespace zelva
