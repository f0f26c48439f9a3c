#include "OmbrixPlatform/Network/Caching/Detail/SqliteURLCacheFile.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <thread>
#include <utility>

#include "OmbrixPlatform/Detail/MadeFile.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::int64_t kPageBytes = 4096;   // larger ones read no faster and waste more
constexpr std::int64_t kSchemaVersion = 1;  // in user_version
constexpr std::int64_t kMostUses = std::int64_t{1} << 62;
constexpr std::int64_t kMostVariants = 32;
constexpr std::int64_t kSharedMemoryBytes = 32 << 10;  // of the file beside the log

// The database keeps these texts to the letter, spaces included, and is recognised by them.
constexpr std::array<std::string_view, 6> kSchema{
    R"sql(CREATE TABLE entry(id INTEGER PRIMARY KEY, hash INTEGER NOT NULL, used INTEGER NOT NULL,
                   size INTEGER NOT NULL, record BLOB NOT NULL))sql",
    "CREATE INDEX entry_hash ON entry(hash)",
    "CREATE INDEX entry_used ON entry(used, size)",
    "CREATE TABLE body(id INTEGER PRIMARY KEY, data BLOB NOT NULL)",
    "CREATE TABLE total(id INTEGER PRIMARY KEY CHECK(id = 1), uses INTEGER NOT NULL)",
    R"sql(CREATE TRIGGER entry_removed AFTER DELETE ON entry BEGIN
  DELETE FROM body WHERE id = old.id;
END)sql"};

void createSchema(SqliteConnection& connection) {
  connection.execute(fmt::format("BEGIN IMMEDIATE; {}; INSERT INTO total VALUES(1, 0);"
                                 "PRAGMA user_version = {}; COMMIT",
                                 fmt::join(kSchema, ";"), kSchemaVersion)
                         .c_str());
}

/// Whether we made the database and it holds nothing else: foreign triggers would run at our
/// changes.
bool hasSchema(SqliteConnection& connection) {
  if (connection.integer("PRAGMA user_version") != kSchemaVersion) return false;
  SqliteStatement texts = connection.prepare("SELECT sql FROM sqlite_master");
  std::size_t count = 0;
  for (; texts.step(); ++count) {
    if (std::ranges::find(kSchema, textOf(texts.bytes(0))) == kSchema.end()) return false;
  }
  return count == kSchema.size();
}

/// How many bytes of pages a row takes: what does not fit into its leaf lies in whole pages of its
/// own (the database file format's section 1.6).
constexpr std::int64_t rowBytes(std::int64_t payload) noexcept {
  constexpr std::int64_t kMostLocal = kPageBytes - 35;
  constexpr std::int64_t kLeastLocal = (kPageBytes - 12) * 32 / 255 - 23;
  constexpr std::int64_t kOverflowBytes = kPageBytes - 4;
  constexpr std::int64_t kAround = 12;
  if (payload <= kMostLocal) return payload + kAround;
  const std::int64_t rest = kLeastLocal + (payload - kLeastLocal) % kOverflowBytes;
  const std::int64_t local = rest <= kMostLocal ? rest : kLeastLocal;
  return local + kAround + (payload - local) / kOverflowBytes * kPageBytes;
}

std::int64_t entryBytes(std::size_t record, std::size_t body) noexcept {
  constexpr std::int64_t kNumbers = 40;
  constexpr std::int64_t kIndexes = 48;
  return rowBytes(static_cast<std::int64_t>(record) + kNumbers) +
         rowBytes(static_cast<std::int64_t>(body) + kNumbers) + kIndexes;
}

/// Whether a database that is not ours is a later release's, and in use.
bool isOfLaterRelease(SqliteConnection& connection) {
  if (connection.integer("PRAGMA user_version") <= kSchemaVersion) return false;
  try {
    connection.execute("PRAGMA journal_mode = DELETE");  // fails while another connection is open
    return false;
  } catch (const SqliteFailure& failure) {
    return failure.isBusy();
  }
}

// The mode of a database that was set aside, by which those who have it open know.
constexpr mode_t kSetAside = S_IRUSR | S_IWUSR | S_ISVTX;

[[noreturn]] void failDamaged() { throw SqliteFailure{SQLITE_CORRUPT}; }

}  // namespace

DiskBudget::DiskBudget(std::int64_t capacity) noexcept {
  constexpr std::int64_t kMostLogBytes = 4 << 20;
  constexpr std::int64_t kMostBatchBytes = 512 << 10;
  constexpr std::int64_t kPagesOfARow = 4;
  log = std::min(capacity / 16, kMostLogBytes);
  rows = std::max<std::int64_t>(log / kPageBytes / kPagesOfARow, 1);
  batch = std::min(capacity / 32, kMostBatchBytes);
  entry = capacity / 20;
  // The log may grow by one transaction beyond its limit.
  database = capacity - log - std::max(log, batch + entry) - kSharedMemoryBytes;
}

