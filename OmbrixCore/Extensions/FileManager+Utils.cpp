#include "OmbrixCore/Extensions/FileManager+Utils.hpp"

#include <string>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix {
namespace {

using platform::EnumerationOptions;
using platform::FileError;
using platform::FileResult;
using platform::URL;

constexpr std::string_view kFolderName = "com.brannoway.ombrix";
constexpr std::string_view kFile = "OmbrixCore/Extensions/FileManager+Utils";

platform::Directories& directories() { return platform::services().directories.get(); }

URL ownFolderIn(const URL& folder) { return folder.appendingPathComponent(kFolderName, true); }

/// The product's folder inside a library folder of the group container.
std::optional<URL> ownFolderIn(const std::optional<URL>& container, std::string_view folder) {
  if (!container) return std::nullopt;
  return ownFolderIn(
      container->appendingPathComponent("Library", true).appendingPathComponent(folder, true));
}

std::uint64_t sizeOf(const platform::FileResourceValues& values) noexcept {
  if (!values.isRegularFile) return 0;
  return values.totalFileAllocatedSize.value_or(values.fileAllocatedSize.value_or(0));
}

}  // namespace

constinit const FileManager FileManager::kDefault;

const FileManager& FileManager::defaultManager() noexcept { return kDefault; }

URL FileManager::cache() const { return ownFolderIn(directories().caches()); }

URL FileManager::applicationSupport() const {
  return ownFolderIn(directories().applicationSupport());
}

URL FileManager::temporary() const { return ownFolderIn(directories().temporary()); }

URL FileManager::library() const { return directories().library(); }

URL FileManager::documents() const { return directories().documents(); }

std::optional<URL> FileManager::groupContainer() const {
  return directories().containerForGroup(OmbrixGroupName);
}

std::optional<URL> FileManager::groupContainerApplicationSupport() const {
  return ownFolderIn(groupContainer(), "Application Support");
}

std::optional<URL> FileManager::groupContainerCache() const {
  return ownFolderIn(groupContainer(), "Caches");
}

void FileManager::touch(const URL& url) const {
  if (const auto made = touchQuietly(url); !made) logTouchFailure(made.error());
}

FileResult<void> FileManager::touchQuietly(const URL& url) const {
  const URL folder = url.hasDirectoryPath() ? url : url.deletingLastPathComponent();
  if (fileExists(folder)) return {};
  return createDirectory(folder, true);
}

void FileManager::logTouchFailure(const FileError& error) {
  logError({kFile, "touch(url:)"},
           std::string("Filesystem: Error creating folder: ") + error.what());
}

FileResult<std::uint64_t> FileManager::allocatedSize(const URL& url) const {
  if (!isDirectory(url)) {
    auto values = resourceValues(url);
    if (!values) return std::unexpected(std::move(values).error());
    return sizeOf(*values);
  }

  FileResult<std::uint64_t> size = 0;
  enumerate(
      url, EnumerationOptions::skipsHiddenFiles,
      [&](const platform::DirectoryEntry& entry) {
        if (entry.isDirectory()) return true;
        auto values = entry.resourceValues();
        if (values) {
          *size += sizeOf(*values);
        } else {
          size = std::unexpected(std::move(values).error());
        }
        return size.has_value();
      },
      [](const FileError& error) {
        logError({kFile, "allocatedSize(at:)"},
                 std::string("Data: Error getting file size for directory: ") + error.what());
      });
  return size;
}

}  // namespace ombrix
