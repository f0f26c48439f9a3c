#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// What the bodies that a session gathers may take up together. Any thread.
class BodyBudget {
 public:
  explicit BodyBudget(std::size_t bytes) noexcept : left_(bytes) {}

  [[nodiscard]] bool take(std::size_t bytes) noexcept {
    std::size_t left = left_.load(std::memory_order_relaxed);
    do {
      if (bytes > left) return false;
    } while (!left_.compare_exchange_weak(left, left - bytes, std::memory_order_relaxed));
    return true;
  }
  void giveBack(std::size_t bytes) noexcept { left_.fetch_add(bytes, std::memory_order_relaxed); }

 private:
  std::atomic<std::size_t> left_;
};

/// A body that is gathered in memory. The room that it takes up counts in its session's budget for
/// as long as this object lives.
class GatheredBody {
 public:
  enum class Result : std::uint8_t { kept, tooLong, tooMuchTogether };

  GatheredBody() = default;
  GatheredBody(std::shared_ptr<BodyBudget> budget, std::size_t maximumBytes) noexcept
      : budget_(std::move(budget)), maximumBytes_(maximumBytes) {}
  GatheredBody(GatheredBody&& other) noexcept
      : budget_(std::move(other.budget_)),
        maximumBytes_(other.maximumBytes_),
        reserved_(std::exchange(other.reserved_, 0)),
        bytes_(std::move(other.bytes_)) {}
  GatheredBody& operator=(GatheredBody&& other) noexcept {
    std::swap(budget_, other.budget_);
    std::swap(maximumBytes_, other.maximumBytes_);
    std::swap(reserved_, other.reserved_);
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  ~GatheredBody() {
    if (reserved_ > 0) budget_->giveBack(reserved_);
  }

  /// Makes room beforehand, as far as there is any.
  void expect(std::size_t bytes) { (void)makeRoom(std::min(bytes, maximumBytes_)); }

  /// Adds bytes unless they pass a limit.
  Result append(DataView piece) {
    if (piece.size() > maximumBytes_ - bytes_.size()) return Result::tooLong;
    const std::size_t needed = bytes_.size() + piece.size();
    if (needed > reserved_) {
      const std::size_t wanted = std::min(std::max(needed, 2 * reserved_), maximumBytes_);
      // Less than a quarter more each time would copy the body over and over.
      const std::size_t least = std::min(needed + needed / 4, maximumBytes_);
      if (!makeRoom(wanted) && !makeRoom(least)) return Result::tooMuchTogether;
    }
    bytes_.insert(bytes_.end(), piece.begin(), piece.end());
    return Result::kept;
  }

  [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
  [[nodiscard]] const Data& bytes() const noexcept { return bytes_; }

  /// The bytes, which go on counting until this object is gone.
  Data takeBytes() noexcept { return std::exchange(bytes_, {}); }

  /// Gives them back.
  void putBack(Data bytes) noexcept { bytes_ = std::move(bytes); }

 private:
  [[nodiscard]] bool makeRoom(std::size_t bytes) {
    if (bytes <= reserved_) return true;
    if (!budget_->take(bytes - reserved_)) return false;
    reserved_ = bytes;
    bytes_.reserve(bytes);
    return true;
  }

  std::shared_ptr<BodyBudget> budget_;
  std::size_t maximumBytes_ = 0;
  std::size_t reserved_ = 0;
  Data bytes_;
};

}  // namespace ombrix::platform::detail
