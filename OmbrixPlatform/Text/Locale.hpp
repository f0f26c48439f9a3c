#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Observation/Signal.hpp"

namespace ombrix::platform {

/// A language and region by which text is written and measured. A value: any thread may read it.
class Locale {
 public:
  /// @param identifier As in "en_GB" or "en-GB"; empty, "C", "POSIX" and what names no locale at
  ///   all mean "en_US".
  explicit Locale(std::string_view identifier);

  /// The locale of the current user, from the service in `services().locale`. Any thread.
  static Locale current();

  /// As in "en_US", "sr_Latn_RS" or "de".
  [[nodiscard]] const std::string& identifier() const noexcept { return identifier_; }

  /// As in "en-US" (BCP 47).
  [[nodiscard]] std::string languageTag() const;

  /// As in "en".
  [[nodiscard]] std::string languageCode() const;

  /// As in "US"; empty when the locale names no region.
  [[nodiscard]] std::string regionCode() const;

  /// The same language and region with another locale's way of measuring.
  [[nodiscard]] Locale measuringAs(const Locale& other) const;

  /// The locale by which is measured: this one's own identifier, unless another one was given.
  [[nodiscard]] const std::string& measurementIdentifier() const noexcept {
    return measurementIdentifier_.empty() ? identifier_ : measurementIdentifier_;
  }

  /// Whether lengths are measured in metres there: everywhere but in the United States and Liberia.
  [[nodiscard]] bool usesMetricSystem() const;

  friend bool operator==(const Locale&, const Locale&) = default;

 private:
  std::string identifier_;
  std::string measurementIdentifier_;  // empty for the same
};

/// Knows the current user's locale and languages. All operations may be called from any thread.
class LocaleService {
 public:
  virtual ~LocaleService() = default;

  [[nodiscard]] virtual Locale current() const = 0;

  /// The tags of the languages the user reads, the best one first, as in "en-GB".
  [[nodiscard]] virtual std::vector<std::string> preferredLanguages() const = 0;

  /// For the host to call when the user has changed the locale or the languages: looks them up
  /// again, then sends `currentLocaleDidChange` on the calling thread.
  void localeDidChange() {
    reload();
    currentLocaleDidChange.send();
  }

  /// Sent after a change, when `current` gives the new locale already.
  Signal<> currentLocaleDidChange;

 protected:
  virtual void reload() = 0;
};

/// The locale that the environment names in LC_ALL, LC_MESSAGES or LANG, measuring as
/// LC_MEASUREMENT says where that is set and LC_ALL is not, and the languages in LANGUAGE
/// (separated by ":"), else the locale's own. The environment is read when the service is made and
/// in `localeDidChange`.
std::shared_ptr<LocaleService> makeSystemLocaleService();

}  // namespace ombrix::platform
