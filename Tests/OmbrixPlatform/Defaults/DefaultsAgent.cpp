// The other process in tests of user defaults, test-agent defaults <folder> <domain>:
//   write <prefix> <count>              sets <prefix>0 … and exits at once
//   fork <prefix> <count>               sets them in a forked child
//   contend <prefix> <threads> <count>  see `contend`
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "Tests/Support/Agent.hpp"

namespace {

using namespace ombrix::platform;

int write(UserDefaults& defaults, const std::string& prefix, int count) {
  for (int i = 0; i < count; ++i) {
    defaults.setObject(std::string(200, 'x') + std::to_string(i), prefix + std::to_string(i));
    if (i % 16 == 0) defaults.synchronize();
    if (i == 0) {
      ombrix::agent::say("writing");
    }
  }
  std::exit(0);  // What was set last is on nobody's stack now.
}

/// Every thread sets a key of its own and one that all processes share; then tells what it reads.
int contend(UserDefaults& defaults, const std::string& prefix, int threads, int count) {
  const auto token =
      defaults.observe("shared", KeyValueObservingOptions::newValue, [](const auto&) {});
  ombrix::agent::say("contending");
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
  ombrix::agent::say(defaults.synchronize() ? "done" : "not saved");
  std::string line;
  std::getline(std::cin, line);
  defaults.synchronize();
  std::printf("shared %s\n", defaults.stringForKey("shared").value_or("-").c_str());
  return 0;
}

}  // namespace

int ombrix::agent::defaults(int argc, char** argv) {
  if (argc < 6) return 2;
  const auto defaults = UserDefaults::make({.folder = argv[1], .domain = argv[2]});
  const std::string_view command = argv[3];
  if (command == "fork") {
    defaults->setObject("the parent's", "parent");
    defaults->synchronize();
    if (const pid_t child = ::fork(); child != 0) {
      int status = 0;
      return ::waitpid(child, &status, 0) == child ? status : 1;
    }
  }
  if (command == "fork") {
    for (int i = 0; i < std::stoi(argv[5]); ++i)
      defaults->setObject(i, argv[4] + std::to_string(i));
    std::_Exit(0);  // what its parent's threads own seems to leak there
  }
  if (command == "write") return write(*defaults, argv[4], std::stoi(argv[5]));
  if (command == "contend" && argc == 7) {
    return contend(*defaults, argv[4], std::stoi(argv[5]), std::stoi(argv[6]));
  }
  return 2;
}
