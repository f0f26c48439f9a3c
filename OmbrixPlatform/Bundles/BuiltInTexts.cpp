#include "OmbrixPlatform/Bundles/BuiltInTexts.hpp"

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Text/LanguageMatch.hpp"

namespace ombrix::platform {
namespace {

// Preference lists outnumber languages: a program with many users caches only this many.
constexpr std::size_t kMaximumReaders = 64;

}  // namespace

BuiltInTexts::BuiltInTexts(std::span<const BuiltInTable> tables, std::string developmentLanguage)
    : tables_(tables), developmentLanguage_(std::move(developmentLanguage)) {}

std::optional<std::string> BuiltInTexts::find(std::string_view key,
                                              const std::vector<std::string>& preferred) {
  const auto texts = table(preferred);
  const std::string* text = texts->find(key);
  return text == nullptr ? std::nullopt : std::optional(*text);
}

std::string BuiltInTexts::language(const std::vector<std::string>& preferred) const {
  std::vector<std::string> available;
  for (const BuiltInTable& table : tables_) available.emplace_back(table.language);
  return bestLanguage(preferred, available).value_or(developmentLanguage_);
}

std::shared_ptr<const StringsTable> BuiltInTexts::table(const std::vector<std::string>& preferred) {
  const LockGuard lock(mutex_);
  if (const auto known = readers_.find(preferred); known != readers_.end()) return known->second;
  if (readers_.size() >= kMaximumReaders) readers_.clear();
  return readers_.try_emplace(preferred, parsed(language(preferred))).first->second;
}

std::shared_ptr<const StringsTable> BuiltInTexts::parsed(std::string_view language) const {
  const auto found = std::ranges::find(tables_, language, &BuiltInTable::language);
  if (found == tables_.end()) return std::make_shared<const StringsTable>();
  return std::make_shared<const StringsTable>(
      StringsTable::parse(std::as_bytes(std::span(found->strings))));
}

}  // namespace ombrix::platform
