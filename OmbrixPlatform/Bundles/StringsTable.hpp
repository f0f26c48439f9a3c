#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// The texts of one language by key, in the format of .strings files:
///
///     /* shown beside a pulse */
///     "units.bpm" = "BPM";
///
/// A value: any thread may read it.
class StringsTable {
 public:
  /// Reads a file in UTF-8, or in UTF-16 with a byte order mark; comments as in C++.
  ///
  /// Texts are in quotes; bare words need none. Escapes: `\n \r \t \a \b \f \v`, quote, backslash,
  /// `\U` or `\u` with four hexadecimal digits (UTF-16 units, also in pairs), up to three octal
  /// digits (ASCII only). A key alone is its own text; of equal keys the last one wins.
  ///
  /// A damaged entry is skipped and parsing continues on the next line; an unterminated comment
  /// hides everything after it. Parsing never fails as a whole.
  static StringsTable parse(DataView bytes);

  /// The text of a key; null when there is none. Valid as long as the table.
  [[nodiscard]] const std::string* find(std::string_view key) const { return texts_.find(key); }

  [[nodiscard]] std::size_t size() const noexcept { return texts_.size(); }

 private:
  OrderedDictionary<std::string> texts_;
};

}  // namespace ombrix::platform
