// The other process in tests of user defaults:
//   defaults-agent <folder> <domain> write <prefix> <count>   sets <prefix>0 … and ends
//   defaults-agent <folder> <domain> watch <key> <sentinel>   tells each change of the two keys,
//                                                             obeys "<key> <value>" lines
#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

namespace {

using namespace ombrix::platform;

int write(UserDefaults& defaults, const std::string& prefix, int count) {
  for (int i = 0; i < count; ++i) {
    defaults.setObject(std::string(200, 'x') + std::to_string(i), prefix + std::to_string(i));
    if (i == 0) {
      std::puts("writing");
      std::fflush(stdout);
    }
  }
  return 0;
}

int watch(UserDefaults& defaults, const std::string& key, const std::string& sentinel) {
  std::mutex mutex;
  const auto say = [&](const KeyValueChange<PropertyList>& change) {
    const auto* text = change.newValue ? change.newValue->text() : nullptr;
    const std::lock_guard lock(mutex);
    std::printf("%s %s %s\n", change.isPrior ? "will" : "did", std::string(change.key).c_str(),
                text ? text->c_str() : "-");
    std::fflush(stdout);
  };
  using enum KeyValueObservingOptions;
  const auto token = defaults.observe(key, newValue | prior, say);
  const auto end = defaults.observe(sentinel, newValue, say);
  std::puts("watching");
  std::fflush(stdout);
  for (std::string line; std::getline(std::cin, line);) {
    const auto blank = line.find(' ');
    defaults.setObject(line.substr(blank + 1), line.substr(0, blank));
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) return 2;
  const auto defaults = UserDefaults::make({.folder = argv[1], .domain = argv[2]});
  const std::string_view command = argv[3];
  if (command == "write") return write(*defaults, argv[4], std::stoi(argv[5]));
  if (command == "watch") return watch(*defaults, argv[4], argv[5]);
  return 2;
}
