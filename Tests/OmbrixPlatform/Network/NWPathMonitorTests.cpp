#include "OmbrixPlatform/Network/NWPathMonitor.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <future>
#include <thread>

#include "OmbrixPlatform/Concurrency/Events.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;
using detail::Descriptor;
using testing::ChildProcess;
using ::testing::ElementsAre;
using testing::EventLog;
using enum NWPath::Status;

std::string textOf(const NWPath& path) {
  return std::string(path.status == satisfied ? "satisfied" : "unsatisfied") +
         (path.isConstrained ? " constrained" : "") + (path.isExpensive ? " expensive" : "");
}

void logInto(NWPathMonitor& monitor, EventLog& log) {
  monitor.setPathUpdateHandler([&](const NWPath& path) { log.add(textOf(path)); });
}

/// An agent in a network namespace of its own; null where that is not permitted.
std::unique_ptr<ChildProcess> agentInNamespace() {
  for (const char* option : {"-n", "-rn"}) {
    const std::string unshare = std::string("unshare ") + option;
    const std::string trial = unshare + " ip link add v0 type veth peer name v1 2>/dev/null";
    if (std::system(trial.c_str()) == 0) {
      return std::make_unique<ChildProcess>(
          std::vector<std::string>{"/usr/bin/env", "unshare", option, TEST_AGENT, "path"});
    }
  }
  return nullptr;
}

// Catches an event that is not watched (a link that goes down takes its routes without a word), a
// default route over the loopback or a dead link taken for a way out, and a change told twice.
TEST(NWPathMonitorTests, FollowsLinksAndRoutes) {
  const auto agent = agentInNamespace();
  if (!agent) GTEST_SKIP() << "no network namespace of one's own here";
  ASSERT_EQ(agent->readLine(), "before: unsatisfied");
  ASSERT_EQ(agent->readLine(), "unsatisfied");
  const struct {
    const char* command;
    const char* said;  // the next line, told by the change or by "now" when nothing changes
  } rows[]{
      {"ip link set lo up && ip route add default dev lo", "now: unsatisfied"},
      {"change", "changed"},
      {"ip route del default dev lo", "now: unsatisfied"},
      {"ip link add v0 type veth peer name v1", "now: unsatisfied"},
      {"ip addr add 10.9.8.1/24 dev v0 && ip link set v0 up", "now: unsatisfied"},
      {"ip link set v1 up", "now: unsatisfied"},
      {"ip route add 10.1.0.0/16 via 10.9.8.2", "now: unsatisfied"},
      {"ip route add default via 10.9.8.2", "satisfied"},
      {"ip link add v2 type veth peer name v3", "now: satisfied"},
      {"ip link set v0 down", "unsatisfied"},
      {"ip link set v0 up && ip route add default via 10.9.8.2", "satisfied"},
      {"ip route del default", "unsatisfied"},
      {"ip route add 0.0.0.0/1 via 10.9.8.2", "now: unsatisfied"},
      {"ip route add 128.0.0.0/1 via 10.9.8.2", "satisfied"},
      {"ip route del 0.0.0.0/1 && ip route del 128.0.0.0/1", "unsatisfied"},
      {"ip route add default via 10.9.8.2 table 4711", "satisfied"},
      {"ip route del default table 4711", "unsatisfied"},
      {"ip -6 route add default dev v0", "satisfied"},
      {"ip link del v0", "unsatisfied"},
      {"ip route add unreachable default", "now: unsatisfied"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command);
    agent->send(row.command);
    if (std::string_view(row.said).starts_with("now")) agent->send("now");
    ASSERT_EQ(agent->readLine(), row.said);
  }
}