/// A connection with its statements.
struct SqliteURLCacheFile::Open {
  explicit Open(SqliteConnection opened)
      : connection(std::move(opened)),
        select(connection.prepare("SELECT id, record FROM entry WHERE hash = ? ORDER BY id DESC")),
        selectBody(connection.prepare("SELECT data FROM body WHERE id = ?")),
        total(connection.prepare("SELECT uses FROM total")),
        insert(connection.prepare("INSERT INTO entry(hash, used, size, record) VALUES(?, ?, ?, ?)"
                                  " RETURNING id")),
        insertBody(connection.prepare("INSERT OR REPLACE INTO body(id, data) VALUES(?, ?)")),
        remove(connection.prepare("DELETE FROM entry WHERE id = ?")),
        touch(connection.prepare("UPDATE entry SET used = ? WHERE id = ? AND hash = ?")),
        touchAll(connection.prepare("UPDATE entry SET used = ? WHERE hash = ?")),
        setUses(connection.prepare("UPDATE total SET uses = ?")),
        oldest(connection.prepare("SELECT used, size FROM entry ORDER BY used")),
        evict(connection.prepare("DELETE FROM entry WHERE used <= ?")),
        pages(connection.prepare("PRAGMA page_count")),
        freePages(connection.prepare("PRAGMA freelist_count")),
        begin(connection.prepare("BEGIN IMMEDIATE")),
        commit(connection.prepare("COMMIT")) {}

  SqliteConnection connection;
  SqliteStatement select, selectBody, total, insert, insertBody, remove, touch, touchAll, setUses,
      oldest, evict, pages, freePages, begin, commit;
  std::int64_t uses = 0;  // the sequence of uses, within a transaction
};

void SqliteURLCacheFile::CloseOpen::operator()(Open* open) const noexcept { delete open; }

SqliteURLCacheFile::SqliteURLCacheFile(const std::string& folder, const DiskBudget& budget,
                                       int busyMilliseconds)
    : folder_(folder),
      path_(folder + "/Cache.db"),
      budget_(budget),
      busyMilliseconds_(busyMilliseconds) {}

// Opening, clearing, setting aside: one connection of all processes at a time.

int SqliteURLCacheFile::patienceMilliseconds() const noexcept {
  return isHurried_ ? 0 : busyMilliseconds_;
}

Descriptor SqliteURLCacheFile::lock() {
  // Other users need not know what was asked.
  if (makeFolder(folder_, S_IRWXU) == ENOENT) {
    const auto above = std::filesystem::path(folder_).parent_path();
    (void)FileManager::defaultManager().createDirectory(URL::fileURL(above.string(), true), true);
    (void)makeFolder(folder_, S_IRWXU);
  }
  Descriptor file = openOrMakeFile(folder_ + "/Cache.lock", O_RDWR);
  if (!file) throw SqliteFailure{SQLITE_CANTOPEN};
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMilliseconds());
  while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (std::chrono::steady_clock::now() >= deadline) throw SqliteFailure{SQLITE_BUSY};
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return file;
}

void SqliteURLCacheFile::removeFiles() const noexcept {
  for (const char* suffix : {"", "-wal", "-shm"}) ::unlink((path_ + suffix).c_str());
}

void SqliteURLCacheFile::rename() const noexcept {
  (void)::chmod(path_.c_str(), kSetAside);
  ::rename(path_.c_str(), (path_ + ".damaged").c_str());
  removeFiles();
}

void SqliteURLCacheFile::open() {
  const Descriptor locked = lock();
  ::unlink((folder_ + "/Cache.keys").c_str());  // an index that earlier releases kept here
  for (int attempt = 0;; ++attempt) {
    // A log without its database: a program was killed while it cleared the cache.
    if (!identity()) removeFiles();
    (void)makeFile(path_, O_RDWR);  // of which SQLite makes the database
    try {
      SqliteConnection connection(path_, patienceMilliseconds());
      connection.execute(fmt::format("PRAGMA page_size = {}", kPageBytes).c_str());
      connection.execute("PRAGMA journal_mode = WAL");
      connection.execute(
          fmt::format("PRAGMA synchronous = OFF; PRAGMA trusted_schema = OFF;"
                      "PRAGMA cell_size_check = ON; PRAGMA temp_store = MEMORY;"
                      "PRAGMA journal_size_limit = {}; PRAGMA wal_autocheckpoint = {}",
                      budget_.log, budget_.log / kPageBytes)
              .c_str());
      if (connection.integer("SELECT count(*) FROM sqlite_master") == 0) {
        createSchema(connection);
      } else if (!hasSchema(connection)) {
        if (isOfLaterRelease(connection)) throw SqliteFailure{SqliteFailure::kIsOfLaterRelease};
        throw SqliteFailure{SQLITE_NOTADB};
      }
      if (connection.integer("PRAGMA page_count") * kPageBytes > budget_.database + budget_.entry) {
        // It was made for a larger budget, and a file only shrinks when all of it is rewritten.
        if (attempt > 0) throw SqliteFailure{SQLITE_READONLY};  // it cannot be removed
        removeFiles();
        continue;
      }
      connection.setPatience(busyMilliseconds_);
      isHurried_ = false;
      open_.reset(new Open(std::move(connection)));
      identity_ = identity().value_or(FileIdentity{});
      held_ = openFile(path_, O_PATH);
      ++openings_;
      return;
    } catch (const SqliteFailure& failure) {
      const bool isForeign = failure.isDamage() || failure.code == SQLITE_ERROR;
      if (!isForeign || attempt > 0) throw;
      rename();
    }
  }
}

