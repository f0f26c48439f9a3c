#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// One log file of an application.
struct DDLogFileInfo {
  std::filesystem::path filePath;
  Date creationDate{};         ///< From its name.
  Date modificationDate{};     ///< From the file system.
  std::uint64_t fileSize = 0;  ///< Bytes.

  [[nodiscard]] std::string fileName() const { return filePath.filename().string(); }
};

/// Names, lists and deletes the log files of one application in one folder.
///
/// A file is called "<application>-2024-05-01T10-20-30.123Z.log" by the UTC time of its creation;
/// files with other names are never touched. Several processes may use the folder at once. All
/// operations may be called from any thread; none of them logs.
class DDLogFileManager {
 public:
  static constexpr std::size_t kDefaultMaximumNumberOfLogFiles = 5;

  /// Uses the program's name, and "<program>/Logs" in the user's caches folder.
  DDLogFileManager();

  /// \param logsDirectory the folder; created with the first file.
  /// \param applicationName the first part of the file names.
  DDLogFileManager(std::filesystem::path logsDirectory, std::string_view applicationName);

  [[nodiscard]] const std::filesystem::path& logsDirectory() const { return logsDirectory_; }

  /// How many files are kept when one is created, the new one included; 0 keeps all.
  [[nodiscard]] std::size_t maximumNumberOfLogFiles() const { return maximumNumberOfLogFiles_; }
  void setMaximumNumberOfLogFiles(std::size_t number) { maximumNumberOfLogFiles_ = number; }

  /// The log files, newest first; empty when there are none or the folder cannot be read.
  [[nodiscard]] std::vector<DDLogFileInfo> sortedLogFileInfos() const;

  /// An open file to append to; the caller closes the descriptor.
  struct OpenFile {
    int descriptor = -1;
    int error = 0;  ///< The `errno` when there is no descriptor.
    Date creationDate{};
  };

  /// Reopens the newest file; no descriptor when there is none or it cannot be written to.
  [[nodiscard]] OpenFile openNewestLogFile() const;

  /// Creates a file that sorts as the newest, and the folder if it is missing; then deletes the
  /// oldest files beyond the maximum.
  [[nodiscard]] OpenFile createNewLogFile(Date now);

 private:
  [[nodiscard]] std::optional<Date> creationDateFromName(std::string_view name) const;
  [[nodiscard]] std::string nameForCreationDate(Date date) const;
  void deleteExcessLogFiles(std::string_view nameToKeep) const;

  const std::filesystem::path logsDirectory_;
  const std::string namePrefix_;
  std::atomic<std::size_t> maximumNumberOfLogFiles_{kDefaultMaximumNumberOfLogFiles};
};

}  // namespace ombrix::platform
