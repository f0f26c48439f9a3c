#include "OmbrixPlatform/Values/UUID.hpp"

#include <pthread.h>
#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <span>

#include "OmbrixPlatform/Values/ASCII.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform {
namespace {

constexpr std::size_t kTextSize = 36;

constexpr bool isHyphenAt(std::size_t place) noexcept {
  return place == 8 || place == 13 || place == 18 || place == 23;
}

/// Random bytes of the system, fetched for several identifiers at a time: the call costs more than
/// all else. One for each thread.
class RandomBytes {
 public:
  void take(std::span<std::uint8_t> bytes) {
    const unsigned now = forks();
    if (left_ < bytes.size() || forks_ != now) fill(now);
    left_ -= bytes.size();
    std::copy_n(kept_.begin() + static_cast<std::ptrdiff_t>(left_), bytes.size(), bytes.begin());
  }

 private:
  /// How many forks lie before this process: a child must not use what its parent has kept.
  static unsigned forks() noexcept {
    static constinit std::atomic<unsigned> count{0};
    [[maybe_unused]] static const int isWatched =
        ::pthread_atfork(nullptr, nullptr, [] { count.fetch_add(1, std::memory_order_relaxed); });
    return count.load(std::memory_order_relaxed);
  }

  void fill(unsigned now) {
    // Requests of up to 256 bytes are never cut short.
    while (getrandom(kept_.data(), kept_.size(), 0) != static_cast<ssize_t>(kept_.size())) {
      if (errno != EINTR) fatalError("The system has no source of random numbers.");
    }
    left_ = kept_.size();
    forks_ = now;
  }

  std::array<std::uint8_t, 256> kept_{};
  std::size_t left_ = 0;
  unsigned forks_ = 0;
};

}  // namespace

UUID UUID::random() {
  static thread_local RandomBytes random;
  std::array<std::uint8_t, 16> bytes{};
  random.take(bytes);
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // the variant of RFC 4122
  return UUID(bytes);
}

std::optional<UUID> UUID::parse(std::string_view text) noexcept {
  if (text.size() != kTextSize) return std::nullopt;
  std::array<std::uint8_t, 16> bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextSize; ++i) {
    if (isHyphenAt(i)) {
      if (text[i] != '-') return std::nullopt;
      continue;
    }
    const int value = hexValue(text[i]);
    if (value < 0) return std::nullopt;
    auto& byte = bytes[digits++ / 2];
    byte = static_cast<std::uint8_t>(byte << 4 | value);
  }
  return UUID(bytes);
}

std::string UUID::uuidString() const {
  std::string text(kTextSize, '-');
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kTextSize; ++i) {
    if (isHyphenAt(i)) continue;
    const std::uint8_t byte = bytes_[digits / 2];
    text[i] = kHexDigits[digits++ % 2 == 0 ? byte >> 4 : byte & 0x0F];
  }
  return text;
}

}  // namespace ombrix::platform
