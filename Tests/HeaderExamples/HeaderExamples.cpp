// The examples of public headers, to the letter. They are compiled and not run; what they need
// around them stands before each.
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixCore/Data/Stores/CachedKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixCore/Settings/MMWormhole+Ombrix.hpp"
#include "OmbrixCore/Settings/Setting.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Concurrency/Waiting.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"
#include "OmbrixPlatform/Locks/Condition.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"
#include "OmbrixPlatform/Observation/Signal.hpp"
#include "OmbrixPlatform/Publishers/Subject.hpp"
#include "OmbrixTesting/FakeURLSession.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ManualPathMonitor.hpp"
#include "OmbrixTesting/RecordingSystemLog.hpp"
#include "OmbrixTesting/ScopedServerAPI.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix::examples {

using namespace std::chrono_literals;
using namespace ombrix::platform;
using namespace ombrix::testing;

template <class... Unused>
void use(const Unused&... /*unused*/) {}

// Coding

struct Lift {
  std::string name;
  std::optional<double> speed;
  static constexpr auto kCodingFields =
      codingFields(field("name", &Lift::name), field("speed", &Lift::speed));
};

void encode(const Lift& lift) {
  const Data json = JSONEncoder().encode(lift);
  use(json);
}

void decode(const Data& json) {
  const auto lift = JSONDecoder().decode<Lift>(json);
  use(lift);
}

// Concurrency

void dispatch() {
  const auto queue = DispatchQueue::serial("parser");
  queue->async([] {});
  const int rows = queue->sync([] { return 42; });
  use(rows);
}

void operate() {
  const auto queue = NSOperationQueue::make("uploads");
  queue->setMaxConcurrentOperationCount(2);
  queue->addOperation([] {});
}

template <class Store>
Async<void> awaitItem(Store store, std::string key) {
  auto item = co_await store.value(key);
  use(item);
}

Async<void> awaitValues(AsyncStream<int> stream) {
  for (;;) {
    const auto value = co_await stream.next();
    if (!value) break;
    use(*value);
  }
}

class Shelf {
 public:
  Async<std::size_t> count() {
    auto section = [&] { return items_.size(); };
    auto count = co_await serial_.run(section);
    co_return count;
  }

  void waitUntilDone() {
    const LockGuard lock(mutex_);
    changed_.wait(mutex_, [this]() OMBRIX_REQUIRES(mutex_) { return isDone_; });
  }

 private:
  std::vector<int> items_;
  Serial serial_;
  Mutex mutex_;
  Condition changed_;
  bool isDone_ OMBRIX_GUARDED_BY(mutex_) = false;
};

struct Shop {
  Async<int> profile();
  Async<int> passes();
};

Async<void> awaitBoth(Shop api) {
  auto profile = api.profile();
  auto passes = api.passes();
  auto both = whenAll(std::move(profile), std::move(passes));
  auto limited = withTimeout(std::move(both), 10s);
  auto [mine, bought] = co_await std::move(limited);
  use(mine, bought);
}

// Events

void signal() {
  Signal<const std::string&> renamed;
  auto token = renamed.connect([](const std::string& name) { use(name); });
  renamed.send("new");
}

void publish() {
  PassthroughSubject<int, Never> rides;
  const auto cancellable = rides.sink([](int number) { use(number); });
  rides.send(1);
}

// Settings and stores

void keepUnits() {
  auto& defaults = UserDefaults::standardUserDefaults();
  defaults.setObject("miles", "units");
  const auto units = defaults.stringForKey("units");
  use(units);
}

void keepSetting() {
  Setting<bool> showLifts{"showLifts", "app.showLifts", true, Synced::yes};

  showLifts.set(false);
  const auto token = showLifts.observe([](bool shows) { use(shows); });
}

void countLaunches() {
  using FileManager = ombrix::FileManager;
  Persisted<int> launches{0, FileManager::defaultManager().applicationSupport(), "launches"};
  launches.modifyWrappedValue([](int& count) { ++count; });
}

