#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Coding/OrderedDictionary.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// The texts of one language by key, as a .strings file holds them:
///
///     /* shown beside a pulse */
///     "units.bpm" = "BPM";
///
/// A value: any thread may read it.
class StringsTable {
 public:
  /// Reads a file in UTF-8, or in UTF-16 with a byte order mark; comments as in C++.
  ///
  /// Texts stand in quotes, bare words do without. Escapes: \n \r \t \a \b \f \v, an escaped
  /// quote or backslash, \U or \u with four hexadecimal digits (UTF-16 units, also in pairs), up to
  /// three octal digits (ASCII only). A key alone stands for itself; of equal keys the last counts.
  ///
  /// A damaged entry is left out and reading goes on in the next line; a comment without an end
  /// takes everything behind it along. It never fails as a whole.
  static StringsTable parse(DataView bytes);

  /// The text of a key; null when there is none. Valid as long as the table.
  [[nodiscard]] const std::string* find(std::string_view key) const { return texts_.find(key); }

  [[nodiscard]] std::size_t size() const noexcept { return texts_.size(); }

 private:
  OrderedDictionary<std::string> texts_;
};

}  // namespace ombrix::platform
