// Another process at the stores, test-agent stores:
//   write FOLDER SIZE…   stores values of these sizes in turn under the key "k", until it is killed
//   share GROUP ROUNDS   reads and writes one file and the keys of one folder in the group's
//                        container, beside others that do the same; fails on a torn or lost value
//   look FILE            reads a text again and again, until it is killed
//   read FILE MEGABYTES CGROUP
//                        reads a text with so much more memory at most, from inside a control group
//                        unless CGROUP is "-"; 0 when it came, 3 when not, 4 out of the group
//   decode FILE          decodes a property list as several types; 0 within 64 MiB and a second
//   launch FOLDER COUNT GROUP STATE FIRST
//                        adds one to a persisted number, sets so many others, to FIRST and so on,
//                        and ends; GROUP is the group's container. While it sets the others the
//                        thread pool is busy, no thread can be made, or it is a child that was
//                        forked when its parent had used its store, or the pool alone

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <latch>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixPlatform/Concurrency/ThreadPool.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "Tests/Support/Agent.hpp"

namespace {

using namespace ombrix;
using platform::URL;

/// A value that shows when it is a mixture of two: one letter, many times.
std::string uniform(std::size_t size, unsigned index) {
  return std::string(size, static_cast<char>('a' + index % 26));
}

bool isWhole(const std::optional<std::string>& value) {
  return value && !value->empty() && value->find_first_not_of(value->front()) == std::string::npos;
}

int write(const char* folder, const std::vector<std::size_t>& sizes) {
  const PlistKeyedItemStore<std::string> store(URL::fileURL(folder, true));
  agent::say("ready");
  for (unsigned i = 0;; ++i) store.store(uniform(sizes[i % sizes.size()], i), "k").get();
}

int look(const char* file) {
  const PlistFileStore<std::string> store(URL::fileURL(file));
  agent::say("ready");
  while (true) static_cast<void>(store.value());
}

URL useContainer(const char* group) {
  const URL container = URL::fileURL(group, true);
  platform::services().directories.get().setContainerForGroup(FileManager::OmbrixGroupName,
                                                              container);
  return container;
}

int share(const char* group, unsigned rounds) {
  const URL container = useContainer(group);
  const PlistFileStore<std::string> one(container.appendingPathComponent("one", false));
  const PlistKeyedItemStore<std::string> keyed(container.appendingPathComponent("keyed", true));
  constexpr unsigned kKeys = 5;
  for (unsigned i = 0; i < kKeys; ++i) keyed.store(uniform(100, i), std::to_string(i)).get();
  one.setValue(uniform(100, 1));
  for (unsigned i = 0; i < rounds; ++i) {
    const std::string key = std::to_string(i % kKeys);
    if (!isWhole(one.value()) || !isWhole(keyed.value(key).get())) return 1;
    if (i % 3 != 0) continue;
    one.setValue(uniform(50 + i * 37 % 30'000, i));
    keyed.store(uniform(50 + i * 91 % 30'000, i), key).get();
  }
  return 0;
}

int read(const char* file, std::size_t megabytes, const std::string& group) {
  if (group != "-" && !(std::ofstream(group + "/cgroup.procs") << ::getpid() << std::flush)) {
    return 4;
  }
  static_cast<void>(PlistFileStore<int>(URL::fileURL("/nowhere")).value());  // the log has started
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t limit = pages * static_cast<std::size_t>(::getpagesize()) + (megabytes << 20U);
  const rlimit limits{limit, limit};
  if (megabytes > 0) ::setrlimit(RLIMIT_AS, &limits);
  return isWhole(PlistFileStore<std::string>(URL::fileURL(file)).value()) ? 0 : 3;
}

/// A type of which a small object makes much.
struct Wide {
  std::array<char, 1000> unread{};
  std::optional<std::string> name;
  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("name", &Wide::name));
};

/// Items and entries that are read one by one, and one that lies elsewhere in memory.
template <class T>
struct Items {
  std::vector<T> items;
  static Items decode(platform::Decoder& decoder) {
    Items read;
    for (const auto left = decoder.unkeyedContainer(); !left->isAtEnd();) {
      read.items.push_back(left->template decode<T>());
    }
    return read;
  }
};
template <class T>
struct Entries {
  std::map<std::string, T> entries;
  static Entries decode(platform::Decoder& decoder) {
    Entries read;
    const auto container = decoder.container();
    for (const auto& key : container.allKeys()) {
      read.entries.emplace(key, container.template decode<T>(key));
    }
    return read;
  }
};
template <class T>
struct Boxed {
  std::unique_ptr<T> value;
  static Boxed decode(platform::Decoder& decoder) {
    return {std::make_unique<T>(decoder.singleValueContainer()->template decode<T>())};
  }
};

long mostKilobytesSoFar() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

template <class T>
bool decodesWithinBounds(const platform::Data& file, long kilobytesBefore) {
  constexpr long kMostKilobytes = 64L << 10U;
  constexpr std::clock_t kMostTime = (testing::kUnderSanitizer ? 10 : 1) * CLOCKS_PER_SEC;
  const std::clock_t start = std::clock();
  try {
    if constexpr (std::same_as<T, platform::PropertyList>) {
      static_cast<void>(platform::PropertyListSerialization::read(file));
    } else {
      static_cast<void>(platform::PropertyListDecoder().decode<T>(file));
    }
  } catch (const platform::Error&) {
  }
  // A sanitizer keeps what is freed.
  const bool isSmall =
      testing::kUnderSanitizer || mostKilobytesSoFar() - kilobytesBefore < kMostKilobytes;
  return isSmall && std::clock() - start < kMostTime;
}

template <class T>
using Nested = std::vector<std::vector<std::vector<T>>>;

int decode(const char* path) {
  const auto contents = FileManager::defaultManager().contents(URL::fileURL(path));
  if (!contents) return 2;
  const long before = mostKilobytesSoFar();
  const auto allAreBounded = [&]<class... T>() {
    return (decodesWithinBounds<T>(*contents, before) && ...);
  };
  const bool isBounded =
      allAreBounded.operator()<Nested<std::optional<std::string>>, Nested<Wide>,
                               Nested<std::map<std::string, bool>>, Nested<std::set<std::string>>,
                               std::vector<Wide>, platform::PropertyList, Items<Items<Items<Wide>>>,
                               Nested<Boxed<Wide>>, std::vector<Entries<Items<Wide>>>,
                               Nested<Entries<Wide>>, Nested<std::vector<bool>>>();
  return isBounded ? 0 : 1;
}

/// From here on there is no room for the stack of another thread.
void forbidThreads() {
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  rlimit limit{};
  ::getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = pages * static_cast<std::size_t>(::getpagesize()) + (2U << 20U);
  ::setrlimit(RLIMIT_AS, &limit);
}

void occupyPool() {
  static std::atomic<unsigned> count{0};
  for (unsigned i = 8 + std::thread::hardware_concurrency(); i > 0; --i) {
    platform::ThreadPool::shared().post([] {
      while (true) ++count;
    });
  }
}

/// Goes on in a child, whose status the parent gets.
std::optional<int> leaveToChild() {
  const pid_t child = ::fork();
  if (child == 0) return std::nullopt;
  int status = 0;
  return ::waitpid(child, &status, 0) == child ? status : 1;
}

void usePool() {
  std::latch isDone(1);
  platform::ThreadPool::shared().post([&] { isDone.count_down(); });
  isDone.wait();
}

int launch(const char* folder, int others, const char* group, std::string_view state, int first) {
  useContainer(group);
  const URL directory = URL::fileURL(folder, true);
  const Persisted<int> launches{0, directory, "launches"};
  if (state == "threadless" && !testing::kUnderSanitizer) forbidThreads();
  if (state == "busy") occupyPool();
  if (state == "pool") {
    usePool();
    if (const auto status = leaveToChild()) return *status;
  }
  launches.modifyWrappedValue([](int& count) { ++count; });
  if (state == "forked") {
    launches.flush();
    if (const auto status = leaveToChild()) return *status;
  }
  for (int i = 0; i < others; ++i) {
    Persisted<int>(0, directory, "other" + std::to_string(i)).setWrappedValue(first + i);
  }
  const bool isChild = state == "forked" || state == "pool";
  if (isChild) std::_Exit(0);  // what its parent's threads own seems to leak there
  return 0;
}

}  // namespace

int ombrix::agent::stores(int argc, char** argv) {
  if (argc == 3 && std::string_view(argv[1]) == "decode") return decode(argv[2]);
  if (argc == 3 && std::string_view(argv[1]) == "look") return look(argv[2]);
  if (argc < 4) return 2;
  if (std::string_view(argv[1]) == "read") return read(argv[2], std::stoul(argv[3]), argv[4]);
  if (std::string_view(argv[1]) == "share") {
    return share(argv[2], static_cast<unsigned>(std::stoul(argv[3])));
  }
  if (argc == 7 && std::string_view(argv[1]) == "launch") {
    return launch(argv[2], std::stoi(argv[3]), argv[4], argv[5], std::stoi(argv[6]));
  }
  std::vector<std::size_t> sizes;
  for (int i = 3; i < argc; ++i) sizes.push_back(std::stoul(argv[i]));
  return write(argv[2], sizes);
}
