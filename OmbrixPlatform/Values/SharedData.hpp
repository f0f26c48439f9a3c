#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform {

/// Bytes that never change, which copies share: a body on its way from hand to hand is in memory
/// once. A value; any thread.
class SharedData {
 public:
  /// No bytes.
  SharedData() = default;

  /// Takes the bytes over. Implicit: wherever shared bytes are wanted, bytes will do.
  SharedData(Data bytes)
      : bytes_(bytes.empty() ? nullptr : std::make_shared<const Data>(std::move(bytes))) {}

  /// Shares bytes that others hold already; null for none.
  explicit SharedData(std::shared_ptr<const Data> bytes) noexcept : bytes_(std::move(bytes)) {}

  /// The bytes, to read; who makes `Data` of them gets a copy of their own. Valid as long as one of
  /// the sharing objects is.
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
