#include <unicode/measunit.h>
#include <unicode/numberformatter.h>

#include <map>
#include <string>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Measure/Detail/IcuNumberFormat.hpp"
#include "OmbrixPlatform/Measure/NSUnit.hpp"

namespace ombrix::platform {
namespace {

/// A lookup in a locale's preferences: a usage of Unicode's unit preferences and an amount. The
/// amount is fixed, since the answer may depend on it (pounds for a baby's weight where a person's
/// is in stones).
struct Question {
  const char* usage;
  const char* unit;
  double amount;
};

constexpr Question kPersonWeight{"person", "kilogram", 70};
constexpr Question kWeather{"weather", "celsius", 10};

std::string ask(const std::string& identifier, const Question& question) {
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale locale(identifier.c_str());
  // Plain "en" has no region to look up; its likely region provides one.
  locale.addLikelySubtags(status);
  const auto formatted = icu::number::NumberFormatter::withLocale(locale)
                             .usage(question.usage)
                             .unit(icu::MeasureUnit::forIdentifier(question.unit, status))
                             .formatDouble(question.amount, status);
  const icu::MeasureUnit unit = formatted.getOutputUnit(status);
  return U_FAILURE(status) ? question.unit : unit.getIdentifier();
}

/// The locale's answer, looked up once per process: a lookup takes 200 µs.
std::string preferredUnit(const Locale& locale, const Question& question) {
  struct Cache {
    Mutex mutex;
    std::map<std::pair<std::string, const Question*>, std::string> answers OMBRIX_GUARDED_BY(mutex);
  };
  static Cache& cache = *new Cache;
  std::pair key(locale.measurementIdentifier(), &question);
  const LockGuard lock(cache.mutex);
  if (const auto known = cache.answers.find(key); known != cache.answers.end()) {
    return known->second;
  }
  auto answer = ask(key.first, question);
  return cache.answers.emplace(std::move(key), std::move(answer)).first->second;
}

}  // namespace

NSUnitMass NSUnitMass::forLocale(const Locale& locale, Usage) {
  const std::string unit = preferredUnit(locale, kPersonWeight);
  return unit == "kilogram" ? kilograms() : pounds();
}

NSUnitTemperature NSUnitTemperature::forLocale(const Locale& locale, Usage) {
  return preferredUnit(locale, kWeather) == "fahrenheit" ? fahrenheit() : celsius();
}

NSUnitEnergy NSUnitEnergy::forLocale(const Locale&, Usage) {
  // Unicode's data does not know workouts and would answer kilowatt-hours.
  return kilocalories();
}

}  // namespace ombrix::platform
