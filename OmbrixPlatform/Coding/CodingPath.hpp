#pragma once

#include <any>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Values/RawValue.hpp"

namespace ombrix::platform {

/// One step on the way to a value: a key, or a place in an array counted from 0.
struct CodingKey {
  std::string stringValue;
  std::optional<std::size_t> intValue;

  friend bool operator==(const CodingKey&, const CodingKey&) = default;
};

/// The way from the top of a document to a value; empty at the top.
using CodingPath = std::vector<CodingKey>;

/// A path as messages show it, such as "runs[2].name".
std::string describe(const CodingPath& path);

/// What a caller hands through a coder to the types it codes.
using CodingUserInfo = std::map<std::string, std::any, std::less<>>;

/// What may serve as a key: text, or an enumerator whose raw value is text.
template <class Key>
concept CodingKeyType = std::convertible_to<const Key&, std::string_view> ||
                        requires(const Key& key) { std::string_view{rawValue(key)}; };

template <CodingKeyType Key>
constexpr std::string_view codingKeyText(const Key& key) {
  if constexpr (std::convertible_to<const Key&, std::string_view>) {
    return key;
  } else {
    return rawValue(key);
  }
}

/// The way to the value being coded, kept as a chain of steps on the stack: setting one up costs a
/// few stores, and only an error turns the chain into a `CodingPath`.
class CodingPathChain {
 public:
  class Step {
   public:
    explicit Step(CodingPathChain& chain) noexcept : chain_(chain), outer_(chain.last_) {
      chain.last_ = this;
    }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;
    ~Step() { chain_.last_ = outer_; }

    /// The text must live as long as this step.
    void setKey(std::string_view key) noexcept { key_ = key; }
    void setIndex(std::size_t index) noexcept {
      key_ = {};
      index_ = index;
    }

   private:
    friend class CodingPathChain;
    CodingPathChain& chain_;
    Step* outer_;
    static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
    std::string_view key_;  // null for a place in an array
    std::size_t index_ = kNowhere;
  };

  CodingPathChain() = default;
  explicit CodingPathChain(CodingPath base) : base_(std::move(base)) {}

  [[nodiscard]] CodingPath path() const;

 private:
  CodingPath base_;
  Step* last_ = nullptr;
};

}  // namespace ombrix::platform
