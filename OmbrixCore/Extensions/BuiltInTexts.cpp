#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "OmbrixCore/Extensions/Detail/BuiltInTexts.hpp"
#include "OmbrixPlatform/Text/LanguageMatch.hpp"
#include "OmbrixPlatform/Text/StringsTable.hpp"

namespace ombrix::detail {
namespace {

constexpr const char* kDevelopmentLanguage = "en";

// Readers differ more than languages do: a program that formats for many keeps not all of them.
constexpr std::size_t kMaximumReaders = 64;

/// The tables of readers' languages, each parsed once.
class ReadersTexts {
 public:
  std::shared_ptr<const platform::StringsTable> table(const std::vector<std::string>& preferred) {
    const std::lock_guard lock(mutex_);
    if (const auto known = tables_.find(preferred); known != tables_.end()) return known->second;
    if (tables_.size() >= kMaximumReaders) tables_.clear();
    return tables_.try_emplace(preferred, parsed(languageFor(preferred))).first->second;
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
  std::map<std::vector<std::string>, std::shared_ptr<const platform::StringsTable>> tables_;
};

}  // namespace

std::optional<std::string> builtInText(std::string_view key,
                                       const std::vector<std::string>& preferred) {
  static auto& texts = *new ReadersTexts;
  const auto table = texts.table(preferred);
  const std::string* text = table->find(key);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

}  // namespace ombrix::detail
