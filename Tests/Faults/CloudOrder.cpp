// Two devices of two processes each set and remove values on one etcd server over TLS, while it is
// killed, stopped, compacted, out of space or asks for a login, processes are killed or stand
// still, their disk is full, and clocks are wrong. A watch from the first revision on shows what
// the server took.
#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/EtcdMessages.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Processes/EtcdServer.hpp"
#include "OmbrixTesting/Processes/SmallDisk.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::faults {
namespace {

using platform::JSON;
using platform::detail::EtcdMessages;
using testing::ChildProcess;
using testing::EtcdServer;

constexpr std::size_t kDevices = 2, kProcesses = 4;
constexpr std::array<const char*, kProcesses> kClocksAhead{"0", "315360000", "-315360000", "0"};
constexpr const char *kUser = "skier", *kPassword = "powder", *kPrefix = "user/";
constexpr auto kPatience = std::chrono::seconds(120);

/// A process of a device.
class Agent {
 public:
  Agent(const EtcdServer& server, const std::filesystem::path& folder, std::size_t number)
      : command_{TEST_AGENT,
                 "cloud",
                 server.url().absoluteString(),
                 folder.string(),
                 "device" + std::to_string(number % kDevices),
                 kClocksAhead.at(number),
                 kUser,
                 kPassword,
                 server.certificateAuthority().string()} {
    start();
  }

  void start() {
    process_ = std::make_unique<ChildProcess>(command_);
    if (process_->readLine(kPatience) != "ready") throw std::runtime_error("no process came up");
  }
  void kill() { process_->kill(); }
  void signal(int number) const { process_->signal(number); }

  std::string ask(const std::string& line) {
    process_->send(line);
    const auto answer = process_->readLine(kPatience);
    if (!answer) throw std::runtime_error("no answer to: " + line);
    return *answer;
  }

 private:
  const std::vector<std::string> command_;
  std::unique_ptr<ChildProcess> process_;
};

/// All that the server took below the prefix, in its order, up to an end that is put there.
class Record final : public platform::URLSessionDelegate {
 public:
  using Event = platform::detail::EtcdKeyValue;
  struct Taken {
    std::vector<Event> events;
    std::vector<std::string> ids;  // of the changes, by the devices' marks
  };

  static Taken read(const EtcdServer& server, std::int64_t from) {
    const auto record = std::make_shared<Record>();
    const std::string end = EtcdServer::coded(std::string(kPrefix) + "end");
    const JSON put = server.call(
        "/v3/kv/put", JSON::Dictionary{{"key", end},
                                       {"value", record->messages_.change(
                                                     "end", platform::PropertyList("end"), "", "",
                                                     0)["success"][0]["request_put"]["value"]}});
    record->last_ = std::stoll(put["header"]["revision"].stringValue());
    const auto session =
        platform::URLSession::make(platform::URLSessionConfiguration::ephemeral(), record);
    platform::URLRequest request(*platform::URL::parse("/v3/watch", server.url()));
    request.httpMethod = "POST";
    request.httpBody = record->messages_.watch(from).rawData();
    const auto task = session->dataTask(std::move(request), nullptr);
    task->resume();
    std::unique_lock lock(record->mutex_);
    const bool isWhole =
        record->changed_.wait_for(lock, kPatience, [&] { return record->isWhole_; });
    lock.unlock();
    session->close();
    if (!isWhole) throw std::runtime_error("the record has no end");
    lock.lock();
    return record->taken_;
  }

  bool judgesServers(const std::string& /*host*/) const override { return true; }
  void didReceiveChallenge(platform::URLSession& /*session*/,
                           const platform::URLAuthenticationChallenge& challenge,
                           ChallengeHandler completionHandler) override {
    completionHandler(AuthChallengeDisposition::useCredential,
                      platform::URLCredential{
                          challenge.protectionSpace.serverTrust.value_or(platform::SecTrust())});
  }

