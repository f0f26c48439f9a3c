#pragma once

#include <functional>
#include <new>
#include <string>
#include <utility>
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

/// What cannot be held in memory.
struct Unholdable {
  void encode(platform::Encoder& encoder) const { encoder.singleValueContainer()->encode(1); }
  static Unholdable decode(platform::Decoder&) { throw std::bad_alloc(); }
  friend bool operator==(const Unholdable&, const Unholdable&) = default;
};

/// A number of which there may be no memory for copies.
struct Uncopyable {
  int number = 0;
  static inline bool hasNoMemory = false;

  Uncopyable() = default;
  Uncopyable(Uncopyable&&) = default;
  Uncopyable& operator=(Uncopyable&&) = default;
  ~Uncopyable() = default;
  Uncopyable(const Uncopyable& other) : number(other.number) {
    if (hasNoMemory) throw std::bad_alloc();
  }
  Uncopyable& operator=(const Uncopyable& other) { return *this = Uncopyable(other); }

  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("number", &Uncopyable::number));
};

/// A number during whose coding something happens, once.
struct Interrupted {
  int number = 0;

  static inline std::function<void()> whileDecoding, whileEncoding;

  void encode(platform::Encoder& encoder) const {
    if (auto happens = std::exchange(whileEncoding, nullptr)) happens();
    encoder.singleValueContainer()->encode(number);
  }
  static Interrupted decode(platform::Decoder& decoder) {
    const Interrupted value{decoder.singleValueContainer()->decode<int>()};
    if (auto happens = std::exchange(whileDecoding, nullptr)) happens();
    return value;
  }
  friend bool operator==(const Interrupted&, const Interrupted&) = default;
};

}  // namespace ombrix
