#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "OmbrixPlatform/Files/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Network/Detail/Caching/FileIdentity.hpp"

namespace ombrix::platform::detail {

/// Tells which keys are certainly not stored: a bit for each hash that was written to a database,
/// in a file beside it that all who share the database have in memory. A bit is set before its row
/// can be seen and stays set; to be rid of old ones the table is made anew.
///
/// Rows are written only while `serves` holds, or while there is no table (`isNone`), and tables
/// are made only where no row can be written: both happen inside a transaction that writes, where
/// SQLite lets in one at a time. A table that is given up is marked as retired before, which those
/// see who still have it in memory.
///
/// A table that somebody else took away, or whose database, is noticed within a second. One that
/// somebody else makes shorter ends the program (SIGBUS), as SQLite's shared memory would.
/// Any thread; nothing is thrown but for lack of memory.
class CacheKeyTable {
 public:
  /// Bytes of the largest table that takes no more than so many; those of the smallest at least.
  static std::int64_t bytesWithin(std::int64_t most) noexcept;

  /// @param bytes What a table takes here; a smaller one that others made is used as well.
  CacheKeyTable(std::string path, std::string databasePath, std::int64_t bytes) noexcept;
  ~CacheKeyTable();
  CacheKeyTable(const CacheKeyTable&) = delete;
  CacheKeyTable& operator=(const CacheKeyTable&) = delete;

  // Reading.

  /// Whether there is certainly no row with the hash; false also without a table. Takes no lock,
  /// and asks the system once a second only.
  [[nodiscard]] bool excludes(std::int64_t hash) noexcept;

  /// Brings the table of the database into memory if there is a right one.
  bool map(const FileIdentity& database);

  /// The same where none is in use, tried once a second.
  void mapWhenDue(const FileIdentity& database);

  /// Lets go of a table that another has retired.
  void dropRetired() noexcept;

  // Writing, inside a transaction on the database.

  /// Whether what is in memory is the database's table for all, and not too full.
  [[nodiscard]] bool serves(const FileIdentity& database) noexcept;

  /// Whether there is no table that anybody could use.
  [[nodiscard]] bool isNone() const noexcept;

  /// Makes a table with these hashes in the place of any other; without one `isNone` holds, unless
  /// the old one can be neither used nor removed.
  bool make(const FileIdentity& database, const std::vector<std::int64_t>& hashes);

  /// Takes note of a row that is about to be written.
  void add(std::int64_t hash) noexcept;

  /// Marks the table as given up and removes it; false when it stands and may be in use.
  bool retire() noexcept;

 private:
  struct Header;

  [[nodiscard]] Header& header() const noexcept;
  [[nodiscard]] std::uint64_t& word(std::uint64_t bit) const noexcept;
  [[nodiscard]] bool isInUse() const noexcept;
  [[nodiscard]] bool isStillThere() noexcept;
  bool retireLocked() noexcept;
  bool show(const Descriptor& file, unsigned width, const FileIdentity& database) noexcept;
  void hide() noexcept;

  const std::string path_;
  const std::string databasePath_;
  const unsigned width_;  // a table has two to the power of this bits
  std::byte* base_;       // where tables are mapped, one after the other; null without such a place

  // Odd while the mapping changes: what was read before and after it is not one table's.
  std::atomic<std::uint64_t> sequence_{0};
  std::atomic<unsigned> shownWidth_{0};  // of the table that is mapped; 0 for none
  std::atomic<std::int64_t> lookAgain_{0};

  std::mutex mutex_;  // guards the mapping against changes, and these
  FileIdentity file_;
  FileIdentity database_;
};

}  // namespace ombrix::platform::detail
