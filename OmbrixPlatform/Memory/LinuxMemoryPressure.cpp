#include <sys/eventfd.h>

#include <array>
#include <charconv>
#include <string_view>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Memory/Detail/MemoryPressure.hpp"
#include "OmbrixPlatform/Memory/MemoryWarning.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace detail {
namespace {

std::string textAt(int file) {
  std::array<char, 4096> buffer{};
  const auto count = retrying([&] { return ::pread(file, buffer.data(), buffer.size(), 0); });
  return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
}

/// The path of the program's control group: in the unified hierarchy, whose line begins with "0::",
/// or in the hierarchy that contains "memory". Empty if there is none.
std::string groupIn(std::string_view lines, bool isUnified) {
  while (!lines.empty()) {
    const auto end = lines.find('\n');
    const std::string_view line = lines.substr(0, end);
    lines.remove_prefix(end == std::string_view::npos ? lines.size() : end + 1);
    const auto first = line.find(':');
    const auto second = line.find(':', first + 1);
    if (first == std::string_view::npos || second == std::string_view::npos) continue;
    const std::string_view controllers = line.substr(first + 1, second - first - 1);
    const bool fits = isUnified ? line.starts_with("0::") : controllers == "memory";
    if (fits) return std::string(line.substr(second + 1));
  }
  return {};
}

}  // namespace

std::optional<MemoryPressure> MemoryPressure::open(const MemoryPressureFiles& files) {
  if (auto stall = openPressureStall(files.pressureStall)) return stall;
  const Descriptor own = openFile(files.ownControlGroups, O_RDONLY);
  const std::string lines = own ? textAt(own.get()) : "";
  // In a container the path may be the outer one, with the group mounted as the root.
  for (const std::string& group : {groupIn(lines, true), std::string()}) {
    if (auto events = openGroupEvents(files.controlGroupRoot + group)) return events;
  }
  for (const std::string& group : {groupIn(lines, false), std::string()}) {
    if (auto level = openGroupPressureLevel(files.controlGroupRoot + "/memory" + group)) {
      return level;
    }
  }
  return std::nullopt;
}

std::optional<MemoryPressure> MemoryPressure::openPressureStall(const std::string& path) {
  // Triggers when tasks stall for 100 ms within 2 s, the shortest window without privileges.
  constexpr std::string_view kTrigger("some 100000 2000000\0", 20);
  Descriptor file = openFile(path, O_RDWR | O_NONBLOCK);
  if (!file || ::write(file.get(), kTrigger.data(), kTrigger.size()) < 0) return std::nullopt;
  return MemoryPressure(Kind::pressureStall, std::move(file));
}

std::optional<MemoryPressure> MemoryPressure::openGroupEvents(const std::string& folder) {
  Descriptor file = openFile(folder + "/memory.events", O_RDONLY);
  if (!file) return std::nullopt;
  MemoryPressure pressure(Kind::groupEvents, std::move(file));
  pressure.events_ = pressure.takeEvents();
  return pressure;
}

std::optional<MemoryPressure> MemoryPressure::openGroupPressureLevel(const std::string& folder) {
  Descriptor level = openFile(folder + "/memory.pressure_level", O_RDONLY);
  const Descriptor control = openFile(folder + "/cgroup.event_control", O_WRONLY);
  Descriptor events(::eventfd(0, EFD_CLOEXEC));
  if (!level || !control || !events) return std::nullopt;
  const std::string request =
      std::to_string(events.get()) + ' ' + std::to_string(level.get()) + " medium";
  if (::write(control.get(), request.data(), request.size()) < 0) return std::nullopt;
  MemoryPressure pressure(Kind::groupPressureLevel, std::move(events));
  pressure.level_ = std::move(level);
  return pressure;
}

/// How often the group has reached its limits, read from its file of counters.
std::uint64_t MemoryPressure::takeEvents() {
  const std::string text = textAt(watched_.get());
  std::uint64_t sum = 0;
  for (const std::string_view name : {"high ", "max ", "oom "}) {
    const auto at = ("\n" + text).find("\n" + std::string(name));
    if (at == std::string::npos) continue;
    std::uint64_t count = 0;
    std::from_chars(text.data() + at + name.size(), text.data() + text.size(), count);
    sum += count;
  }
  return sum;
}

bool MemoryPressure::wait(int stop) {
  const bool isCounter = kind_ == Kind::groupPressureLevel;
  const short awaited = isCounter ? POLLIN : POLLPRI;
  while (true) {
    std::array<pollfd, 2> polled{pollfd{watched_.get(), awaited, 0}, pollfd{stop, POLLIN, 0}};
    if (retrying([&] { return ::poll(polled.data(), polled.size(), -1); }) < 0) return false;
    if (polled[1].revents != 0) return false;
    const auto seen = polled[0].revents;
    if (isCounter) {
      std::uint64_t count = 0;
      return (seen & POLLIN) != 0 && ::read(watched_.get(), &count, sizeof count) > 0;
    }
    if (kind_ == Kind::pressureStall) return (seen & POLLPRI) != 0;
    // A file of counters signals changes by POLLPRI with POLLERR; only reached limits count.
    if ((seen & POLLPRI) == 0) return false;
    const auto events = takeEvents();
    if (std::exchange(events_, events) < events) return true;
  }
}

}  // namespace detail

namespace {

class SystemMemoryWarningSource final : public MemoryWarningSource {
 public:
  ~SystemMemoryWarningSource() override {
    if (!thread_.joinable()) return;
    constexpr std::uint64_t kOne = 1;
    (void)!::write(stop_.get(), &kOne, sizeof kOne);
    thread_.join();
  }

 protected:
  void startWatching() override {
    auto pressure = detail::MemoryPressure::open();
    stop_ = detail::Descriptor(::eventfd(0, EFD_CLOEXEC));
    if (!pressure || !stop_) return;
    thread_ = std::thread([this, source = *std::move(pressure)]() mutable {
      while (source.wait(stop_.get())) send();
    });
  }

 private:
  detail::Descriptor stop_;
  std::thread thread_;
};

}  // namespace

std::shared_ptr<MemoryWarningSource> makeSystemMemoryWarningSource() {
  return std::make_shared<SystemMemoryWarningSource>();
}

template <>
std::shared_ptr<MemoryWarningSource> makeDefault() {
  return makeSystemMemoryWarningSource();
}

}  // namespace ombrix::platform