  void didReceiveData(platform::URLSession&, platform::URLSessionDataTask&,
                      platform::DataView data) override {
    const std::lock_guard lock(mutex_);
    text_ += platform::textOf(data);
    std::size_t begin = 0;
    for (auto end = text_.find('\n'); end != std::string::npos;
         begin = end + 1, end = text_.find('\n', begin)) {
      const auto line = std::string_view(text_).substr(begin, end - begin);
      for (auto& event : messages_.watchMessage(line).events) {
        if (event.revision > last_) continue;  // the next record has it
        isWhole_ = isWhole_ || event.revision == last_;
        taken_.events.push_back(std::move(event));
      }
      noteMarks(JSON::parse(line)["result"]["events"]);
    }
    text_.erase(0, begin);
    if (isWhole_) changed_.notify_all();
  }

 private:
  void noteMarks(const JSON& events) {
    const auto text = [](const JSON& coded) {
      return std::string(
          platform::textOf(*platform::detail::bytesFromBase64(coded.stringValue(), false)));
    };
    if (events.array() == nullptr) return;
    for (const JSON& event : *events.array()) {
      const JSON& entry = event["kv"];
      // Removing what is not there leaves a mark alone: it would be counted twice.
      if (std::stoll(entry["mod_revision"].stringValue()) > last_) continue;
      const bool isValue = EtcdMessages::isKey(text(entry["key"]).substr(std::strlen(kPrefix)));
      if (!isValue) taken_.ids.push_back(text(entry["value"]));
    }
  }

  const EtcdMessages messages_{kPrefix};
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string text_;
  std::int64_t last_ = 0;
  bool isWhole_ = false;
  Taken taken_;
};

class Run {
 public:
  Run(const Plan& plan, Outcomes& outcomes)
      : plan_(plan),
        outcomes_(outcomes),
        random_(plan.seed),
        server_(dir_.path() / "server", {.isSecure = true, .arguments = {}}) {
    const auto& folder = disk_.folder().path();
    for (std::size_t i = 0; i < kProcesses; ++i) agents_.emplace_back(server_, folder, i);
  }

  void run() {
    const std::size_t rounds = plan_.rounds(9, 100);
    for (std::size_t round = 0; round < rounds; ++round) withFault(round);
    settle();
    judge();
  }

 private:
  /// A change by some process, of a key of its own or one that all share; one in five removes.
  void change() { change("set", pick(kProcesses)); }
  void change(const std::string& command, std::size_t agent) {
    const bool isShared = pick(2) == 0;
    const std::string key = isShared
                                ? "shared" + std::to_string(pick(4))
                                : "own" + std::to_string(agent) + "-" + std::to_string(pick(4));
    const std::size_t device = agent % kDevices;
    const bool isRemoval = pick(5) == 0;
    const std::string value =
        isRemoval ? "" : std::to_string(device) + "." + std::to_string(++count_);
    if (isRemoval) ++removals_;
    agents_.at(agent).ask(command + " " + key + " " + value);
    last_[{device, key}] = value;
  }

  void changes(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) change();
  }

  /// Changes that need not be on the disk before the next one, and are in the end.
  void looseChanges(std::size_t agent) {
    for (int i = 0; i < 4; ++i) change("put", agent);
  }
  void bringToTheDisk() {
    for (auto& agent : agents_) agent.ask("sync");
  }

