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
  /// Whether the key comes from a document, as the keys of a dictionary do, and not from the
  /// program: messages do not show it.
  bool isContent = false;

  friend bool operator==(const CodingKey& a, const CodingKey& b) {
    return a.stringValue == b.stringValue && a.intValue == b.intValue;
  }
};

/// The way from the top of a document to a value; empty at the top.
using CodingPath = std::vector<CodingKey>;

/// A path as messages show it, such as "runs[2].name" or "scores.(a key of 5 bytes)".
std::string describe(const CodingPath& path);

/// Values that a caller passes through a coder to the types that it codes.
using CodingUserInfo = std::map<std::string, std::any, std::less<>>;

/// A type that may serve as a key: text, or an enumeration whose raw values are texts.
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

    /// The texts must live as long as this step.
    void setKey(std::string_view key) noexcept { key_ = key; }
    /// Sets a key that messages do not show. A step with entries has no other keys.
    void setEntry(std::string_view key) noexcept {
      key_ = key;
      isContent_ = true;
    }
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
    bool isContent_ = false;
  };

  CodingPathChain() = default;
  explicit CodingPathChain(CodingPath base) : base_(std::move(base)) {}

  [[nodiscard]] CodingPath path() const;
  /// Whether the last step is a key that comes from the document.
  [[nodiscard]] bool endsInContent() const noexcept {
    return last_ != nullptr && last_->isContent_;
  }

 private:
  CodingPath base_;
  Step* last_ = nullptr;
};

}  // namespace ombrix::platform
