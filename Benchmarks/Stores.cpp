// One file per key of 200 bytes: read and overwritten through the keyed store beside SQLite, LMDB
// and plain file calls; memory stores of 1,000 to 100,000 items beside a map and a mutex, where
// room is made by sorting.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <lmdb.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "OmbrixCore/Data/Stores/DataKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/InMemoryKeyedStore.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

using platform::Data;
using platform::URL;
using testing::ScopedDir;

constexpr std::size_t kItems = 1000;
constexpr std::size_t kItemBytes = 200;

const std::vector<std::string>& keys() {
  static const auto& made = *[] {
    auto* names = new std::vector<std::string>;
    for (std::size_t i = 0; i < kItems; ++i) names->push_back("key" + std::to_string(i));
    return names;
  }();
  return made;
}

Data item(std::size_t i) { return Data(kItemBytes, static_cast<std::byte>(i % 251 + 1)); }

void check(bool isWell, const char* what) {
  if (isWell) return;
  std::fprintf(stderr, "stores: %s\n", what);
  std::abort();
}

class Ours {
 public:
  explicit Ours(const ScopedDir& dir)
      : store_(URL::fileURL((dir.path() / "ours").string(), true), "data") {}

  Data get(const std::string& key) const { return *store_.value(key).get(); }
  void put(const std::string& key, const Data& bytes) const { store_.store(bytes, key).get(); }

 private:
  DataKeyedItemStore store_;
};

/// What a careful program writes by hand: the folder is open, the old value cut off afterwards.
class PlainFiles {
 public:
  explicit PlainFiles(const ScopedDir& dir) {
    std::filesystem::create_directory(dir.path() / "plain");
    folder_ = ::open((dir.path() / "plain").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }
  ~PlainFiles() { ::close(folder_); }
  PlainFiles(const PlainFiles&) = delete;
  PlainFiles& operator=(const PlainFiles&) = delete;

  Data get(const std::string& key) const {
    const int file = ::openat(folder_, key.c_str(), O_RDONLY | O_CLOEXEC);
    Data bytes(4096);
    const auto count = ::read(file, bytes.data(), bytes.size());
    ::close(file);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  void put(const std::string& key, const Data& bytes) const { write(key, bytes, 0); }

 protected:
  void write(const std::string& key, const Data& bytes, int flags) const {
    const int file = ::openat(folder_, key.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666);
    check(::pwrite(file, bytes.data(), bytes.size(), 0) == ssize_t{kItemBytes}, "pwrite");
    check(::ftruncate(file, ssize_t{kItemBytes}) == 0, "ftruncate");
    ::close(file);
  }

 private:
  int folder_;
};

class TruncatedFiles : public PlainFiles {
 public:
  using PlainFiles::PlainFiles;
  void put(const std::string& key, const Data& bytes) const { write(key, bytes, O_TRUNC); }
};

class SQLite {
 public:
  explicit SQLite(const ScopedDir& dir) {
    check(sqlite3_open((dir.path() / "sqlite").c_str(), &database_) == SQLITE_OK, "sqlite");
    sqlite3_exec(database_,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;"
                 "CREATE TABLE items (key TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID",
                 nullptr, nullptr, nullptr);
    get_ = prepare("SELECT value FROM items WHERE key = ?");
    put_ = prepare("INSERT OR REPLACE INTO items VALUES (?, ?)");
  }
  ~SQLite() {
    sqlite3_finalize(get_);
    sqlite3_finalize(put_);
    sqlite3_close(database_);
  }
  SQLite(const SQLite&) = delete;
  SQLite& operator=(const SQLite&) = delete;

  Data get(const std::string& key) const {
    bind(get_, key);
    check(sqlite3_step(get_) == SQLITE_ROW, "sqlite get");
    const auto* bytes = static_cast<const std::byte*>(sqlite3_column_blob(get_, 0));
    Data value(bytes, bytes + sqlite3_column_bytes(get_, 0));
    sqlite3_reset(get_);
    return value;
  }
  void put(const std::string& key, const Data& bytes) const {
    bind(put_, key);
    sqlite3_bind_blob(put_, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
    check(sqlite3_step(put_) == SQLITE_DONE, "sqlite put");
    sqlite3_reset(put_);
  }

 private:
  sqlite3_stmt* prepare(const char* text) const {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database_, text, -1, &statement, nullptr) == SQLITE_OK, text);
    return statement;
  }
  static void bind(sqlite3_stmt* statement, const std::string& key) {
    sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt *get_ = nullptr, *put_ = nullptr;
};

class LMDB {
 public:
  explicit LMDB(const ScopedDir& dir) {
    std::filesystem::create_directory(dir.path() / "lmdb");
    mdb_env_create(&environment_);
    mdb_env_set_mapsize(environment_, 1U << 26U);
    check(mdb_env_open(environment_, (dir.path() / "lmdb").c_str(), MDB_NOSYNC, 0666) == 0, "lmdb");
    MDB_txn* transaction = nullptr;
    mdb_txn_begin(environment_, nullptr, 0, &transaction);
    mdb_dbi_open(transaction, nullptr, 0, &items_);
    mdb_txn_commit(transaction);
  }
  ~LMDB() { mdb_env_close(environment_); }
  LMDB(const LMDB&) = delete;
  LMDB& operator=(const LMDB&) = delete;

  Data get(const std::string& key) const {
    MDB_txn* transaction = nullptr;
    MDB_val name = valueOf(key.data(), key.size()), found{};
    mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction);
    check(mdb_get(transaction, items_, &name, &found) == 0, "lmdb get");
    const auto* bytes = static_cast<const std::byte*>(found.mv_data);
    Data value(bytes, bytes + found.mv_size);
    mdb_txn_abort(transaction);
    return value;
  }
  void put(const std::string& key, const Data& bytes) const {
    MDB_txn* transaction = nullptr;
    MDB_val name = valueOf(key.data(), key.size());
    MDB_val value = valueOf(bytes.data(), bytes.size());
    mdb_txn_begin(environment_, nullptr, 0, &transaction);
    check(mdb_put(transaction, items_, &name, &value, 0) == 0, "lmdb put");
    mdb_txn_commit(transaction);
  }

 private:
  static MDB_val valueOf(const void* bytes, std::size_t size) {
    return {size, const_cast<void*>(bytes)};
  }

  MDB_env* environment_ = nullptr;
  MDB_dbi items_ = 0;
};

/// A store of the kind with all items in it, checked.
template <class Kind>
struct Filled {
  Filled() : store(dir) {
    for (std::size_t i = 0; i < kItems; ++i) store.put(keys()[i], item(i + 1));
    for (std::size_t i = 0; i < kItems; ++i) store.put(keys()[i], item(i));
    for (std::size_t i = 0; i < kItems; ++i) check(store.get(keys()[i]) == item(i), "disagreement");
  }
  ScopedDir dir;
  Kind store;
};

template <class Kind>
void get(benchmark::State& state) {
  const Filled<Kind> filled;
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(filled.store.get(keys()[++i % kItems]));
}

template <class Kind>
void put(benchmark::State& state) {
  const Filled<Kind> filled;
  const Data bytes = item(7);
  std::size_t i = 0;
  for (auto _ : state) filled.store.put(keys()[++i % kItems], bytes);
}

#define KEYED_FILES(kind, name)                 \
  BENCHMARK(get<kind>)->Name("file_get/" name); \
  BENCHMARK(put<kind>)->Name("file_put/" name)
KEYED_FILES(Ours, "ours");
KEYED_FILES(SQLite, "sqlite");
KEYED_FILES(LMDB, "lmdb");
KEYED_FILES(PlainFiles, "pwrite-ftruncate");
KEYED_FILES(TruncatedFiles, "open-truncate");

/// A map under a mutex; room is made by sorting all entries by date.
class SortedMap {
 public:
  explicit SortedMap(std::size_t limit) : limit_(limit) {}

