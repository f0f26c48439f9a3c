#include "Examples/HostApp/WholeFile.hpp"

#include <fmt/format.h>

#include <filesystem>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix::hostapp {

platform::Data readWholeFile(const std::string& path) {
  auto contents =
      platform::FileManager::defaultManager().contents(platform::URL::fileURL(path, false));
  if (!contents) throw CommandFailure(contents.error().what());
  return *std::move(contents);
}

void replaceFile(const std::string& path,
                 const std::function<void(const std::shared_ptr<platform::OutputStream>&)>& write) {
  const std::string partial = path + ".partial";
  const std::shared_ptr<platform::OutputStream> stream =
      platform::OutputStream::withPath(partial, platform::OutputFileMode::replace);
  if (const auto opened = stream->open(); !opened) {
    throw CommandFailure(fmt::format("cannot write {}: {}", path, opened.error().what()));
  }
  try {
    write(stream);
    stream->close();
    if (const auto& late = stream->streamError()) {
      throw CommandFailure(fmt::format("cannot write {}: {}", path, late->what()));
    }
    std::filesystem::rename(partial, path);
  } catch (...) {
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    throw;
  }
}

}  // namespace ombrix::hostapp