void SqliteURLCacheFile::openAnew() {
  if (open_ && identity() == identity_) return;
  open_.reset();
  open();
}

bool SqliteURLCacheFile::openExisting() {
  if (open_ && isInPlace()) return true;
  open_.reset();
  const bool isThere = identity().has_value();
  if (isThere) open();
  return isThere;
}

/// Whether the open database is still the file under its path. Every look-up asks this of a
/// descriptor, which costs a third of asking by path. The descriptor serves nothing else, since
/// closing another one of the file would release SQLite's locks.
bool SqliteURLCacheFile::isInPlace() const noexcept {
  struct stat status{};
  if (!held_) return identity() == identity_;
  return ::fstat(held_.get(), &status) == 0 && status.st_nlink > 0 &&
         (status.st_mode & S_ISVTX) == 0;
}

void SqliteURLCacheFile::close() noexcept { open_.reset(); }

void SqliteURLCacheFile::clear() {
  open_.reset();
  if (!identity()) return;
  const Descriptor locked = lock();
  removeFiles();
  ::unlink((path_ + ".damaged").c_str());
  if (identity()) throw SqliteFailure{SQLITE_READONLY};
}

void SqliteURLCacheFile::setAside() {
  const bool wasOpen = open_ != nullptr;
  open_.reset();
  const Descriptor locked = lock();
  if (wasOpen && identity() == identity_) rename();
}

// Reading.

CachedAnswerPointer SqliteURLCacheFile::find(const std::string& key, const HTTPHeaders& request,
                                             Use& use) {
  if (!openExisting()) return nullptr;
  Open& open = *open_;
  const std::int64_t hash = hashOf(key);
  const SqliteReset reset(open.select);
  open.select.bind(1, hash);
  while (open.select.step()) {
    const auto head = readHead(open.select.bytes(1));
    if (!head) failDamaged();
    if (head->key != key || !selects(head->selecting, request)) continue;
    auto body = readBody(*head);
    if (!body) failDamaged();
    use = {.id = open.select.integer(0), .hash = hash};
    // Read while the first statement is open, which holds the snapshot.
    const SqliteReset resetBody(open.selectBody);
    if (!open.selectBody.bind(1, use.id).step()) failDamaged();
    const DataView bytes = open.selectBody.bytes(0);
    if (bytes.size() != body->bodyBytes || checksumOf(bytes) != body->bodyChecksum) failDamaged();
    SelectingFields selecting;
    for (const auto& [name, digest] : head->selecting) {
      const auto value = request.value(name);
      selecting.push_back(
          {std::string(name), value ? std::optional<std::string>(*value) : std::nullopt});
    }
    const auto freshness =
        freshnessOf(body->response->statusCode(), body->response->headers(), body->times);
    return std::make_shared<const CachedAnswer>(
        CachedAnswer{.key = key,
                     .selecting = std::move(selecting),
                     .times = body->times,
                     .freshness = freshness,
                     .answer = {std::move(body->response),
                                std::make_shared<const Data>(bytes.begin(), bytes.end())}});
  }
  return nullptr;
}

bool SqliteURLCacheFile::mayContain(std::string_view key) {
  if (!openExisting()) return false;
  const SqliteReset reset(open_->select);
  return open_->select.bind(1, hashOf(key)).step();
}

std::int64_t SqliteURLCacheFile::usage() { return openExisting() ? bytesInUse() : 0; }

std::int64_t SqliteURLCacheFile::bytesInUse() {
  const SqliteReset resetPages(open_->pages);
  const SqliteReset resetFree(open_->freePages);
  open_->pages.step();
  open_->freePages.step();
  const std::int64_t pages = open_->pages.integer(0), free = open_->freePages.integer(0);
  if (free < 0 || free > pages) failDamaged();
  return (pages - free) * kPageBytes;
}

