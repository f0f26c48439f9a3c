// One process of a device, in tests of the cloud store:
//   test-agent cloud <server> <folder> <domain> <seconds its clock is ahead>
//               [<user> <password> [<certificate authority>]]
// obeys lines, and answers each with one:
//   set <key> [<value>]   "ok" when it is on the disk; without a value the key is removed
//   put <key> [<value>]   the same, "ok" at once
//   last <key> [<value>]  the same, and exits at once
//   sync                  "yes" or "no"
//   dump                  "<key>=<value> …" by key
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "Tests/Support/Agent.hpp"

namespace {

using namespace ombrix::platform;

class WrongClock final : public Clock {
 public:
  explicit WrongClock(double ahead) : ahead_(ahead) {}
  Date now() const override { return right_->now() + std::chrono::duration<double>(ahead_); }
  std::chrono::steady_clock::time_point steadyNow() const override { return right_->steadyNow(); }

 private:
  const std::shared_ptr<Clock> right_ = makeSystemClock();
  const double ahead_;
};

/// The file of the device as any other process sees it.
class File {
 public:
  explicit File(const std::filesystem::path& path) : mirror_(path) {}
  std::int64_t lastOrder() {
    static_cast<void>(mirror_.refresh());
    return mirror_.lastOrder();
  }

 private:
  detail::CloudMirror mirror_;
};

}  // namespace

int ombrix::agent::cloud(int argc, char** argv) {
  if (argc < 5) return 2;
  services().clock.set(std::make_shared<WrongClock>(std::stod(argv[4])));
  EtcdConfiguration configuration{
      .endpoint = *URL::parse(argv[1]), .prefix = "user/", .folder = argv[2], .domain = argv[3]};
  if (argc > 6) configuration.credentials = {argv[5], argv[6]};
  if (argc > 7) configuration.certificateAuthorities = argv[7];
  const auto store = makeEtcdUbiquitousKeyValueStore(std::move(configuration));
  File file(std::filesystem::path(argv[2]) / (std::string(argv[3]) + ".plist"));
  const auto token = store->observeExternalChanges([](const auto&) {});
  say("ready");
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string command, key, value;
    words >> command >> key >> value;
    if (command == "sync") {
      say(store->synchronize() ? "yes" : "no");
    } else if (command == "dump") {
      std::map<std::string, std::string> sorted;
      for (const auto& [name, held] : store->dictionaryRepresentation()) {
        sorted[name] = held.text() != nullptr ? *held.text() : "?";
      }
      std::string all;
      for (const auto& [name, text] : sorted) all.append(name).append("=").append(text).append(" ");
      say(all);
    } else {
      const auto order = file.lastOrder();
      if (value.empty()) {
        store->removeObjectForKey(key);
      } else {
        store->setObject(value, key);
      }
      if (command == "last") std::exit(0);
      while (command == "set" && file.lastOrder() == order) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      say("ok");
    }
  }
  return 0;
}
