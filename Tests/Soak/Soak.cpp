// Everything together for a long time, against a service that fails in many ways: requests,
// uploads, downloads, lines, cached answers, stores, settings, logs, tracks and formatted values
// from four threads. Prints once a moment what the process holds; what grows is a leak.
//
//     soak SECONDS SEED SERVER FOLDER

#include <malloc.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "OmbrixCore/Data/LocationCSVParser.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixCore/Data/Stores/CachedItemStore.hpp"
#include "OmbrixCore/Data/Stores/CachedKeyedItemStore.hpp"
#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixCore/Formatting/OmbrixMeasurementFormatter.hpp"
#include "OmbrixCore/Networking/OmbrixServerAPI.hpp"
#include "OmbrixCore/Settings/OmbrixSettings.hpp"
#include "OmbrixDay/Measuring/DayMeasurer.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "Tests/OmbrixDay/MadeUpDay.hpp"

namespace ombrix {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kThreads = 4;
constexpr std::size_t kKeys = 50;

/// What one of the threads does again and again.
class Worker {
 public:
  Worker(std::uint64_t seed, fs::path folder, std::size_t index)
      : random_(seed * kThreads + index),
        folder_(std::move(folder)),
        index_(index),
        track_(testing::makeUpDay({.seed = seed, .rides = 1, .hasOutliers = true}).fixes) {}

  void work() {
    using Job = void (Worker::*)();
    constexpr std::array<Job, 12> kJobs{
        &Worker::ask,      &Worker::askForTrouble, &Worker::askCache, &Worker::askAndCancel,
        &Worker::upload,   &Worker::download,      &Worker::lines,    &Worker::store,
        &Worker::settings, &Worker::log,           &Worker::track,    &Worker::format};
    try {
      (this->*kJobs[random_() % kJobs.size()])();
    } catch (const HTTPError&) {
      ++failures;
    } catch (const platform::Error&) {
      ++failures;
    }
    ++jobs;
  }

  static inline std::atomic<std::size_t> jobs = 0;
  static inline std::atomic<std::size_t> failures = 0;

 private:
  static OmbrixServerAPI& api() { return OmbrixServerAPI::sharedInstance(); }

  void ask() { static_cast<void>(api().get("resorts").get()); }

  void askForTrouble() {
    constexpr std::array kPaths{"fault/close-before-answer",
                                "fault/reset-in-body",
                                "fault/truncated-gzip",
                                "fault/short-length",
                                "fault/garbage",
                                "fault/close-after-answer",
                                "fault/long-header",
                                "redirect-loop",
                                "status/503",
                                "status/429",
                                "private/echo",
                                "slow?ms=20&bytes=100&every=1"};
    static_cast<void>(api().get(kPaths[random_() % kPaths.size()]).get());
  }

  void askCache() {
    const std::string name = "cache/soak" + std::to_string(random_() % kKeys);
    static_cast<void>(
        api().get(name + "?cache-control=max-age%3D" + std::to_string(random_() % 3)).get());
  }

  void askAndCancel() {
    auto running = api().get("slow?ms=5").start();
    if (random_() % 2 == 0) std::this_thread::yield();
    running.cancel();
  }

  fs::path ownFile(const char* name) const {
    return folder_ / (std::to_string(index_) + "-" + name);
  }

