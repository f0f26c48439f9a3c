#include "OmbrixPlatform/Logging/DDLogFileManager.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>

#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using Stamp = std::chrono::sys_time<milliseconds>;

constexpr std::string_view kEnding = ".log";
constexpr std::string_view kStampPattern = "0000-00-00T00-00-00.000Z";  // 0 stands for a digit.
constexpr Stamp kFirstStamp{};
constexpr Stamp kLastStamp = std::chrono::sys_days{std::chrono::year{9999} / 12 / 31};

std::string sanitised(std::string_view applicationName) {
  std::string name(applicationName.empty() ? "log" : applicationName);
  std::ranges::replace_if(name, [](char c) { return c == '/' || c == '\0'; }, '-');
  return name;
}

Stamp stampFor(Date date) {
  const double count = std::round(timeIntervalSince1970(date) * 1000);
  const auto first = static_cast<double>(kFirstStamp.time_since_epoch().count());
  const auto last = static_cast<double>(kLastStamp.time_since_epoch().count());
  return Stamp{milliseconds{static_cast<std::int64_t>(std::clamp(count, first, last))}};
}

Date dateFor(Stamp stamp) {
  return dateSince1970(static_cast<double>(stamp.time_since_epoch().count()) / 1000);
}

Date modificationDate(const struct stat& status) {
  return dateSince1970(static_cast<double>(status.st_mtim.tv_sec) +
                       static_cast<double>(status.st_mtim.tv_nsec) * 1e-9);
}

std::string textOf(Stamp stamp) {
  const auto day = std::chrono::floor<std::chrono::days>(stamp);
  const std::chrono::year_month_day date{day};
  const std::chrono::hh_mm_ss time{stamp - day};
  return fmt::format("{:04}-{:02}-{:02}T{:02}-{:02}-{:02}.{:03}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count(),
                     time.subseconds().count());
}

std::optional<Stamp> stampFrom(std::string_view text) {
  if (text.size() != kStampPattern.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool matches =
        kStampPattern[i] == '0' ? text[i] >= '0' && text[i] <= '9' : text[i] == kStampPattern[i];
    if (!matches) return std::nullopt;
  }
  const auto number = [&](std::size_t from, std::size_t digits) {
    unsigned value = 0;
    std::from_chars(text.data() + from, text.data() + from + digits, value);
    return value;
  };
  const std::chrono::year_month_day date{std::chrono::year{static_cast<int>(number(0, 4))},
                                         std::chrono::month{number(5, 2)},
                                         std::chrono::day{number(8, 2)}};
  if (!date.ok()) return std::nullopt;
  return std::chrono::sys_days{date} + std::chrono::hours{number(11, 2)} +
         std::chrono::minutes{number(14, 2)} + std::chrono::seconds{number(17, 2)} +
         milliseconds{number(20, 3)};
}

}  // namespace

DDLogFileManager::DDLogFileManager()
    : DDLogFileManager(fs::path(services().directories.get().caches().path()) /
                           sanitised(program_invocation_short_name) / "Logs",
                       program_invocation_short_name) {}

DDLogFileManager::DDLogFileManager(fs::path logsDirectory, std::string_view applicationName)
    : logsDirectory_(std::move(logsDirectory)), namePrefix_(sanitised(applicationName) + "-") {}

std::string DDLogFileManager::nameForCreationDate(Date date) const {
  return fmt::format("{}{}{}", namePrefix_, textOf(stampFor(date)), kEnding);
}

std::optional<Date> DDLogFileManager::creationDateFromName(std::string_view name) const {
  if (!name.starts_with(namePrefix_) || !name.ends_with(kEnding)) return std::nullopt;
  name.remove_prefix(namePrefix_.size());
  name.remove_suffix(std::min(name.size(), kEnding.size()));
  const auto stamp = stampFrom(name);
  if (!stamp) return std::nullopt;
  return dateFor(*stamp);
}

std::vector<DDLogFileInfo> DDLogFileManager::sortedLogFileInfos() const {
  std::vector<DDLogFileInfo> infos;
  std::error_code error;
  for (fs::directory_iterator entry(logsDirectory_, error), end; !error && entry != end;
       entry.increment(error)) {
    const auto creationDate = creationDateFromName(entry->path().filename().native());
    struct stat status{};
    if (!creationDate || ::stat(entry->path().c_str(), &status) != 0) continue;
    // Skips pipes: opening one would block.
    if (!S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode)) continue;
    infos.push_back({.filePath = entry->path(),
                     .creationDate = *creationDate,
                     .modificationDate = modificationDate(status),
                     .fileSize = static_cast<std::uint64_t>(status.st_size)});
  }
  std::ranges::sort(infos, std::ranges::greater{}, &DDLogFileInfo::filePath);
  return infos;
}

DDLogFileManager::OpenFile DDLogFileManager::openNewestLogFile() const {
  const auto infos = sortedLogFileInfos();
  if (infos.empty()) return {.error = ENOENT};
  OpenFile file{.creationDate = infos.front().creationDate};
  file.descriptor =
      ::open(infos.front().filePath.c_str(), O_RDWR | O_APPEND | O_CLOEXEC | O_NONBLOCK);
  if (file.descriptor < 0) file.error = errno;
  return file;
}

DDLogFileManager::OpenFile DDLogFileManager::createNewLogFile(Date now) {
  // If the folder cannot be created, `open` fails with the reason.
  (void)FileManager::defaultManager().createDirectory(URL::fileURL(logsDirectory_.string(), true),
                                                      true);

  // A new file must not become the oldest one after the clock was set back.
  Stamp stamp = stampFor(now);
  if (const auto infos = sortedLogFileInfos(); !infos.empty()) {
    stamp = std::max(stamp, stampFor(infos.front().creationDate) + milliseconds{1});
  }

  constexpr int kAttempts = 100;  // Other processes may take the same name.
  OpenFile file;
  for (int attempt = 0; attempt < kAttempts; ++attempt, stamp += milliseconds{1}) {
    file.creationDate = dateFor(stamp);
    const std::string name = nameForCreationDate(file.creationDate);
    file.descriptor =
        detail::makeFile((logsDirectory_ / name).string(), O_RDWR | O_APPEND).release();
    if (file.descriptor >= 0) {
      deleteExcessLogFiles(name);
      return file;
    }
    file.error = errno;
    if (file.error != EEXIST) break;
  }
  return file;
}

void DDLogFileManager::deleteExcessLogFiles(std::string_view nameToKeep) const {
  const std::size_t maximum = maximumNumberOfLogFiles_;
  if (maximum == 0) return;
  const auto infos = sortedLogFileInfos();
  for (std::size_t i = maximum; i < infos.size(); ++i) {
    if (infos[i].fileName() != nameToKeep) ::unlink(infos[i].filePath.c_str());
  }
}

}  // namespace ombrix::platform
