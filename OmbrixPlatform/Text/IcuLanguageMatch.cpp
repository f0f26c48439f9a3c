#include <unicode/locid.h>

#include <cstring>

#include "OmbrixPlatform/Text/LanguageMatch.hpp"

namespace ombrix::platform {
namespace {

struct Language {
  explicit Language(const std::string& name) : given(name.c_str()), likely(given) {
    UErrorCode status = U_ZERO_ERROR;
    likely.addLikelySubtags(status);
  }
  icu::Locale given, likely;
};

bool equal(const char* a, const char* b) noexcept { return std::strcmp(a, b) == 0; }

constexpr int kNoMatch = 4;

/// How far an available language is from the wanted one; 0 is the same.
int distance(const Language& wanted, const Language& available) noexcept {
  if (wanted.given == available.given) return 0;
  if (!equal(wanted.likely.getLanguage(), available.likely.getLanguage()) ||
      !equal(wanted.likely.getScript(), available.likely.getScript())) {
    return kNoMatch;
  }
  if (*available.given.getCountry() == '\0') return 2;
  return equal(wanted.likely.getCountry(), available.likely.getCountry()) ? 1 : 3;
}

}  // namespace

std::optional<std::string> bestLanguage(std::span<const std::string> preferred,
                                        std::span<const std::string> available) {
  for (const std::string& name : preferred) {
    const Language wanted(name);
    if (*wanted.given.getLanguage() == '\0') continue;
    const std::string* best = nullptr;
    int bestDistance = kNoMatch;
    for (const std::string& candidate : available) {
      const int candidateDistance = distance(wanted, Language(candidate));
      if (candidateDistance < bestDistance) {
        bestDistance = candidateDistance;
        best = &candidate;
      }
    }
    if (best != nullptr) return *best;
  }
  return std::nullopt;
}

}  // namespace ombrix::platform
