#include "OmbrixCore/Extensions/Fuzzy/Detail/Characters.hpp"
#include "OmbrixPlatform/Text/TextSegmentation.hpp"

namespace ombrix::detail {
namespace {

constexpr std::size_t kPackedBytes = 7;
constexpr Symbol kFirstLong = Symbol{1} << 56;
constexpr Symbol kForeign = ~Symbol{0};

/// Packs the bytes of a short character into a number. The numbers are unique: only the character
/// U+0000 itself contains a zero byte.
Symbol packed(std::string_view character) noexcept {
  Symbol symbol = 0;
  for (const char byte : character) symbol = symbol << 8 | static_cast<unsigned char>(byte);
  return symbol;
}

template <class NumberOfLong>
std::vector<Symbol> symbolsOf(std::string_view text, NumberOfLong numberOfLong) {
  const platform::TextCharacters characters(text);
  std::vector<Symbol> symbols(characters.size());
  for (std::size_t i = 0; i < symbols.size(); ++i) {
    const std::string_view character = characters[i];
    symbols[i] = character.size() <= kPackedBytes ? packed(character) : numberOfLong(character);
  }
  return symbols;
}

}  // namespace

Symbol LongCharacters::learn(std::string_view character) {
  const Symbol known = find(character);
  if (known != kForeign) return known;
  return known_.emplace(character, kFirstLong + known_.size()).first->second;
}

Symbol LongCharacters::find(std::string_view character) const {
  const auto found = known_.find(character);
  return found == known_.end() ? kForeign : found->second;
}

Characters::Characters(std::string_view text, LongCharacters& longCharacters)
    : areBytes_(platform::bytesAreCharacters(text)), bytes_(text) {
  if (areBytes_) return;
  symbols_ = symbolsOf(text, [&](std::string_view one) { return longCharacters.learn(one); });
}

Characters::Characters(std::string_view text, const LongCharacters& longCharacters)
    : areBytes_(platform::bytesAreCharacters(text)), bytes_(text) {
  if (areBytes_) return;
  symbols_ = symbolsOf(text, [&](std::string_view one) { return longCharacters.find(one); });
}

}  // namespace ombrix::detail
