#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ombrix::testing {

/// What stands between the separators of a text, for tables of many short texts.
inline std::vector<std::string> itemsOf(std::string_view text, char separator) {
  std::vector<std::string> items;
  for (std::size_t end = 0; end != text.npos; text.remove_prefix(end != text.npos ? end + 1 : 0)) {
    end = text.find(separator);
    items.emplace_back(text.substr(0, end));
  }
  return items;
}

}  // namespace ombrix::testing