  void upload() {
    const fs::path file = ownFile("upload");
    std::ofstream(file) << std::string(random_() % 200'000, 'x');
    static_cast<void>(
        api()
            .upload("tracks/" + std::to_string(index_), file, ServerRequests::HTTPMethod::PUT)
            .get());
  }

  void download() {
    static_cast<void>(api().download("bytes?bytes=100000", ownFile("download")).get());
  }

  void lines() {
    auto lines = api().lines("status/200?body=one%0Atwo%0Athree");
    while (lines.next().get()) {
      if (random_() % 4 == 0) return;
    }
  }

  void store() {
    const std::string key = "key" + std::to_string(random_() % kKeys);
    const auto store = keyed();
    switch (random_() % 6) {
      case 0:
        return store.purge(key).get();
      case 1:
        return store.purgeOldest(kKeys / 2).get();
      case 2:
      case 3:
        return store.store(std::string(random_() % 5'000, 'v'), key).get();
      default:
        static_cast<void>(store.value(key).get());
        counter().setValue(counter().value() + 1);
    }
  }

  static const CachedKeyedItemStore<std::string>& keyed() {
    static const CachedKeyedItemStore<std::string> store{
        InMemoryKeyedStore<std::string>(kKeys / 2),
        PlistKeyedItemStore<std::string>(folderOf("soak"))};
    return store;
  }

  static const CachedItemStore<int>& counter() {
    static const CachedItemStore<int> store{
        folderOf("soak-counter").appendingPathComponent("count.data", false), 0};
    return store;
  }

  static platform::URL folderOf(const char* name) {
    return platform::services().directories.get().applicationSupport().appendingPathComponent(name,
                                                                                              true);
  }

  void settings() {
    constexpr std::array kUnits{"miles", "kilometers", "british"};
    OmbrixSettings::shared().setMetricType(kUnits[random_() % kUnits.size()]);
  }

  void log() { logInfo({"Tests/Soak", "log()"}, "a line of the soak run"); }

  void track() {
    const fs::path file = ownFile("track");
    fs::remove(file);
    {
      LocationCSVWriter writer(platform::URL::fileURL(file.string(), false));
      writer.add(track_);
    }
    const auto fixes = LocationCSVParser().parse(file);
    DayMeasurer measurer;
    for (const CLLocation& fix : *fixes) measurer.feed(fix);
    measurer.finish();
    static_cast<void>(measurer.totals());
  }

  void format() {
    for (int i = 0; i < 100; ++i) {
      static_cast<void>(
          OmbrixMeasurementFormatter(OmbrixMeasurementFormatter::MeasurementFormat::speed)
              .string(static_cast<double>(random_() % 40)));
    }
  }

  std::mt19937_64 random_;
  const fs::path folder_;
  const std::size_t index_;
  const std::vector<CLLocation> track_;
};

std::size_t countIn(const char* folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator(folder)) ++count;
  return count;
}

/// Bytes of the regular files below a folder, the log's left out: that grows up to its limit.
std::uintmax_t bytesBelow(const fs::path& folder) {
  std::uintmax_t bytes = 0;
  std::error_code gone;  // files come and go meanwhile
  for (fs::recursive_directory_iterator entry(folder, gone), end; entry != end;
       entry.increment(gone)) {
    if (entry->path().filename() == "Logs") entry.disable_recursion_pending();
    const bool isFile = entry->is_regular_file(gone);
    const std::uintmax_t size = isFile ? entry->file_size(gone) : 0;
    if (!gone) bytes += size;
  }
  return bytes;
}

/// Resident memory in bytes.
std::size_t resident() {
  std::ifstream file("/proc/self/statm");
  std::size_t all = 0, inMemory = 0;
  file >> all >> inMemory;
  return inMemory * 4096;
}

void printSample(double seconds, const fs::path& home) {
  const struct mallinfo2 heap = ::mallinfo2();
  std::printf("%.0f\t%zu\t%zu\t%zu\t%zu\t%zu\t%zu\t%ju\n", seconds, Worker::jobs.load(),
              Worker::failures.load(), resident(), heap.uordblks + heap.hblkhd,
              countIn("/proc/self/fd"), countIn("/proc/self/task"), bytesBelow(home));
  std::fflush(stdout);
}

void soak(std::chrono::seconds duration, std::uint64_t seed, const std::string& server,
          const fs::path& folder) {
  OmbrixSettings::shared().registerCoreSettings();
  auto servers = ServerConfiguration::defaults();
  servers.development = *platform::URL::parse(server);
  OmbrixServerAPI::sharedInstance().setConfiguration(servers);
  OmbrixServerAPI::change(APIEndpoint::development);

  const auto begin = Clock::now();
  const auto end = begin + duration;
  std::vector<std::jthread> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      Worker worker(seed, folder, i);
      while (Clock::now() < end) worker.work();
    });
  }
  std::puts("seconds\tjobs\tfailures\tresident\theap\tdescriptors\tthreads\tdisk");
  const auto pause = std::max<Clock::duration>(duration / 200, std::chrono::milliseconds(250));
  for (auto next = begin + pause; next < end; next += pause) {
    std::this_thread::sleep_until(next);
    printSample(std::chrono::duration<double>(Clock::now() - begin).count(), folder);
  }
}

}  // namespace
}  // namespace ombrix

int main(int count, char** arguments) {
  if (count != 5) {
    std::fputs("usage: soak SECONDS SEED SERVER FOLDER\n", stderr);
    return 2;
  }
  ombrix::soak(std::chrono::seconds(std::atoll(arguments[1])),
               std::strtoull(arguments[2], nullptr, 10), arguments[3], arguments[4]);
}
