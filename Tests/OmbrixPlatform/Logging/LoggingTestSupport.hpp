#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {

inline std::shared_ptr<DDFileLogger> fileLoggerIn(const std::filesystem::path& folder) {
  return std::make_shared<DDFileLogger>(std::make_shared<DDLogFileManager>(folder, "skier"));
}

/// The contents of a logger's files, newest first.
inline std::vector<std::string> contentsOfFiles(const DDFileLogger& logger) {
  std::vector<std::string> contents;
  for (const auto& info : logger.logFileManager()->sortedLogFileInfos()) {
    std::ifstream in(info.filePath, std::ios::binary);
    contents.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return contents;
}

}  // namespace ombrix::platform