Async<void> keepLifts(Lift lift, std::string key, URL folder) {
  CachedKeyedItemStore<Lift> lifts{InMemoryKeyedStore<Lift>(100),
                                   PlistKeyedItemStore<Lift>(folder)};
  co_await lifts.store(lift, key);
  const auto kept = co_await lifts.value(key);
  use(kept);
}

void tellCompanion() { OmbrixWormhole()->passMessageObject("miles", "units"); }

// Files and tracks

void coordinate(const URL& url) {
  const NSFileCoordinator coordinator;
  const auto read = [](const URL& place) { use(place); };
  using enum NSFileCoordinator::ReadingOptions;
  const auto granted = coordinator.coordinateReadingItemAtURL(url, none, read);
  use(granted);
}

void readTrack() {
  const auto fixes = LocationCSVParser().parse(platform::URL::fileURL("day.csv"));
  use(fixes);
}

void writeTrack(const CLLocation& fix) {
  LocationCSVWriter writer(platform::URL::fileURL("day.csv"));
  writer.add(fix);
}

void measure(const std::vector<CLLocation>& fixes) {
  DayMeasurer measurer;
  for (const CLLocation& fix : fixes) measurer.feed(fix);
  measurer.finish();
  const Day day = measurer.takeDay();
  use(day);
}

void format() {
  OmbrixMeasurementFormatter speed(OmbrixMeasurementFormatter::MeasurementFormat::speed);
  const auto text = speed.string(12.5);
  use(text);
}

// Requests

void ask(const URL& url) {
  const auto done = [](const auto& data, const auto& response, const auto& error) {
    use(data, response, error);
  };
  URLSession::shared()->dataTask(URLRequest(url), done)->resume();
}

using Resort = Lift;

Async<void> request(OmbrixServerAPI& api, const std::filesystem::path& path) {
  const auto resorts = co_await api.get<std::vector<Resort>>("resorts");
  use(resorts);
  const auto content = HTTPContent::multipart(
      {HTTPPart::field("day", "7"), HTTPPart::file("track", path, "text/csv")});
  const auto answer = co_await api.post("days", content);
  use(answer);
}

Async<void> readLines(OmbrixServerAPI& api) {
  auto lines = api.lines("events");
  for (;;) {
    const auto line = co_await lines.next();
    if (!line) break;
    use(*line);
  }
}

void choose(OmbrixServerAPI& api, const std::string& tag, const TokenRefresher& refresher) {
  const auto& refresh = refresher.refresh;
  api.setPolicies({.retry = RetryPolicy(), .tokenRefresher = TokenRefresher{.refresh = refresh}});
  RequestOptions options{.headers = {{"If-Match", tag}}, .timeout = std::chrono::seconds(5)};
  use(options);
}

// Test doubles

void double_(const FakeURLSession::Rule& rule) {
  auto sessions = std::make_shared<FakeURLSessionFactory>(rule);
  ScopedService scoped(services().urlSessionFactory, sessions);
}

void leaveTheNetwork() {
  auto paths = std::make_shared<ManualPathMonitorFactory>();
  ScopedService scoped(services().pathMonitorFactory, paths);
  paths->setPath({.status = NWPath::Status::unsatisfied});
}

void readTheSystemLog() {
  auto systemLog = std::make_shared<RecordingSystemLog>();
  ScopedService scoped(services().systemLog, systemLog);
}

void stopTheClock() {
  auto clock = std::make_shared<ManualClock>();
  ScopedService scoped(services().clock, clock);
}

template <class Server>
void serve(const Server& server) {
  ScopedServerAPI api({.production = server.url(), .staging = server.url()});
  const auto resorts = api.client().publisher("resorts");
  use(resorts);
}

void scopeSettings() { ScopedSettings settings("miles"); }

}  // namespace ombrix::examples
