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
  /// @param identifier For example "en_GB" or "en-GB"; empty, "C", "POSIX" and texts that name no
  ///   locale mean "en_US".
  explicit Locale(std::string_view identifier);

  /// The locale of the current user, from the service in `services().locale`. Any thread.
  static Locale current();

  /// For example "en_US", "sr_Latn_RS" or "de".
  [[nodiscard]] const std::string& identifier() const noexcept { return identifier_; }

  /// For example "en-US" (BCP 47).
  [[nodiscard]] std::string languageTag() const;

  /// For example "en".
  [[nodiscard]] std::string languageCode() const;

  /// For example "US"; empty when the locale names no region.
  [[nodiscard]] std::string regionCode() const;

  /// The same language and region with another locale's system of measurement.
  [[nodiscard]] Locale measuringAs(const Locale& other) const;

  /// The identifier that decides how to measure: its own, unless another one was set.
  [[nodiscard]] const std::string& measurementIdentifier() const noexcept {
    return measurementIdentifier_.empty() ? identifier_ : measurementIdentifier_;
  }

  /// Whether its region measures lengths in metres: all but the United States and Liberia do.
  [[nodiscard]] bool usesMetricSystem() const;

  friend bool operator==(const Locale&, const Locale&) = default;

 private:
  std::string identifier_;
  std::string measurementIdentifier_;  // empty for its own
};

/// Knows the current user's locale and languages. All operations may be called from any thread.
class LocaleService {
 public:
  virtual ~LocaleService() = default;

  [[nodiscard]] virtual Locale current() const = 0;

  /// The tags of the languages the user reads, the best one first, for example "en-GB".
  [[nodiscard]] virtual std::vector<std::string> preferredLanguages() const = 0;

  /// The host calls it after the user has changed the locale or the languages: reads them again,
  /// then sends `currentLocaleDidChange` on the calling thread.
  void localeDidChange() {
    reload();
    currentLocaleDidChange.send();
  }

  /// Sent after a change, when `current` already returns the new locale.
  Signal<> currentLocaleDidChange;

 protected:
  virtual void reload() = 0;
};

/// Takes the locale from LC_ALL, LC_MESSAGES or LANG, its measurement system from LC_MEASUREMENT
/// if that is set and LC_ALL is not, and the languages from LANGUAGE (separated by ":"),
/// otherwise from the locale. The environment is read when the service is made and in
/// `localeDidChange`.
std::shared_ptr<LocaleService> makeSystemLocaleService();

}  // namespace ombrix::platform
