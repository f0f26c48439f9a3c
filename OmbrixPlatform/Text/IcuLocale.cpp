#include <unicode/locid.h>
#include <unicode/ulocdata.h>

#include <algorithm>

#include "OmbrixPlatform/Detail/Environment.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"
#include "OmbrixPlatform/Text/LocaleIdentifier.hpp"

namespace ombrix::platform {
namespace {

constexpr std::string_view kDefaultIdentifier = "en_US";

bool isPosix(std::string_view identifier) { return identifier == "C" || identifier == "POSIX"; }

std::string canonicalIdentifier(std::string_view identifier) {
  if (identifier.empty() || isPosix(identifier)) {
    return std::string(kDefaultIdentifier);
  }
  const auto locale = icu::Locale::createCanonical(std::string(identifier).c_str());
  const std::string_view language = locale.isBogus() ? "" : locale.getLanguage();
  // ICU passes on invalid language codes; valid ones have 2 to 8 letters.
  const bool isCode = language.size() >= 2 && language.size() <= 8 &&
                      std::ranges::all_of(language, [](char c) { return c >= 'a' && c <= 'z'; });
  return isCode ? locale.getName() : std::string(kDefaultIdentifier);
}

/// The locale of a value such as "sr_RS.UTF-8@latin": ignores the encoding and all modifiers but
/// those that name a script.
Locale localeFromEnvironment(std::string_view value) {
  const auto modifierBegin = std::min(value.find('@'), value.size());
  const std::string_view modifier = value.substr(modifierBegin);
  std::string name(value.substr(0, std::min(value.find('.'), modifierBegin)));
  const char* script = modifier == "@latin" ? "_Latn" : modifier == "@cyrillic" ? "_Cyrl" : "";
  name.insert(std::min(name.find('_'), name.size()), script);
  return Locale(name);
}

class EnvironmentLocaleService final : public LocaleService {
 public:
  EnvironmentLocaleService() { EnvironmentLocaleService::reload(); }

  Locale current() const override {
    const LockGuard lock(mutex_);
    return current_;
  }

  std::vector<std::string> preferredLanguages() const override {
    const LockGuard lock(mutex_);
    return languages_;
  }

 private:
  void reload() override {
    std::string name;
    for (const char* category : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
      name = detail::environment(category);
      if (!name.empty()) break;
    }
    Locale locale = localeFromEnvironment(name);
    const std::string measurement = detail::environment("LC_MEASUREMENT");
    if (!measurement.empty() && detail::environment("LC_ALL").empty()) {
      locale = locale.measuringAs(localeFromEnvironment(measurement));
    }

    std::vector<std::string> languages;
    const std::string variable = detail::environment("LANGUAGE");
    std::string_view list = variable;
    while (!list.empty()) {
      const auto end = std::min(list.find(':'), list.size());
      if (end > 0) {
        auto tag = localeFromEnvironment(list.substr(0, end)).languageTag();
        if (std::ranges::find(languages, tag) == languages.end()) {
          languages.push_back(std::move(tag));
        }
      }
      list.remove_prefix(std::min(end + 1, list.size()));
    }
    if (languages.empty()) languages.push_back(locale.languageTag());

    const LockGuard lock(mutex_);
    current_ = locale;
    languages_ = std::move(languages);
  }

  mutable Mutex mutex_;
  Locale current_ OMBRIX_GUARDED_BY(mutex_){kDefaultIdentifier};
  std::vector<std::string> languages_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace

Locale::Locale(std::string_view identifier) : identifier_(canonicalIdentifier(identifier)) {}

Locale Locale::current() { return services().locale.get().current(); }

std::string Locale::languageTag() const {
  UErrorCode status = U_ZERO_ERROR;
  return icu::Locale(identifier_.c_str()).toLanguageTag<std::string>(status);
}

std::string Locale::languageCode() const { return icu::Locale(identifier_.c_str()).getLanguage(); }

std::string Locale::regionCode() const { return icu::Locale(identifier_.c_str()).getCountry(); }

Locale Locale::measuringAs(const Locale& other) const {
  Locale changed = *this;
  const auto& identifier = other.measurementIdentifier();
  changed.measurementIdentifier_ = identifier == identifier_ ? std::string() : identifier;
  return changed;
}

bool Locale::usesMetricSystem() const {
  UErrorCode status = U_ZERO_ERROR;
  return ulocdata_getMeasurementSystem(measurementIdentifier().c_str(), &status) != UMS_US;
}

bool isLocaleIdentifier(std::string_view identifier) {
  if (isPosix(identifier)) return true;
  const auto locale = icu::Locale::createCanonical(std::string(identifier).c_str());
  if (locale.isBogus() || *locale.getISO3Language() == '\0') return false;
  // Regions such as 419, Latin America, have no letters.
  const std::string_view region = locale.getCountry();
  return *locale.getISO3Country() != '\0' ||
         std::ranges::all_of(region, [](char c) { return c >= '0' && c <= '9'; });
}

std::shared_ptr<LocaleService> makeSystemLocaleService() {
  return std::make_shared<EnvironmentLocaleService>();
}

template <>
std::shared_ptr<LocaleService> makeDefault() {
  return makeSystemLocaleService();
}

}  // namespace ombrix::platform
