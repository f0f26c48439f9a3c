// Stores while writers are killed, others write too, disks fill or vanish, files are hostile, the
// clock jumps and memory runs short.

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "Faults/FaultRun.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Processes/SmallDisk.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::faults {
namespace {

namespace fs = std::filesystem;
using platform::URL;
using testing::ChildProcess;
using testing::ScopedDir;
using Command = std::vector<std::string>;
using Store = PlistFileStore<std::string>;

/// What several rounds share: the log, whose errors are all expected, and the randomness.
struct Run {
  const Plan& plan;
  Outcomes& outcomes;
  std::mt19937_64 random{plan.seed};
  testing::RecordingLog log{};
};

Store storeAt(const fs::path& path) { return Store(URL::fileURL(path.string())); }

void killedWriters(Run& run) {
  for (const std::size_t size : {200U, 4'096U, 20'000U, 1'000'000U}) {
    const ScopedDir dir;
    const std::string folder = dir.path() / "keyed";
    const PlistKeyedItemStore<std::string> other(URL::fileURL(folder, true));
    other.store("untouched", "other").get();
    for (std::size_t round = run.plan.rounds(4, 500); round > 0; --round) {
      Command command{TEST_AGENT, "stores", "write", folder};
      for (const auto bytes : {size, size, size / 2, size}) {
        command.push_back(std::to_string(bytes));
      }
      ChildProcess writer(command);
      run.outcomes.expect(writer.readLine() == "ready", "a writer starts");
      std::this_thread::sleep_for(std::chrono::microseconds(run.random() % 20'000));
      writer.kill();
      const PlistKeyedItemStore<std::string> store(URL::fileURL(folder, true));
      const bool wasThere = store.exists("k").get();
      const auto value = store.value("k").get();
      const bool isWhole = value && (value->size() == size || value->size() == size / 2) &&
                           value->find_first_not_of(value->front()) == std::string::npos;
      run.outcomes.expect(!value || isWhole, "a killed writer leaves one whole value or none",
                          fmt::format("{} bytes", value.value_or("").size()));
      if (wasThere && !value) run.outcomes.good("a killed writer left a file that was removed");
      run.log.takeErrors();
    }
    run.outcomes.expect(other.value("other").get() == "untouched", "other keys are untouched");
  }
}

void manyProcesses(Run& run) {
  const ScopedDir dir;
  const std::string rounds = std::to_string(run.plan.rounds(200, 20'000));
  std::vector<std::unique_ptr<ChildProcess>> processes;
  for (std::size_t i = run.plan.rounds(3, 8); i > 0; --i) {
    processes.push_back(
        std::make_unique<ChildProcess>(Command{TEST_AGENT, "stores", "share", dir.path(), rounds}));
  }
  for (const auto& process : processes) {
    run.outcomes.expect(process->wait() == 0, "a process saw whole values only, and lost none");
  }
}

/// A writer that overwrites whole and broken files, without coordination, beside readers that
/// remove what is broken.
void removingReaders(Run& run) {
  const ScopedDir dir;
  const auto path = dir.path() / "item";
  const Store store = storeAt(path);
  std::vector<std::unique_ptr<ChildProcess>> readers;
  for (int i = 0; i < 2; ++i) {
    readers.push_back(std::make_unique<ChildProcess>(Command{TEST_AGENT, "stores", "look", path}));
    run.outcomes.expect(readers.back()->readLine() == "ready", "a reader starts");
  }
  for (std::size_t round = run.plan.rounds(500, 20'000); round > 0; --round) {
    if (round % 2 == 0) std::ofstream(path, std::ios::binary) << "broken";
    const std::string text(1 + run.random() % (round % 64 == 0 ? 1'000'000 : 20'000), 'v');
    store.setValue(text);
    run.outcomes.expect(store.value() == text, "a value stays that is stored while others read");
  }
  for (const auto& reader : readers) reader->kill();
  run.log.takeErrors();
}

void badDisks(Run& run) {
  for (std::size_t round = run.plan.rounds(10, 500); round > 0; --round) {
    const testing::SmallDisk disk(256 * 1024);
    if (!disk.isMounted()) return run.outcomes.good("(disks of one's own are not to be had here)");
    const fs::path& folder = disk.folder().path();
    const Store store = storeAt(folder / "item"), fresh = storeAt(folder / "new");
    const std::string old(1 + run.random() % 12'000, 'o');
    store.setValue(old);
    disk.fillUp(run.random() % 3 * 4096);
    const std::string next(1 + run.random() % 30'000, 'n');
    store.setValue(next);
    const bool isSaid = !run.log.takeErrors().empty();
    const auto value = store.value();
    run.outcomes.expect(value == (isSaid ? old : next),
                        isSaid ? "a full disk keeps the old value and says so"
                               : "a nearly full disk takes the new value");
    fresh.setValue(std::string(20'000, 'n'));
    run.outcomes.expect(fresh.exists() == run.log.takeErrors().empty(),
                        "a full disk gets no half of a file");
    fresh.purge();
    ::mount(nullptr, folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr);
    store.setValue("x");
    store.purge();
    run.outcomes.expect(run.log.takeErrors().size() == 2 && store.value() == value,
                        "a read-only disk keeps its value and says so");
    ::umount2(folder.c_str(), MNT_DETACH);
    run.outcomes.expect(!store.value() && !run.log.takeErrors().empty(),
                        "a disk that has gone gives nothing and says so");
    store.setValue("elsewhere");
    run.outcomes.expect(store.value() == "elsewhere", "what is stored then goes where it can");
  }
}

std::string bigEndian(std::uint64_t value, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = size; i > 0; --i, value >>= 8U) bytes[i - 1] = static_cast<char>(value);
  return bytes;
}

/// A property list of containers with many references each, to the ones behind them or anywhere.
std::string hostileList(std::mt19937_64& random) {
  const std::string leaves[] = {"\x55$null",
                                "\x50",
                                "\xD0",
                                "\xA0",
                                std::string("\x09"),
                                "\x5F\x10\x40" + std::string(64, 'x')};
  std::vector<std::string> objects;
  const std::size_t levels = 2 + random() % 4, fan = 1'000 + random() % 9'000;
  const bool isTangled = random() % 4 == 0;
  for (std::size_t level = 0; level < levels; ++level) {
    const bool isDictionary = random() % 3 == 0;
    std::string object(1, isDictionary ? '\xDF' : '\xAF');
    object += "\x11" + bigEndian(fan, 2);
    for (std::size_t i = 0; i < fan * (isDictionary ? 2 : 1); ++i) {
      const bool isKey = isDictionary && i < fan;
      const std::uint64_t next = isTangled ? random() % (levels + 2) : level + 1;
      object += bigEndian(isKey ? levels + 1 : next, 2);
    }
    objects.push_back(object);
  }
  objects.push_back(leaves[random() % std::size(leaves)]);
  const std::string keys[] = {"\x50", "\x54name",
                              "\x5F\x11" + bigEndian(20'000, 2) + std::string(20'000, 'k')};
  objects.push_back(keys[random() % std::size(keys)]);
  std::string file = "bplist00", table;
  for (const auto& object : objects) {
    table += bigEndian(file.size(), 4);
    file += object;
  }
  const std::size_t tableAt = file.size();
  return file + table + std::string(6, '\0') + "\x04\x02" + bigEndian(objects.size(), 8) +
         bigEndian(0, 8) + bigEndian(tableAt, 8);
}

void hostileLists(Run& run) {
  const ScopedDir dir;
  for (std::size_t round = run.plan.rounds(5, 300); round > 0; --round) {
    const auto file = dir.write("list", hostileList(run.random));
    ChildProcess agent({TEST_AGENT, "stores", "decode", file});
    const int status = agent.wait();
    run.outcomes.expect(status == 0, "a hostile list ends within 64 MiB and a second",
                        fmt::format("round {}, status {}", round, status));
    const bool isRead = storeAt(file).value().has_value();
    run.outcomes.expect(!isRead && !fs::exists(file) && !run.log.takeErrors().empty(),
                        "a hostile list is removed and said");
  }
}

void jumpingClock(Run& run) {
  const ScopedDir dir;
  const PlistKeyedItemStore<std::string> store(URL::fileURL(dir.path().string(), true));
  for (std::size_t round = run.plan.rounds(20, 2'000); round > 0; --round) {
    constexpr std::int64_t kSpanSeconds = 400 * 86'400;
    const auto jump = static_cast<std::int64_t>(run.random() % (2 * kSpanSeconds)) - kSpanSeconds;
    const std::string key = std::to_string(run.random() % 10);
    store.store(key, key).get();
    fs::last_write_time(dir.path() / (key + ".data"),
                        fs::file_time_type::clock::now() + std::chrono::seconds(jump));
    const auto age = store.age(key).get();
    run.outcomes.expect(age && std::abs(*age - std::abs(static_cast<double>(jump))) < 600,
                        "an age is the distance, forwards and back");
    store.purgeOldest(3).get();
    run.outcomes.expect(store.value(key).get() == key, "a value outlives the clock");
  }
}

/// A control group that may hold so much memory; empty where none can be made.
std::string makeControlGroup(std::size_t megabytes) {
  for (const char* root : {"/sys/fs/cgroup", "/sys/fs/cgroup/memory"}) {
    const std::string group = fmt::format("{}/ombrix-stores-{}", root, ::getpid());
    std::error_code error;
    if (!fs::create_directory(group, error)) continue;
    for (const char* name : {"/memory.max", "/memory.limit_in_bytes"}) {
      if (!fs::exists(group + name)) continue;
      if (std::ofstream(group + name) << (megabytes << 20U) << std::flush) return group;
    }
    fs::remove(group, error);
  }
  return {};
}

void shortMemory(Run& run) {
  const ScopedDir dir;
  const auto path = dir.path() / "large";
  const std::string large((run.plan.isLong ? 200U : 20U) << 20U, 'l');
  storeAt(path).setValue(large);
  const auto megabytes = large.size() >> 20U;
  const auto read = [&](std::size_t limit, const std::string& group) {
    ChildProcess agent({TEST_AGENT, "stores", "read", path, std::to_string(limit), group});
    const int status = agent.wait();
    // In a group the kernel ends the process (-1); it must have been in it.
    const bool isWithout =
        group == "-" ? status != 0 || limit >= megabytes : status == -1 || status == 3;
    run.outcomes.expect(isWithout, "too little memory gives nothing",
                        fmt::format("{} MiB more, group {}, status {}", limit, group, status));
    run.outcomes.expect(fs::file_size(path) > large.size(), "a file outlives the lack of memory");
  };
  for (std::size_t i = run.plan.rounds(4, 40); i > 0; --i) {
    read(1 + run.random() % (3 * megabytes), "-");
  }
  const std::string group = makeControlGroup(megabytes / 2);
  if (group.empty()) {
    run.outcomes.good("(no control group can be made here)");
  } else {
    read(0, group);
    std::error_code ignored;
    fs::remove(group, ignored);
  }
  run.outcomes.expect(storeAt(path).value() == large, "and is read when there is memory again");
}

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  Run run{plan, outcomes};
  killedWriters(run);
  manyProcesses(run);
  removingReaders(run);
  badDisks(run);
  hostileLists(run);
  jumpingClock(run);
  // The sanitizers' own memory counts, too, and they may stop in the middle of saying so.
  if (!testing::kUnderSanitizer) shortMemory(run);
  run.log.takeErrors();
}

}  // namespace ombrix::faults