/// A message bus of the test's own, as the system bus of this process.
class ScopedBus {
 public:
  ScopedBus() {
    const auto socket = dir_.path() / "bus";
    const auto config =
        dir_.write("config", "<busconfig><listen>unix:path=" + socket.string() +
                                 "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                                 "<allow send_destination=\"*\"/><allow receive_sender=\"*\"/>"
                                 "<allow own=\"*\"/></policy></busconfig>");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket.string()).c_str(), 1);
    if (std::system("command -v dbus-daemon >/dev/null") != 0) return;
    daemon_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{"/usr/bin/env", "dbus-daemon", "--nofork", "--print-address",
                                 "--config-file=" + config.string()});
    isThere_ = daemon_->readLine().has_value();
  }
  ~ScopedBus() { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

  bool isThere() const { return isThere_; }
  void kill() { daemon_->kill(); }

 private:
  testing::ScopedDir dir_;
  std::unique_ptr<ChildProcess> daemon_;
  bool isThere_ = false;
};

/// Stands on the bus in NetworkManager's place, with a "Metered" that can be set.
class FakeNetworkManager {
 public:
  /// @param isLate Whether it answers nobody before the first `setMetered`.
  explicit FakeNetworkManager(std::uint32_t metered, bool isLate = false)
      : isLate_(isLate), metered_(metered), wanted_(metered) {
    std::promise<bool> ready;
    thread_ = std::jthread([this, &ready](const std::stop_token& stop) { run(stop, ready); });
    isThere_ = ready.get_future().get();
  }
  ~FakeNetworkManager() {
    thread_.request_stop();
    wake();
  }

  bool isThere() const { return isThere_; }
  void setMetered(std::uint32_t metered) {
    wanted_ = metered;
    wake();
  }

 private:
  static constexpr const char* kName = "org.freedesktop.NetworkManager";
  static constexpr const char* kPath = "/org/freedesktop/NetworkManager";

  void wake() const {
    constexpr std::uint64_t kOne = 1;
    (void)!::write(wake_.get(), &kOne, sizeof kOne);
  }

