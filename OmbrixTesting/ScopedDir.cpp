#include "OmbrixTesting/ScopedDir.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ombrix::testing {

namespace fs = std::filesystem;

ScopedDir::ScopedDir() {
  std::string pattern = (fs::temp_directory_path() / "ombrix-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
  path_ = pattern;
}

ScopedDir::~ScopedDir() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

fs::path ScopedDir::write(const fs::path& relative, std::string_view contents) const {
  const fs::path file = path_ / relative;
  fs::create_directories(file.parent_path());
  std::ofstream out(file, std::ios::binary);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
  return file;
}

std::string ScopedDir::read(const fs::path& relative) const {
  std::ifstream in(path_ / relative, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace ombrix::testing
