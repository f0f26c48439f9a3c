#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// Immutable bytes that copies share: a body that passes through many hands is in memory once. A
/// value; any thread.
class SharedData {
 public:
  /// No bytes.
  SharedData() = default;

  /// Takes over the bytes. Implicit, so that `Data` can be passed where shared bytes are expected.
  SharedData(Data bytes)
      : bytes_(bytes.empty() ? nullptr : std::make_shared<const Data>(std::move(bytes))) {}

  /// Shares bytes that already have an owner; null for none.
  explicit SharedData(std::shared_ptr<const Data> bytes) noexcept : bytes_(std::move(bytes)) {}

  /// The bytes, to read; making `Data` of them copies them. Valid as long as any of the sharing
  /// objects exists.
  [[nodiscard]] const Data& bytes() const noexcept {
    static const Data& nothing = *new Data;
    return bytes_ ? *bytes_ : nothing;
  }
  operator const Data&() const noexcept { return bytes(); }

  [[nodiscard]] const std::byte* data() const noexcept { return bytes().data(); }
  [[nodiscard]] std::size_t size() const noexcept { return bytes().size(); }
  [[nodiscard]] bool empty() const noexcept { return bytes().empty(); }
  [[nodiscard]] const std::byte* begin() const noexcept { return data(); }
  [[nodiscard]] const std::byte* end() const noexcept { return data() + size(); }

  friend bool operator==(const SharedData& a, const SharedData& b) {
    return a.bytes_ == b.bytes_ || a.bytes() == b.bytes();
  }

 private:
  std::shared_ptr<const Data> bytes_;  // null: none
};

}  // namespace ombrix::platform