  void run(const std::stop_token& stop, std::promise<bool>& ready) {
    const sd_bus_vtable table[]{
        SD_BUS_VTABLE_START(0),
        SD_BUS_PROPERTY("Metered", "u", nullptr, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
        SD_BUS_VTABLE_END};
    sd_bus* bus = nullptr;
    const bool isThere =
        sd_bus_open_system(&bus) >= 0 &&
        sd_bus_add_object_vtable(bus, nullptr, kPath, kName, table, &metered_) >= 0 &&
        sd_bus_request_name(bus, kName, 0) >= 0;
    ready.set_value(isThere);
    pollfd woken{wake_.get(), POLLIN, 0};
    if (isLate_) ::poll(&woken, 1, -1);
    while (isThere && !stop.stop_requested()) {
      while (sd_bus_process(bus, nullptr) > 0) {
      }
      if (metered_ != wanted_) {
        metered_ = wanted_;
        sd_bus_emit_properties_changed(bus, kPath, kName, "Metered", nullptr);
        continue;
      }
      pollfd ready_now[]{{sd_bus_get_fd(bus), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
      ::poll(ready_now, 2, -1);
      std::uint64_t ignored = 0;
      (void)!::read(wake_.get(), &ignored, sizeof ignored);
    }
    sd_bus_flush_close_unref(bus);
  }

  const bool isLate_;
  std::uint32_t metered_;  // the thread's
  std::atomic<std::uint32_t> wanted_;
  const Descriptor wake_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  bool isThere_ = false;
  std::jthread thread_;
};

// Catches a value of Metered that is read wrongly, a change that is not followed, and a service or
// bus that comes or goes unnoticed.
TEST(NWPathMonitorTests, FollowsWhatNetworkManagerSaysOfMetering) {
  ScopedBus bus;
  if (!bus.isThere()) GTEST_SKIP() << "no dbus-daemon here";
  const auto status = textOf(makeSystemPathMonitorFactory()->make()->currentPath());
  const std::string metered = status + " constrained expensive";
  EventLog log;
  const auto monitor = makeSystemPathMonitorFactory()->make();
  logInto(*monitor, log);
  {
    FakeNetworkManager manager(1, true);
    ASSERT_TRUE(manager.isThere());
    monitor->start();
    for (int turn = 0; turn < 3; ++turn) {
      std::promise<void> turned;
      const auto token = after(0s, [&] { turned.set_value(); });
      turned.get_future().wait();
    }
    EXPECT_THAT(log.take(), ElementsAre());
    manager.setMetered(1);
    EXPECT_THAT(log.takeOnce(metered), ElementsAre(metered)) << "nothing before the answer";
    EXPECT_EQ(textOf(monitor->currentPath()), metered);
    const struct {
      std::uint32_t value;
      std::string said;
    } rows[]{{2, status}, {3, metered}, {4, status}, {1, metered}, {0, status}, {1, metered}};
    for (const auto& row : rows) {
      SCOPED_TRACE(row.value);
      manager.setMetered(row.value);
      EXPECT_THAT(log.takeOnce(row.said), ElementsAre(row.said));
    }
  }
  EXPECT_THAT(log.takeOnce(status), ElementsAre(status));  // the service has gone
  {
    const FakeNetworkManager manager(3);
    EXPECT_THAT(log.takeOnce(metered), ElementsAre(metered));
    bus.kill();
    EXPECT_THAT(log.takeOnce(status), ElementsAre(status));
  }
  monitor->cancel();
}

// Catches a monitor that waits for a bus which takes connections and never answers.
TEST(NWPathMonitorTests, DoesNotWaitForASilentBus) {
  const testing::ScopedDir dir;
  const std::string path = dir.path() / "bus";
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::listen(socket.get(), 4), 0);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);

  EventLog log;
  const auto monitor = makeSystemPathMonitorFactory()->make();
  const auto expected = textOf(monitor->currentPath());
  logInto(*monitor, log);
  monitor->start();
  monitor->start();
  EXPECT_THAT(log.takeOnce(expected), ElementsAre(expected));
  monitor->cancel();
  monitor->cancel();
  ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

// Catches a monitor that throws at whoever starts it when no descriptors are left, or that does not
// begin to watch once there are some again.
TEST(NWPathMonitorTests, WatchesOnceThereAreDescriptors) {
  if (testing::kUnderSanitizer) GTEST_SKIP() << "sanitizers need descriptors of their own";
  testing::EventLog events;
  const auto monitor = makeSystemPathMonitorFactory()->make();
  monitor->setPathUpdateHandler([&](const NWPath&) { events.add("told"); });
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const int next = ::dup(0);
  ::close(next);
  const rlimit none{.rlim_cur = static_cast<rlim_t>(next), .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_NO_THROW(monitor->start());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  monitor->start();
  EXPECT_EQ(events.takeOnce("told").back(), "told");
  monitor->cancel();
}

// Catches a handler that is called after `cancel`, and one that cannot cancel its own monitor.
TEST(NWPathMonitorTests, CallsNothingAfterCancel) {
  for (int i = 0; i < 200; ++i) {
    std::atomic<bool> isOver = false;
    std::atomic<bool> isLate = false;
    const auto monitor = makeSystemPathMonitorFactory()->make();
    monitor->setPathUpdateHandler([&](const NWPath&) { isLate = isLate || isOver; });
    monitor->start();
    monitor->cancel();
    isOver = true;
    monitor->start();
    EXPECT_FALSE(isLate);
  }
  EventLog log;
  auto monitor = makeSystemPathMonitorFactory()->make();
  monitor->setPathUpdateHandler([&](const NWPath&) {
    std::exchange(monitor, nullptr)->cancel();
    log.add("cancelled");
  });
  monitor->start();
  EXPECT_THAT(log.takeOnce("cancelled"), ElementsAre("cancelled"));
}

}  // namespace
}  // namespace ombrix::platform