  /// Ten changes: before, during and after a fault.
  void withFault(std::size_t round) {
    changes(3);
    switch (round % 9) {
      case 0:
        server_.stop();
        changes(4);
        server_.start();
        break;
      case 1: {
        server_.pause();
        changes(4);
        // Now and then for longer than a request waits.
        if (plan_.isLong && pick(4) == 0) std::this_thread::sleep_for(std::chrono::seconds(11));
        server_.resume();
        break;
      }
      case 2:
        keepRecord();
        server_.compact(nextRevision_ - 1);
        changes(4);
        break;
      case 3:
        server_.setFull(true);
        changes(4);
        server_.setFull(false);
        break;
      case 4:
        server_.requireLogin(kUser, kPassword, kPrefix);
        changes(4);
        server_.stopRequiringLogin();
        break;
      case 5: {
        auto& agent = agents_.at(pick(kProcesses));
        agent.kill();
        agent.start();
        changes(4);
        break;
      }
      case 6: {
        if (!disk_.isMounted()) break;
        disk_.fillUp(pick(8) * 1024);
        const std::size_t agent = pick(kProcesses);
        looseChanges(agent);
        if (pick(2) == 0) {  // with answers on their way to what is in memory alone
          server_.stop();
          server_.start();
          looseChanges(agent);
        }
        if (pick(2) == 0) bringToTheDisk();
        std::filesystem::remove(disk_.folder().path() / "filling");
        bringToTheDisk();
        break;
      }
      case 7: {
        const std::size_t stopped = pick(kProcesses);
        agents_.at(stopped).signal(SIGSTOP);
        looseChanges((stopped + kDevices) % kProcesses);  // the other one of its device
        agents_.at(stopped).signal(SIGCONT);
        bringToTheDisk();
        break;
      }
      default:
        changes(2);
        // With answers on their way.
        server_.stop();
        server_.start();
        changes(2);
    }
    changes(3);
  }

  void keepRecord() {
    auto taken = Record::read(server_, nextRevision_);
    for (auto& event : taken.events) {
      nextRevision_ = event.revision + 1;
      record_.push_back(std::move(event));
    }
    for (const auto& id : taken.ids) {
      outcomes_.expect(ids_.insert(id).second, "the server took a change once", id);
    }
  }

  /// Until all have sent what they had and have read what the others sent.
  void settle() {
    for (int pass = 0; pass < 2; ++pass) {
      for (auto& agent : agents_) {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (agent.ask("sync") != "yes") {
          if (std::chrono::steady_clock::now() > deadline) {
            outcomes_.bad("a process cannot reach the server any more");
            return;
          }
          std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
      }
    }
  }

  void judge() {
    keepRecord();
    for (auto& agent : agents_) agent.ask("sync");
    std::map<std::string, std::string> final;
    std::set<std::string> taken;
    std::map<std::size_t, std::size_t> latest;  // change of each device
    for (const auto& event : record_) {
      const std::string* text = event.value ? event.value->text() : nullptr;
      if (text == nullptr) {
        final.erase(event.key);
        continue;
      }
      final[event.key] = *text;
      if (event.key == "end") continue;
      taken.insert(*text);
      const std::size_t device = std::stoul(text->substr(0, 1));
      const std::size_t number = std::stoul(text->substr(2));
      outcomes_.expect(latest[device] < number, "a device's changes came in their order", *text);
      latest[device] = number;
    }
    for (const auto& [key, value] : last_) {
      const auto found = final.find(key.second);
      const std::string end = found != final.end() ? found->second : "";
      const auto other = last_.find({1 - key.first, key.second});
      const bool isLast = value == end || (other != last_.end() && other->second == end);
      outcomes_.expect(isLast && (value.empty() || taken.contains(value)),
                       "a device's last change of a key was taken", key.second + " = " + value);
    }
    std::string expected;
    for (const auto& [key, value] : final) expected += key + "=" + value + " ";
    for (auto& agent : agents_) {
      const std::string shown = agent.ask("dump");
      outcomes_.expect(shown == expected, "a process shows the last change of every key",
                       shown + "/ " + expected);
    }
    outcomes_.good("changes made", count_ + removals_);
    outcomes_.good("values that a later change of the device overtook", count_ - taken.size());
  }

  std::size_t pick(std::size_t count) { return random_() % count; }

  const Plan& plan_;
  Outcomes& outcomes_;
  std::mt19937_64 random_;
  const testing::SmallDisk disk_{1 << 20};  // first: what is started sees it
  const testing::ScopedDir dir_;
  EtcdServer server_;
  std::vector<Agent> agents_;
  std::size_t count_ = 0, removals_ = 0;
  std::set<std::string> ids_;
  std::map<std::pair<std::size_t, std::string>, std::string> last_;
  std::vector<Record::Event> record_;
  std::int64_t nextRevision_ = 1;
};

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  if (!EtcdServer::isInstalled()) return outcomes.skip("etcd is not installed");
  Run(plan, outcomes).run();
}

}  // namespace ombrix::faults
