#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// The kernel files that report memory pressure; tests pass their own.
struct MemoryPressureFiles {
  std::string pressureStall = "/proc/pressure/memory";
  std::string ownControlGroups = "/proc/self/cgroup";
  std::string controlGroupRoot = "/sys/fs/cgroup";
};

/// One open source of memory pressure.
class MemoryPressure {
 public:
  enum class Kind : std::uint8_t { pressureStall, groupEvents, groupPressureLevel };

  /// Opens the first available kind, in the order above.
  static std::optional<MemoryPressure> open(const MemoryPressureFiles& files = {});

  [[nodiscard]] Kind kind() const noexcept { return kind_; }

  /// Blocks until memory runs short: true; false when `stop` becomes readable or the source fails.
  bool wait(int stop);

 private:
  MemoryPressure(Kind kind, Descriptor watched) : kind_(kind), watched_(std::move(watched)) {}

  static std::optional<MemoryPressure> openPressureStall(const std::string& path);
  static std::optional<MemoryPressure> openGroupEvents(const std::string& folder);
  static std::optional<MemoryPressure> openGroupPressureLevel(const std::string& folder);
  std::uint64_t takeEvents();

  Kind kind_;
  Descriptor watched_;
  Descriptor level_;          // for a pressure level: must stay open
  std::uint64_t events_ = 0;  // counted so far
};

}  // namespace ombrix::platform::detail
