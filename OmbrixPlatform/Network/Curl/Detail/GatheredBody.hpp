#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// The memory that a session's gathered bodies may take together. Any thread.
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

/// A body that is gathered in memory, in blocks that stay where they are: a growing vector would be
/// copied over and over, and would leave a hole in the heap each time. Full blocks are pages of
/// their own, which go back to the system as soon as they are copied: joining them takes the memory
/// of one body and one block. The memory counts in the session's budget as long as this object
/// lives.
class GatheredBody {
 public:
  enum class Result : std::uint8_t { kept, tooLong, tooMuchTogether };

  GatheredBody() = default;
  GatheredBody(std::shared_ptr<BodyBudget> budget, std::size_t maximumBytes) noexcept
      : budget_(std::move(budget)), maximumBytes_(maximumBytes) {}
  GatheredBody(GatheredBody&& other) noexcept { swap(other); }
  GatheredBody& operator=(GatheredBody&& other) noexcept {
    swap(other);
    return *this;
  }
  ~GatheredBody() {
    if (reserved_ > 0) budget_->giveBack(reserved_);
  }

  /// Reserves memory for a body of this many bytes: one block at most, and no more than the budget
  /// allows.
  void expect(std::size_t bytes) {
    if (bytes > 0 && last_.capacity() == 0) (void)addBlock(bytes);
  }

  /// Adds bytes unless they would pass a limit; the result says which one.
  Result append(DataView piece) {
    if (piece.size() > maximumBytes_ - size_) return Result::tooLong;
    while (!piece.empty()) {
      // Each block is as long as all before it together, up to a limit; where the budget is short,
      // the smallest size is used.
      if (last_.size() == last_.capacity() && !addBlock(std::max(piece.size(), size_)) &&
          !addBlock(piece.size())) {
        return Result::tooMuchTogether;
      }
      const DataView fitting = piece.first(std::min(piece.size(), last_.capacity() - last_.size()));
      last_.insert(last_.end(), fitting.begin(), fitting.end());
      size_ += fitting.size();
      piece = piece.subspan(fitting.size());
    }
    return Result::kept;
  }

  [[nodiscard]] std::size_t size() const noexcept { return size_; }

  /// The bytes in one piece; they count in the budget until this object is gone.
  [[nodiscard]] Data takeBytes() {
    const std::size_t size = std::exchange(size_, 0);
    if (full_.empty()) return std::exchange(last_, {});
    Data whole;
    whole.reserve(size);
    for (Pages& block : full_) {
      whole.insert(whole.end(), block.bytes().begin(), block.bytes().end());
      block = Pages();  // so that not all is there twice
    }
    full_.clear();
    whole.insert(whole.end(), last_.begin(), last_.end());
    last_ = Data();
    return whole;
  }

  /// Gives them back.
  void putBack(Data bytes) noexcept {
    size_ = bytes.size();
    last_ = std::move(bytes);
  }

 private:
  static constexpr std::size_t kBlockBytes = std::size_t{1} << 20;

  /// Bytes in pages of their own: the heap would hold on to freed blocks.
  class Pages {
   public:
    static Pages with(DataView bytes) {
      Pages pages;
      void* const place =
          ::mmap(nullptr, bytes.size(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
      if (place == MAP_FAILED) throw std::bad_alloc();
      std::memcpy(place, bytes.data(), bytes.size());
      pages.bytes_ = {static_cast<const std::byte*>(place), bytes.size()};
      return pages;
    }
    Pages() = default;
    Pages(Pages&& other) noexcept : bytes_(std::exchange(other.bytes_, {})) {}
    Pages& operator=(Pages&& other) noexcept {
      std::swap(bytes_, other.bytes_);
      return *this;
    }
    ~Pages() {
      if (!bytes_.empty()) ::munmap(const_cast<std::byte*>(bytes_.data()), bytes_.size());
    }
    [[nodiscard]] DataView bytes() const noexcept { return bytes_; }

   private:
    DataView bytes_;
  };

  void swap(GatheredBody& other) noexcept {
    std::swap(budget_, other.budget_);
    std::swap(maximumBytes_, other.maximumBytes_);
    std::swap(reserved_, other.reserved_);
    std::swap(size_, other.size_);
    std::swap(full_, other.full_);
    std::swap(last_, other.last_);
  }

  [[nodiscard]] bool addBlock(std::size_t wanted) {
    const std::size_t bytes = std::min({wanted, kBlockBytes, maximumBytes_ - size_});
    if (!budget_->take(bytes)) return false;
    reserved_ += bytes;
    if (!last_.empty()) {
      full_.push_back(Pages::with(last_));
      last_ = Data();  // what it had room for may be more than is reserved now
    }
    last_.reserve(bytes);
    return true;
  }

  std::shared_ptr<BodyBudget> budget_;
  std::size_t maximumBytes_ = 0;
  std::size_t reserved_ = 0;
  std::size_t size_ = 0;
  std::vector<Pages> full_;  // blocks, in order
  Data last_;                // the one that is being filled
};

}  // namespace ombrix::platform::detail
