#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "Examples/HostApp/Terminal/LogLines.hpp"
#include "OmbrixCore/Extensions/Logging/LoggingService.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::optional<std::size_t> last;
  std::string level = "debug";
  bool follow = false, json = false;
};

const std::map<std::string, LogLevel> kLevels = {{"error", LogLevel::error},
                                                 {"warning", LogLevel::warning},
                                                 {"info", LogLevel::info},
                                                 {"debug", LogLevel::debug}};

std::shared_ptr<platform::DDFileLogger> fileLogger() {
  for (const auto& logger : platform::DDLog::allLoggers()) {
    if (auto file = std::dynamic_pointer_cast<platform::DDFileLogger>(logger)) return file;
  }
  return nullptr;
}

// The most bytes read of one file; ours are much smaller.
constexpr std::uintmax_t kMostMegabytes = 32;
constexpr std::uintmax_t kMostBytes = kMostMegabytes << 20;

/// Reads the log's files, the oldest one first, and then the lines that have come since.
class LogReader {
 public:
  /// The whole lines that were not read yet. A log that others have written to, or that is damaged,
  /// is read as far as possible; of a far too large one only the end is read.
  std::string read() {
    platform::DDLog::flushLog();
    std::string lines;
    const auto logger = fileLogger();
    if (!logger) return lines;
    auto files = logger->logFileManager()->sortedLogFileInfos();
    for (auto file = files.rbegin(); file != files.rend(); ++file) lines += readOn(file->filePath);
    return platform::stringFromUTF8Repaired(platform::bytesOf(lines));
  }

 private:
  std::string readOn(const fs::path& path) {
    if (!fs::is_regular_file(path)) return {};
    std::uintmax_t& offset = offsets_[path];
    const bool isFirstTime = offset == 0;
    std::error_code failure;
    const std::uintmax_t size = fs::file_size(path, failure);
    if (failure || size <= offset) return {};
    const bool isCut = size - offset > kMostBytes;
    if (isCut) offset = size - kMostBytes;
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(offset));
    std::string bytes(static_cast<std::size_t>(size - offset), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(file.gcount()));
    // A line that is being written is read once it is complete; the very last one may never be.
    const auto end = bytes.rfind('\n');
    if (!isFirstTime) bytes.resize(end == std::string::npos ? 0 : end + 1);
    offset += bytes.size();
    if (isCut) {
      bytes.erase(0, bytes.find('\n') + 1);
      fmt::print(stderr, "ombrix: only the last {} MB of {} are shown\n", kMostMegabytes,
                 path.string());
    }
    std::erase(bytes, '\0');  // NULs of a hole, as a crash may leave one
    return bytes;
  }

  std::map<fs::path, std::uintmax_t> offsets_;
};

void print(std::string_view lines, const Options& options, std::optional<std::size_t> last) {
  auto entries = logEntries(lines);
  const LogLevel least = kLevels.at(options.level);
  // Lines that no logger has written have no level, and are shown when all levels are.
  std::erase_if(entries, [&](const LogEntry& entry) {
    return entry.level.value_or(LogLevel::debug) > least;
  });
  const std::size_t first = last && entries.size() > *last ? entries.size() - *last : 0;
  for (std::size_t i = first; i < entries.size(); ++i) {
    fmt::print("{}\n", options.json ? lineOf(jsonOf(entries[i])) : entries[i].text);
  }
  std::fflush(stdout);
}

void showLog(const Options& options) {
  LoggingService::shared();
  LogReader log;
  const std::string lines = log.read();
  print(lines, options, options.last);
  if (lines.empty()) {
    const auto logger = fileLogger();
    if (!logger) throw CommandFailure("there is no log");
    fmt::print(stderr, "ombrix: there is no log yet; it would be in {}\n",
               logger->logFileManager()->logsDirectory().string());
  }
  // Lines are appended to files that stay open, and the system reports nothing about those before
  // they are closed. So the files are checked four times a second until nobody reads the output any
  // more.
  pollfd reader{STDOUT_FILENO, 0, 0};
  while (options.follow && ::poll(&reader, 1, 250) == 0) print(log.read(), options, std::nullopt);
}

}  // namespace

void addLogCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("log", "Prints the recent log, the oldest line first");
  command->add_option("-n,--last", options->last, "Only the last messages, so many")
      ->check(wholeNumberBetween(0, kMostToCount));
  command->add_flag("-f,--follow", options->follow, "Go on with what is logged from now on");
  command->add_option("--level", options->level, "Only messages that matter at least as much")
      ->check(CLI::IsMember({"error", "warning", "info", "debug"}))
      ->capture_default_str();
  command->add_flag("--json", options->json, "Print one JSON object a message");
  command->callback([options] { showLog(*options); });
}

}  // namespace ombrix::hostapp
