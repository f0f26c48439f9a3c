#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Values/HashSeed.hpp"

namespace ombrix::detail {

/// A user-perceived character as a number: equal characters of a pattern and of the text to match
/// have equal numbers. The number of an ASCII character is its code.
using Symbol = std::uint64_t;

/// An ASCII character.
using Byte = unsigned char;

/// Numbers for those characters of a pattern that are too long to be packed into a number.
class LongCharacters {
 public:
  /// The number for a character of the pattern; assigns one if needed.
  Symbol learn(std::string_view character);

  /// The number for a character of a text; differs from all of the pattern's if not among them.
  [[nodiscard]] Symbol find(std::string_view character) const;

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return static_cast<std::size_t>(platform::HashSeed::ofProcess().ofText(text));
    }
  };

  std::unordered_map<std::string, Symbol, Hash, std::equal_to<>> known_;
};

/// The characters of a text, as bytes if each byte is a character, otherwise as symbols.
class Characters {
 public:
  /// For a pattern: fills `longCharacters`.
  Characters(std::string_view text, LongCharacters& longCharacters);

  /// For a text to match against the pattern that filled `longCharacters`. Borrows the bytes.
  Characters(std::string_view text, const LongCharacters& longCharacters);

  /// For a text whose bytes are its characters.
  explicit Characters(std::string_view bytes) noexcept : areBytes_(true), bytes_(bytes) {}

  [[nodiscard]] bool areBytes() const noexcept { return areBytes_; }
  [[nodiscard]] std::size_t size() const noexcept {
    return areBytes_ ? bytes_.size() : symbols_.size();
  }

  /// Calls `use` with a span of `Byte` or of `Symbol`.
  template <class Use>
  decltype(auto) visit(Use&& use) const {
    if (!areBytes_) return use(std::span<const Symbol>(symbols_));
    return use(std::span(reinterpret_cast<const Byte*>(bytes_.data()), bytes_.size()));
  }

 private:
  bool areBytes_;
  std::string_view bytes_;
  std::vector<Symbol> symbols_;
};

}  // namespace ombrix::detail
