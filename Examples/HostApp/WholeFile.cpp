#include "Examples/HostApp/WholeFile.hpp"

#include <array>
#include <filesystem>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace ombrix::hostapp {

platform::Data readWholeFile(const std::string& path) {
  const auto stream = platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  platform::Data contents;
  std::vector<std::byte> block(256 * 1024);
  for (;;) {
    const auto count = stream->read(block);
    if (!count) throw CommandFailure(count.error().what());
    if (*count == 0) return contents;
    contents.insert(contents.end(), block.begin(),
                    block.begin() + static_cast<std::ptrdiff_t>(*count));
  }
}

void writeWholeFile(const std::string& path, platform::DataView contents) {
  const std::string partial = path + ".partial";
  const auto stream = platform::OutputStream::withPath(partial, platform::OutputFileMode::replace);
  auto written = stream->open();
  if (written) written = stream->write(contents);
  stream->close();
  const auto& late = stream->streamError();
  if (!written || late) {
    std::error_code ignored;
    std::filesystem::remove(partial, ignored);
    throw CommandFailure("cannot write " + path + ": " +
                         (written ? late->what() : written.error().what()));
  }
  std::filesystem::rename(partial, path);
}

}  // namespace ombrix::hostapp