  void put(std::string key, int value) {
    const std::lock_guard lock(mutex_);
    if (items_.size() >= limit_) {
      std::vector<std::pair<platform::Date, const std::string*>> ages;
      ages.reserve(items_.size());
      for (const auto& [name, entry] : items_) ages.emplace_back(entry.second, &name);
      std::ranges::sort(ages);
      items_.erase(std::string(*ages.front().second));
    }
    items_[std::move(key)] = {value, platform::services().clock.get().now()};
  }
  std::optional<int> get(const std::string& key) const {
    const std::lock_guard lock(mutex_);
    const auto found = items_.find(key);
    if (found == items_.end()) return std::nullopt;
    return found->second.first;
  }

 private:
  mutable std::mutex mutex_;
  const std::size_t limit_;
  std::unordered_map<std::string, std::pair<int, platform::Date>> items_;
};

class OurMemory {
 public:
  explicit OurMemory(std::size_t limit) : store_(static_cast<std::int64_t>(limit)) {}
  void put(std::string key, int value) const { store_.store(value, std::move(key)).get(); }
  std::optional<int> get(const std::string& key) const { return store_.value(key).get(); }

 private:
  InMemoryKeyedStore<int> store_;
};

std::string memoryKey(std::size_t i) { return "a key of some length " + std::to_string(i); }

template <class Kind>
void memoryGet(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Kind store(count);
  for (std::size_t i = 0; i < count; ++i) store.put(memoryKey(i), static_cast<int>(i));
  std::vector<std::string> names;
  for (std::size_t i = 0; i < 1000; ++i) names.push_back(memoryKey(i * 7919 % count));
  check(store.get(memoryKey(5)) == 5, "disagreement");
  std::size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(store.get(names[++i % 1000]));
}

/// A new item into a full store.
template <class Kind>
void memoryEvict(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Kind store(count);
  std::size_t i = 0;
  while (i < (std::is_same_v<Kind, SortedMap> ? count : 2 * count)) {
    store.put(memoryKey(i), static_cast<int>(i));
    ++i;
  }
  for (auto _ : state) {
    store.put(memoryKey(i), 1);
    ++i;
  }
}

BENCHMARK(memoryGet<OurMemory>)->Name("memory_get/ours")->Arg(10'000);
BENCHMARK(memoryGet<SortedMap>)->Name("memory_get/map-and-mutex")->Arg(10'000);
BENCHMARK(memoryEvict<OurMemory>)->Name("memory_evict/ours")->Arg(1000)->Arg(10'000)->Arg(100'000);
BENCHMARK(memoryEvict<SortedMap>)->Name("memory_evict/sorted-map")->Arg(1000)->Arg(10'000);

}  // namespace
}  // namespace ombrix
