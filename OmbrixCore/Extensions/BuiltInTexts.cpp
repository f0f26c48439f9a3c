#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "OmbrixCore/Extensions/Detail/BuiltInTexts.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/LanguageMatch.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Text/StringsTable.hpp"

namespace ombrix::detail {
namespace {

constexpr const char* kDevelopmentLanguage = "en";

/// The table of the user's language, parsed once for each list of preferences in use.
class UserTexts {
 public:
  std::shared_ptr<const platform::StringsTable> table() {
    auto preferred = platform::services().locale.get().preferredLanguages();
    const std::lock_guard lock(mutex_);
    if (table_ && preferred == preferred_) return table_;
    table_ = parsed(languageFor(preferred));
    preferred_ = std::move(preferred);
    return table_;
  }

 private:
  static std::string languageFor(const std::vector<std::string>& preferred) {
    std::vector<std::string> available;
    for (const BuiltInTable& table : builtInTables()) available.emplace_back(table.language);
    return platform::bestLanguage(preferred, available).value_or(kDevelopmentLanguage);
  }

  static std::shared_ptr<const platform::StringsTable> parsed(std::string_view language) {
    const auto tables = builtInTables();
    const auto found = std::ranges::find(tables, language, &BuiltInTable::language);
    if (found == tables.end()) return std::make_shared<const platform::StringsTable>();
    return std::make_shared<const platform::StringsTable>(
        platform::StringsTable::parse(std::as_bytes(std::span(found->strings))));
  }

  std::mutex mutex_;
  std::vector<std::string> preferred_;
  std::shared_ptr<const platform::StringsTable> table_;
};

}  // namespace

std::optional<std::string> builtInText(std::string_view key) {
  static auto& texts = *new UserTexts;
  const auto table = texts.table();
  const std::string* text = table->find(key);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

}  // namespace ombrix::detail
