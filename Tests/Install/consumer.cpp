#include <OmbrixCore/Extensions/Version.hpp>
#include <cstdio>

int main() {
  const auto version = ombrix::libraryVersion();
  std::printf("OmbrixCore %.*s\n", static_cast<int>(version.size()), version.data());
  return version.empty() ? 1 : 0;
}
