#include "OmbrixPlatform/Values/HashSeed.hpp"

#include <cstddef>
#include <cstring>
#include <random>

namespace ombrix::platform {
namespace {

template <class Word>
std::uint64_t load(const char* at) noexcept {
  Word word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

}  // namespace

const HashSeed& HashSeed::ofProcess() {
  static const HashSeed seed = [] {
    std::random_device random;
    const auto word = [&random] { return std::uint64_t{random()} << 32 | random(); };
    const std::uint64_t key = word();
    return HashSeed{key, word() | 1};
  }();
  return seed;
}

std::uint64_t HashSeed::ofText(std::string_view text) const noexcept {
  const char* at = text.data();
  std::size_t left = text.size();
  std::uint64_t state = key;
  for (; left > 16; at += 16, left -= 16) {
    state = folded(load<std::uint64_t>(at) ^ multiplier, load<std::uint64_t>(at + 8) ^ state);
  }
  // The last 16 bytes or fewer: words that may overlap and together hold every byte.
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  if (left >= 8) {
    first = load<std::uint64_t>(at);
    second = load<std::uint64_t>(at + left - 8);
  } else if (left >= 4) {
    first = load<std::uint32_t>(at);
    second = load<std::uint32_t>(at + left - 4);
  } else if (left > 0) {
    first = load<std::uint8_t>(at) << 16 | load<std::uint8_t>(at + left / 2) << 8 |
            load<std::uint8_t>(at + left - 1);
  }
  state = folded(first ^ multiplier, second ^ state);
  return folded(state ^ key, text.size() ^ multiplier);
}

}  // namespace ombrix::platform
