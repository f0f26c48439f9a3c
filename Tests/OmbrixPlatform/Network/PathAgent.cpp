// The process that a test of the path monitor puts into a network namespace: tells each path as a
// line, and runs every line it gets as a shell command; "now" tells what `currentPath` says,
// "change" waits for a change of the network.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <semaphore>
#include <string>

#include "OmbrixPlatform/Network/NWPathMonitor.hpp"
#include "Tests/Support/Agent.hpp"

namespace {

using namespace ombrix::platform;

void tell(const std::string& prefix, const NWPath& path) {
  ombrix::agent::say(prefix +
                     (path.status == NWPath::Status::satisfied ? "satisfied" : "unsatisfied"));
}

}  // namespace

int ombrix::agent::path(int /*argc*/, char** /*argv*/) {
  const auto monitor = makeSystemPathMonitorFactory()->make();
  monitor->setPathUpdateHandler([](const NWPath& path) { tell("", path); });
  std::counting_semaphore<> changes(0);
  monitor->setNetworkChangeHandler([&] { changes.release(); });
  tell("before: ", monitor->currentPath());
  monitor->start();
  for (std::string line; std::getline(std::cin, line);) {
    if (line == "now") {
      tell("now: ", monitor->currentPath());
    } else if (line == "change") {
      say(changes.try_acquire_for(std::chrono::seconds(30)) ? "changed" : "no change");
    } else if (std::system(line.c_str()) != 0) {
      say("failed");
    }
  }
  monitor->cancel();
  return 0;
}
