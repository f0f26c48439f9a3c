#include "OmbrixCore/Extensions/Search/HashSeed.hpp"

#include <random>

namespace ombrix::detail {

const HashSeed& HashSeed::ofProcess() {
  static const HashSeed seed = [] {
    std::random_device random;
    const auto word = [&random] { return std::uint64_t{random()} << 32 | random(); };
    const std::uint64_t key = word();
    return HashSeed{key, word() | 1};
  }();
  return seed;
}

}  // namespace ombrix::detail
