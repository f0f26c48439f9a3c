#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswer.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswerCoding.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/FileIdentity.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/SqliteConnection.hpp"

namespace ombrix::platform::detail {

/// How a cache divides the bytes that it may take on disk.
struct DiskBudget {
  explicit DiskBudget(std::int64_t capacity) noexcept;

  /// Whether there is room for anything at all.
  [[nodiscard]] bool isEnough() const noexcept { return database >= kLeastBytes; }

  std::int64_t database = 0;  ///< bytes of pages in use, at most
  std::int64_t log = 0;       ///< bytes of the write-ahead log before it is written back
  std::int64_t entry = 0;     ///< bytes of one answer, at most: a twentieth of the capacity
  std::int64_t batch = 0;     ///< bytes written in one transaction, apart from its last answer
  std::int64_t rows = 0;      ///< rows changed in one transaction when there are many to change

  static constexpr std::int64_t kLeastBytes = 128 << 10;
};

/// One connection to the database of answers in a folder that several may share. It opens by
/// itself, and again when another connection has put a new file in place. It does not touch a
/// database that a later release has open. Failures are thrown as `SqliteFailure`; one thread at a
/// time.
class SqliteURLCacheFile {
 public:
  SqliteURLCacheFile(const std::string& folder, const DiskBudget& budget, int busyMilliseconds);

  /// Opens the database if there is one; false when there is none. One whose folder was moved stays
  /// open until the next change.
  bool openExisting();

  /// How many times it has opened.
  [[nodiscard]] std::uint64_t openings() const noexcept { return openings_; }

  // Reading: nothing where there is no database.

  struct Use {
    std::int64_t id, hash;
  };

  /// The answer that the request selects.
  CachedAnswerPointer find(const std::string& key, const HTTPHeaders& request, Use& use);

  /// Whether there is any answer to a URL, or one whose URL has the same hash.
  [[nodiscard]] bool mayContain(std::string_view key);

  /// Bytes of pages in use, as the file's header counts them.
  [[nodiscard]] std::int64_t usage();

  /// Makes room for this many bytes where they do not fit: evicts the least recently used answers,
  /// down to nine tenths of the budget, in transactions that the log has room for.
  /// @param keysInUse Asked first for what memory knows to be in use, in that order.
  void makeRoom(std::int64_t bytes, const std::function<std::vector<std::string>()>& keysInUse);

  // Changes, each inside a transaction.

  void begin();
  void commit();

  /// Keeps an answer in the place of those that the request selects.
  void put(const CachedAnswer& answer, const HTTPHeaders& request);
  void remove(std::string_view key);
  void touch(const Use& use);

  // Starts over after a database has turned out to be wrong.

  /// After a wait in vain: from now on it waits for no other connection until it has opened.
  void hurry() noexcept { isHurried_ = true; }

  /// Closes the connection, ending an open transaction.
  void close() noexcept;

  /// Removes the database, for all who share it; the next use makes a new one.
  void clear();

  /// Sets a damaged database aside, where it replaces the one set aside before, unless another
  /// connection has done so already.
  void setAside();

 private:
  struct Open;

  [[nodiscard]] std::optional<FileIdentity> identity() const noexcept { return identityOf(path_); }
  [[nodiscard]] int patienceMilliseconds() const noexcept;
  [[nodiscard]] Descriptor lock();
  [[nodiscard]] bool isInPlace() const noexcept;
  void removeFiles() const noexcept;
  void rename() const noexcept;
  void open();
  void openAnew();
  void touchAll(const std::vector<std::string>& keys);
  bool evict(std::int64_t bytes);
  [[nodiscard]] std::int64_t bytesInUse();

  const std::string folder_;
  const std::string path_;
  const DiskBudget budget_;
  const int busyMilliseconds_;
  FileIdentity identity_;
  Descriptor held_;
  std::uint64_t openings_ = 0;
  bool isHurried_ = false;
  struct CloseOpen {
    void operator()(Open* open) const noexcept;
  };
  std::unique_ptr<Open, CloseOpen> open_;
};

}  // namespace ombrix::platform::detail
