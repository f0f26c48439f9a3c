#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ombrix::detail {

/// One language's table as its .strings file holds it.
struct BuiltInTable {
  std::string_view language;
  std::string_view strings;
};

/// The tables of OmbrixCore/Resources, which the build compiles in, so that a program has its texts
/// wherever it is copied to. Any thread.
std::span<const BuiltInTable> builtInTables();

/// The built-in text of a key in the best language for a reader, else in English; nothing for an
/// unknown key. Any thread.
/// @param preferred Language tags, the best one first.
std::optional<std::string> builtInText(std::string_view key,
                                       const std::vector<std::string>& preferred);

}  // namespace ombrix::detail