// Changing.

void SqliteURLCacheFile::begin() {
  constexpr int kMostAttempts = 4;
  // The database may have been replaced before the transaction began; then nobody would see the
  // change.
  for (int attempt = 1;; ++attempt) {
    openAnew();
    open_->begin.run();
    if (identity() == identity_) break;
    open_->connection.execute("ROLLBACK");
    if (attempt == kMostAttempts) throw SqliteFailure{SQLITE_CANTOPEN};
  }
  const SqliteReset reset(open_->total);
  if (!open_->total.step()) failDamaged();
  open_->uses = open_->total.integer(0);
  if (open_->uses < 0 || open_->uses > kMostUses) failDamaged();
}

void SqliteURLCacheFile::commit() {
  open_->setUses.bind(1, open_->uses).run();
  open_->commit.run();
}

void SqliteURLCacheFile::put(const CachedAnswer& answer, const HTTPHeaders& request) {
  const std::int64_t hash = hashOf(answer.key);
  std::vector<std::int64_t> replaced;
  {
    std::int64_t variants = 0;
    const SqliteReset reset(open_->select);
    open_->select.bind(1, hash);
    while (open_->select.step()) {
      const auto head = readHead(open_->select.bytes(1));
      if (!head) failDamaged();
      if (head->key != answer.key) continue;
      const bool isSurplus = ++variants >= kMostVariants;
      if (isSurplus || selects(head->selecting, request)) {
        replaced.push_back(open_->select.integer(0));
      }
    }
  }
  for (const std::int64_t id : replaced) open_->remove.bind(1, id).run();

  const Data record = recordOf(answer);
  const std::int64_t bytes = entryBytes(record.size(), answer.answer.data->size());
  if (bytes > budget_.entry) return;
  // Room was made before; another process may have used it up meanwhile.
  const std::int64_t surplus = bytesInUse() + bytes - budget_.database;
  if (surplus > 0) evict(surplus);
  std::int64_t id = 0;
  {
    const SqliteReset reset(open_->insert);
    open_->insert.bind(1, hash).bind(2, ++open_->uses).bind(3, bytes).bind(4, DataView(record));
    if (open_->insert.step()) id = open_->insert.integer(0);
    while (open_->insert.step()) {
    }
  }
  open_->insertBody.bind(1, id).bind(2, DataView(*answer.answer.data)).run();
}

void SqliteURLCacheFile::remove(std::string_view key) {
  std::vector<std::int64_t> removed;
  {
    const SqliteReset reset(open_->select);
    open_->select.bind(1, hashOf(key));
    while (open_->select.step()) {
      const auto head = readHead(open_->select.bytes(1));
      if (!head) failDamaged();
      if (head->key == key) removed.push_back(open_->select.integer(0));
    }
  }
  for (const std::int64_t id : removed) open_->remove.bind(1, id).run();
}

void SqliteURLCacheFile::touch(const Use& use) {
  open_->touch.bind(1, ++open_->uses).bind(2, use.id).bind(3, use.hash).run();
}

// Making room.

void SqliteURLCacheFile::makeRoom(std::int64_t bytes,
                                  const std::function<std::vector<std::string>()>& keysInUse) {
  openAnew();
  if (bytesInUse() + bytes <= budget_.database) return;
  touchAll(keysInUse());
  const std::int64_t goal = budget_.database / 10 * 9 - bytes;
  // Removed rows may free no page yet, so the pages in use are counted each time.
  for (std::int64_t surplus = 0; (surplus = bytesInUse() - goal) > 0;) {
    begin();
    const bool isAny = evict(surplus);
    commit();
    if (!isAny) return;
  }
}

void SqliteURLCacheFile::touchAll(const std::vector<std::string>& keys) {
  std::int64_t left = 0;
  for (const std::string& key : keys) {
    if (left == 0) begin();
    open_->touchAll.bind(1, ++open_->uses).bind(2, hashOf(key)).run();
    if (++left < budget_.rows) continue;
    commit();
    left = 0;
  }
  if (left > 0) commit();
}

bool SqliteURLCacheFile::evict(std::int64_t bytes) {
  std::int64_t last = 0;
  std::int64_t rows = 0;
  {
    const SqliteReset reset(open_->oldest);
    while (bytes > 0 && rows < budget_.rows && open_->oldest.step()) {
      last = open_->oldest.integer(0);
      bytes -= std::clamp<std::int64_t>(open_->oldest.integer(1), 0, bytes);
      ++rows;
    }
  }
  open_->evict.bind(1, last).run();
  // Rows that are not in the order of their numbers would be tried for ever.
  if (rows > 0 && open_->connection.changes() == 0) failDamaged();
  return rows > 0;
}

}  // namespace ombrix::platform::detail
