#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Bundles/StringsTable.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform {

/// One language's table as its .strings file holds it.
struct BuiltInTable {
  std::string_view language;  ///< Such as "de".
  std::string_view strings;   ///< UTF-8.
};

/// Texts in several languages that are compiled in, so that a program has them wherever it is
/// copied. Any thread.
class BuiltInTexts {
 public:
  /// @param tables Must outlive this object; one of them is the development language's.
  /// @param developmentLanguage Used when no preferred language has a table.
  BuiltInTexts(std::span<const BuiltInTable> tables, std::string developmentLanguage);

  /// The text of a key in the best language for a reader; empty for a key that is not in its
  /// table.
  /// @param preferred Language tags, the best one first.
  [[nodiscard]] std::optional<std::string> find(std::string_view key,
                                                const std::vector<std::string>& preferred);

  /// The language that `find` uses, for example "de".
  [[nodiscard]] std::string language(const std::vector<std::string>& preferred) const;

 private:
  std::shared_ptr<const StringsTable> table(const std::vector<std::string>& preferred);
  [[nodiscard]] std::shared_ptr<const StringsTable> parsed(std::string_view language) const;

  std::span<const BuiltInTable> tables_;
  std::string developmentLanguage_;
  Mutex mutex_;
  // The table for each list of preferences, parsed once.
  std::map<std::vector<std::string>, std::shared_ptr<const StringsTable>> readers_
      OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix::platform
