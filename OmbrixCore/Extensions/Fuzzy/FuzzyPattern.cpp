#include "OmbrixCore/Extensions/Fuzzy/FuzzyPattern.hpp"

#include <algorithm>
#include <concepts>
#include <utility>

#include "OmbrixCore/Extensions/Fuzzy/Detail/Characters.hpp"
#include "OmbrixCore/Extensions/Fuzzy/Detail/EditDistance.hpp"
#include "OmbrixCore/Extensions/Fuzzy/Detail/Folded.hpp"
#include "OmbrixCore/Extensions/Fuzzy/Detail/SubsequenceScore.hpp"
#include "OmbrixPlatform/Text/CaseFolding.hpp"
#include "OmbrixPlatform/Text/CharacterSet.hpp"
#include "OmbrixPlatform/Text/LetterCase.hpp"
#include "OmbrixPlatform/Text/TextSegmentation.hpp"

namespace ombrix {
namespace detail {

std::string_view loweredBytes(std::string_view text, std::string& storage) {
  const auto isCapital = [](char character) { return character >= 'A' && character <= 'Z'; };
  // Without an early exit the compiler tests 16 bytes at a time.
  unsigned capitals = 0;
  for (const char character : text) capitals |= isCapital(character) ? 1U : 0U;
  if (capitals == 0) return text;
  storage = text;
  for (char& character : storage) {
    character = static_cast<char>(character | (isCapital(character) ? 'a' - 'A' : 0));
  }
  return storage;
}

std::string_view lowered(std::string_view text, std::string& storage) {
  if (platform::bytesAreCharacters(text)) return loweredBytes(text, storage);
  return storage = platform::lowercased(std::string(text));
}

std::string_view comparable(std::string_view text, bool ignoreCase, bool trimWhiteSpaces,
                            std::string& storage) {
  if (ignoreCase) text = lowered(text, storage);
  if (trimWhiteSpaces) {
    text = storage =
        platform::trimmingCharacters(text, platform::CharacterSet::whitespacesAndNewlines);
  }
  return text;
}

}  // namespace detail

/// One spelling of the pattern; `characters` may borrow the bytes of `text`.
struct FuzzyPattern::Form {
  explicit Form(std::string spelled) : text(std::move(spelled)), characters(text, longCharacters) {}
  Form(Form&&) = delete;

  template <class Result>
  std::optional<Result> match(std::string_view other) const {
    return detail::matchCharacters<Result>(detail::Characters(other, std::as_const(longCharacters)),
                                           characters);
  }

  std::string text;
  detail::LongCharacters longCharacters;
  detail::Characters characters;
};

struct FuzzyPattern::Forms {
  explicit Forms(std::string pattern) : plain(std::move(pattern)) {}

  Form plain;
  std::optional<Form> folded;  // empty for an exact pattern
};

FuzzyPattern::FuzzyPattern(std::string_view pattern, Comparison comparison) {
  if (comparison == Comparison::exact) {
    forms_ = std::make_unique<Forms>(std::string(pattern));
    return;
  }
  auto forms = std::make_unique<Forms>(platform::lowercased(std::string(pattern)));
  forms->folded.emplace(platform::foldingDiacritics(forms->plain.text));
  forms_ = std::move(forms);
}
FuzzyPattern::FuzzyPattern(FuzzyPattern&&) noexcept = default;
FuzzyPattern& FuzzyPattern::operator=(FuzzyPattern&&) noexcept = default;
FuzzyPattern::~FuzzyPattern() = default;

template <class Result>
std::optional<Result> FuzzyPattern::best(std::string_view text) const {
  const auto scoreOf = [](const std::optional<Result>& result) -> std::int64_t {
    if (!result) return -1;
    if constexpr (std::same_as<Result, FuzzyMatch>) {
      return result->score;
    } else {
      return *result;
    }
  };
  if (!forms_->folded) return forms_->plain.match<Result>(text);

  std::string storage;
  if (forms_->plain.characters.areBytes() && platform::bytesAreCharacters(text)) {
    // Folding leaves ASCII unchanged: a second pass would repeat the first one.
    return detail::matchCharacters<Result>(detail::Characters(detail::loweredBytes(text, storage)),
                                           forms_->plain.characters);
  }
  const std::string_view small = detail::lowered(text, storage);
  auto plain = forms_->plain.match<Result>(small);
  const std::string foldedText = platform::foldingDiacritics(small);
  if (foldedText == small && forms_->folded->text == forms_->plain.text) return plain;
  auto folded = forms_->folded->match<Result>(foldedText);
  // Kept: ties go to the plain pass, and the folded pass alone needs a score of at least 1, so that
  // scattered letters are found with their marks only.
  const std::int64_t foldedScore = scoreOf(folded);
  if (plain) return scoreOf(plain) >= foldedScore ? std::move(plain) : std::move(folded);
  return foldedScore >= 1 ? std::move(folded) : std::nullopt;
}

std::optional<FuzzyMatch> FuzzyPattern::match(std::string_view text) const {
  return best<FuzzyMatch>(text);
}

std::optional<std::int64_t> FuzzyPattern::score(std::string_view text) const {
  return best<std::int64_t>(text);
}

void sortByScore(std::vector<RankedText>& matches) {
  std::ranges::sort(matches, [](const RankedText& a, const RankedText& b) {
    return a.score != b.score ? a.score > b.score : a.index < b.index;
  });
}

struct LevenshteinPattern::Prepared {
  Prepared(std::string spelled, bool ignoresCase, bool trimsWhiteSpaces)
      : ignoreCase(ignoresCase),
        trimWhiteSpaces(trimsWhiteSpaces),
        text(std::move(spelled)),
        characters(text, longCharacters),
        pattern(characters.visit([](auto span) { return detail::EditPattern(span); })) {}
  Prepared(Prepared&&) = delete;

  bool ignoreCase;
  bool trimWhiteSpaces;
  std::string text;
  detail::LongCharacters longCharacters;
  detail::Characters characters;
  detail::EditPattern pattern;
};

LevenshteinPattern::LevenshteinPattern(std::string_view text, bool ignoreCase,
                                       bool trimWhiteSpacesAndNewLines) {
  std::string storage;
  const auto spelled = detail::comparable(text, ignoreCase, trimWhiteSpacesAndNewLines, storage);
  prepared_ =
      std::make_unique<Prepared>(std::string(spelled), ignoreCase, trimWhiteSpacesAndNewLines);
}
LevenshteinPattern::LevenshteinPattern(LevenshteinPattern&&) noexcept = default;
LevenshteinPattern& LevenshteinPattern::operator=(LevenshteinPattern&&) noexcept = default;
LevenshteinPattern::~LevenshteinPattern() = default;

double LevenshteinPattern::scoreTo(std::string_view other) const {
  std::string storage;
  const std::string_view spelled =
      detail::comparable(other, prepared_->ignoreCase, prepared_->trimWhiteSpaces, storage);
  const detail::Characters characters(spelled, prepared_->longCharacters);
  const std::size_t distance =
      characters.visit([&](auto span) { return prepared_->pattern.distanceTo(span); });
  // Kept: two empty texts give 0/0, which is not a number; see `levenshteinDistanceScore`.
  return 1 - static_cast<double>(distance) /
                 static_cast<double>(std::max(prepared_->characters.size(), characters.size()));
}

}  // namespace ombrix
