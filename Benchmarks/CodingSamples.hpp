#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"

namespace ombrix::bench {

/// Eight fields of the kinds that the product stores.
struct Fix {
  std::int64_t id = 0;
  std::string name;
  double latitude = 0;
  double longitude = 0;
  double altitude = 0;
  double speed = 0;
  double course = 0;
  bool accurate = false;

  friend bool operator==(const Fix&, const Fix&) = default;

  static constexpr auto kCodingFields = platform::codingFields(
      platform::field("id", &Fix::id), platform::field("name", &Fix::name),
      platform::field("latitude", &Fix::latitude), platform::field("longitude", &Fix::longitude),
      platform::field("altitude", &Fix::altitude), platform::field("speed", &Fix::speed),
      platform::field("course", &Fix::course), platform::field("accurate", &Fix::accurate));
};

inline constexpr std::size_t kFixes = 10'000;
inline constexpr std::size_t kPositions = 100'000;

inline double decimal(std::mt19937_64& random, double range, double step) {
  const auto steps = static_cast<std::uint64_t>(range / step);
  return static_cast<double>(random() % steps) / (1 / step);
}

inline const std::vector<Fix>& fixes() {
  static const std::vector<Fix> made = [] {
    std::mt19937_64 random(5);
    std::vector<Fix> list;
    for (std::size_t i = 0; i < kFixes; ++i) {
      list.push_back({static_cast<std::int64_t>(random() % 1'000'000'000),
                      "Run number " + std::to_string(i), decimal(random, 90, 1e-6),
                      decimal(random, 180, 1e-6), decimal(random, 4000, 1e-2),
                      decimal(random, 40, 1e-3), decimal(random, 360, 1e-1), random() % 2 == 0});
    }
    return list;
  }();
  return made;
}

using Positions = std::vector<std::array<double, 2>>;

inline const Positions& positions() {
  static const Positions made = [] {
    std::mt19937_64 random(6);
    Positions list;
    for (std::size_t i = 0; i < kPositions; ++i) {
      list.push_back({decimal(random, 180, 1e-6), decimal(random, 90, 1e-6)});
    }
    return list;
  }();
  return made;
}

inline void require(bool agreed, const char* what) {
  if (agreed) return;
  std::fprintf(stderr, "the contenders disagree: %s\n", what);
  std::abort();
}

}  // namespace ombrix::bench
