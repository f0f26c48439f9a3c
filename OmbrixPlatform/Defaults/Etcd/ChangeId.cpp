#include "OmbrixPlatform/Defaults/Etcd/Detail/ChangeId.hpp"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <optional>

#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix::platform::detail {
namespace {

// An id is "run of the machine/nanoseconds/UUID".
struct Moment {
  std::string_view run;
  std::int64_t nanoseconds = 0;
};

std::optional<Moment> momentOf(std::string_view id) {
  const auto first = id.find('/');
  if (first == std::string_view::npos) return std::nullopt;
  const auto second = id.find('/', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  Moment moment{id.substr(0, first)};
  const char* const end = id.data() + second;
  const auto read = std::from_chars(id.data() + first + 1, end, moment.nanoseconds);
  return read.ec == std::errc() && read.ptr == end ? std::optional(moment) : std::nullopt;
}

/// What the kernel calls the time since the machine started. Where it cannot be asked, each process
/// is a run of its own.
const std::string& thisRun() {
  static const std::string run = [] {
    std::string text;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> text;
    return text.empty() ? UUID::random().uuidString() : text;
  }();
  return run;
}

std::int64_t nextMoment() {
  static constinit std::atomic<std::int64_t> last{0};
  const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
  const std::int64_t now = std::chrono::nanoseconds(sinceStart).count();
  std::int64_t before = last.load();
  while (!last.compare_exchange_weak(before, std::max(now, before + 1))) {
  }
  return std::max(now, before + 1);
}

}  // namespace

std::string makeChangeId() {
  return thisRun() + "/" + std::to_string(nextMoment()) + "/" + UUID::random().uuidString();
}

bool isTimed(std::string_view id) { return momentOf(id).has_value(); }

bool isLater(std::string_view id, std::string_view other) {
  const auto one = momentOf(id), two = momentOf(other);
  if (!one || !two) return false;
  if (one->run != two->run) return one->run == thisRun();
  if (one->nanoseconds != two->nanoseconds) return one->nanoseconds > two->nanoseconds;
  return id > other;
}

}  // namespace ombrix::platform::detail
