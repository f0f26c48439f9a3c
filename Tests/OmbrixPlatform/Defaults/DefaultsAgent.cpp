// The other process in tests of user defaults:
//   defaults-agent <folder> <domain> write <prefix> <count>   sets <prefix>0 … and exits at once
//   defaults-agent <folder> <domain> contend <prefix> <threads> <count>   see `contend`
//   defaults-agent <folder> <domain> watch <key> <sentinel>   tells each change of the two keys,
//                                                             obeys "<key> <value>" lines
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

namespace {

using namespace ombrix::platform;

int write(UserDefaults& defaults, const std::string& prefix, int count) {
  for (int i = 0; i < count; ++i) {
    defaults.setObject(std::string(200, 'x') + std::to_string(i), prefix + std::to_string(i));
    if (i % 16 == 0) defaults.synchronize();
    if (i == 0) {
      std::puts("writing");
      std::fflush(stdout);
    }
  }
  std::exit(0);  // What was set last is on nobody's stack now.
}

/// Every thread sets a key of its own and one that all processes share; then tells what it reads.
int contend(UserDefaults& defaults, const std::string& prefix, int threads, int count) {
  const auto token =
      defaults.observe("shared", KeyValueObservingOptions::newValue, [](const auto&) {});
  std::puts("contending");
  std::fflush(stdout);
  {
    std::vector<std::jthread> running;
    for (int t = 0; t < threads; ++t) {
      running.emplace_back([&, name = prefix + std::to_string(t)] {
        for (int i = 0; i < count; ++i) {
          defaults.setObject(i, name);
          defaults.setObject(name + "-" + std::to_string(i), "shared");
          if (defaults.integerForKey(name) != i) std::puts("a value was undone");
        }
      });
    }
  }
  std::puts(defaults.synchronize() ? "done" : "not saved");
  std::fflush(stdout);
  std::string line;
  std::getline(std::cin, line);
  defaults.synchronize();
  std::printf("shared %s\n", defaults.stringForKey("shared").value_or("-").c_str());
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
  if (command == "contend" && argc == 7) {
    return contend(*defaults, argv[4], std::stoi(argv[5]), std::stoi(argv[6]));
  }
  if (command == "watch") return watch(*defaults, argv[4], argv[5]);
  return 2;
}
