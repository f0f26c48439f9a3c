#pragma once

#include <string>
#include <vector>

#include "OmbrixPlatform/Coding/Codable.hpp"

namespace ombrix {

/// What the tests store.
struct StoredDay {
  std::string name;
  int runs = 0;
  std::vector<double> speeds;

  static constexpr auto kCodingFields = platform::codingFields(
      platform::field("name", &StoredDay::name), platform::field("runs", &StoredDay::runs),
      platform::field("speeds", &StoredDay::speeds));

  [[nodiscard]] const std::string& id() const { return name; }
  friend bool operator==(const StoredDay&, const StoredDay&) = default;
};

/// What no coder takes.
struct Unencodable {
  void encode(platform::Encoder&) const {
    throw platform::EncodingError::invalidValue("it is not to be stored", {});
  }
  static Unencodable decode(platform::Decoder&) { return {}; }
};

}  // namespace ombrix
