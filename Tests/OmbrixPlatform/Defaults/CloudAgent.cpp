// One process of a device, in tests of the cloud store:
//   cloud-agent <server> <folder> <domain> <seconds its clock is ahead> [<user> <password>]
// obeys lines, and answers each with one:
//   set <key> <value>   remove <key>   "ok" when it is on the disk
//   sync                "yes" or "no"
//   wait <key> <value>  "ok" when the value is shown
//   dump                "<key>=<value> …" by key
//   end                 ends in order
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>

#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"

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

void say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 7) return 2;
  services().clock.set(std::make_shared<WrongClock>(std::stod(argv[4])));
  EtcdConfiguration configuration{
      .endpoint = *URL::parse(argv[1]), .prefix = "user/", .folder = argv[2], .domain = argv[3]};
  if (argc == 7) configuration.credentials = {argv[5], argv[6]};
  const auto store = makeEtcdUbiquitousKeyValueStore(std::move(configuration));
  std::mutex mutex;
  std::condition_variable changed;
  const auto token = store->observeExternalChanges([&](const auto&) {
    const std::lock_guard lock(mutex);
    changed.notify_all();
  });
  say("ready");
  for (std::string line; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::string command, key, value;
    words >> command >> key >> value;
    if (command == "set") {
      store->setObject(value, key);
      say("ok");
    } else if (command == "remove") {
      store->removeObjectForKey(key);
      say("ok");
    } else if (command == "sync") {
      say(store->synchronize() ? "yes" : "no");
    } else if (command == "wait") {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] { return store->stringForKey(key) == value; });
      say("ok");
    } else if (command == "dump") {
      std::map<std::string, std::string> sorted;
      for (const auto& [name, held] : store->dictionaryRepresentation()) {
        sorted[name] = held.text() != nullptr ? *held.text() : "?";
      }
      std::string all;
      for (const auto& [name, text] : sorted) all.append(name).append("=").append(text).append(" ");
      say(all);
    } else {
      break;
    }
  }
  return 0;
}
