// The process that a test of the path monitor puts into a network namespace: tells each path as a
// line, and runs every line it gets as a shell command; "now" tells what `currentPath` says,
// "change" waits for a change of the network.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <semaphore>
#include <string>

#include "OmbrixPlatform/Network/NWPathMonitor.hpp"

namespace {

using namespace ombrix::platform;

void say(const char* prefix, const NWPath& path) {
  std::printf("%s%s\n", prefix,
              path.status == NWPath::Status::satisfied ? "satisfied" : "unsatisfied");
  std::fflush(stdout);
}

}  // namespace

int main() {
  const auto monitor = makeSystemPathMonitorFactory()->make();
  monitor->setPathUpdateHandler([](const NWPath& path) { say("", path); });
  std::counting_semaphore<> changes(0);
  monitor->setNetworkChangeHandler([&] { changes.release(); });
  say("before: ", monitor->currentPath());
  monitor->start();
  for (std::string line; std::getline(std::cin, line);) {
    if (line == "now") {
      say("now: ", monitor->currentPath());
    } else if (line == "change") {
      std::puts(changes.try_acquire_for(std::chrono::seconds(30)) ? "changed" : "no change");
      std::fflush(stdout);
    } else if (std::system(line.c_str()) != 0) {
      std::puts("failed");
      std::fflush(stdout);
    }
  }
  monitor->cancel();
  return 0;
}
