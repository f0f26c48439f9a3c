#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"

namespace ombrix::platform {

inline constexpr std::string_view kApplication = "skier";

inline DDLogMessage messageAt(Date timestamp, std::string_view text,
                              DDLogFlag flag = DDLogFlag::info) {
  return {.message = text, .flag = flag, .timestamp = timestamp};
}

inline std::shared_ptr<DDFileLogger> fileLoggerIn(const std::filesystem::path& folder) {
  return std::make_shared<DDFileLogger>(std::make_shared<DDLogFileManager>(folder, kApplication));
}

inline std::string contentsOf(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The contents of a logger's files, newest first.
inline std::vector<std::string> contentsOfFiles(const DDFileLogger& logger) {
  std::vector<std::string> contents;
  for (const auto& info : logger.logFileManager()->sortedLogFileInfos()) {
    contents.push_back(contentsOf(info.filePath));
  }
  return contents;
}

/// Waits for something that another thread does soon; false after ten seconds.
template <class Condition>
bool becomesTrue(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds{10};
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

/// Keeps the texts it gets.
class TextLogger final : public DDLogger {
 public:
  void log(const DDLogMessage& message) override {
    const std::lock_guard lock(mutex_);
    texts_.emplace_back(message.message);
  }
  std::vector<std::string> texts() const {
    const std::lock_guard lock(mutex_);
    return texts_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> texts_;
};

}  // namespace ombrix::platform
