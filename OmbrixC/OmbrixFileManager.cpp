#include "OmbrixC/OmbrixFileManager.h"

#include <cerrno>

#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixC/Detail/ErrorOut.hpp"
#include "OmbrixCore/Extensions/Bundle+Version.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Extensions/Logging/Log.hpp"

namespace {

using ombrix::FileManager;
using ombrix::c::catching;
using ombrix::c::copied;
using ombrix::c::fileURLFrom;
using ombrix::platform::Bundle;
using ombrix::platform::FileError;
using ombrix::platform::URL;

const FileManager& manager() noexcept { return FileManager::defaultManager(); }

char* textOf(const URL& url) noexcept { return copied(std::string_view(url.absoluteString())); }
char* textOf(const std::optional<URL>& url) noexcept { return url ? textOf(*url) : nullptr; }

}  // namespace

URL ombrix::c::fileURLFrom(const char* text) {
  auto url = URL::parse(textFrom(text));
  if (!url || !url->isFileURL()) throw FileError(EINVAL, "read the file URL", textFrom(text));
  return *std::move(url);
}

char* ombrix_URL_fileURLWithPath_(const char* path) {
  if (path == nullptr) return nullptr;
  return catching(nullptr, [&] { return textOf(URL::fileURL(path)); });
}

char* ombrix_URL_path(const char* url) {
  return catching(nullptr, [&]() -> char* {
    const std::string path = fileURLFrom(url).path();
    return path.find('\0') == std::string::npos ? copied(std::string_view(path)) : nullptr;
  });
}

char* ombrix_FileManager_OmbrixGroupName() { return copied(FileManager::OmbrixGroupName); }

char* ombrix_FileManager_cache() {
  return catching(nullptr, [] { return textOf(manager().cache()); });
}
char* ombrix_FileManager_applicationSupport() {
  return catching(nullptr, [] { return textOf(manager().applicationSupport()); });
}
char* ombrix_FileManager_temporary() {
  return catching(nullptr, [] { return textOf(manager().temporary()); });
}
char* ombrix_FileManager_library() {
  return catching(nullptr, [] { return textOf(manager().library()); });
}
char* ombrix_FileManager_documents() {
  return catching(nullptr, [] { return textOf(manager().documents()); });
}
char* ombrix_FileManager_groupContainer() {
  return catching(nullptr, [] { return textOf(manager().groupContainer()); });
}
char* ombrix_FileManager_groupContainerApplicationSupport() {
  return catching(nullptr, [] { return textOf(manager().groupContainerApplicationSupport()); });
}
char* ombrix_FileManager_groupContainerCache() {
  return catching(nullptr, [] { return textOf(manager().groupContainerCache()); });
}

void ombrix_FileManager_touchWithUrl_(const char* url) {
  OmbrixError* error = nullptr;
  catching(&error, [&] { manager().touch(fileURLFrom(url)); });
  if (error == nullptr) return;
  ombrix::logError({"OmbrixCore/Extensions/FileManager+Utils", "touch(url:)"},
                   "Filesystem: Error creating folder: " + error->message);
  ombrix_Error_release(error);
}

bool ombrix_FileManager_allocatedSizeAt_error_(const char* url, uint64_t* size,
                                               OmbrixError** error) {
  if (size != nullptr) *size = 0;
  return catching(error, [&] {
    const auto allocated = manager().allocatedSize(fileURLFrom(url));
    if (!allocated) throw FileError(allocated.error());
    if (size != nullptr) *size = *allocated;
    return true;
  });
}

char* ombrix_Bundle_version() {
  return catching(nullptr,
                  [] { return copied(std::string_view(ombrix::version(Bundle::main()))); });
}
char* ombrix_Bundle_build() {
  return catching(nullptr, [] { return copied(std::string_view(ombrix::build(Bundle::main()))); });
}
