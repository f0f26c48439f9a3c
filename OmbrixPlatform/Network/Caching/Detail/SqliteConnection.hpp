#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix::platform::detail {

/// An error of SQLite's; it never leaves the cache.
struct SqliteFailure {
  /// Thrown for a database that a later release has open: this release must not touch it.
  static constexpr int kIsOfLaterRelease = SQLITE_MISMATCH;

  int code;  // a primary result code

  [[nodiscard]] bool isDamage() const noexcept {
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
  }
  [[nodiscard]] bool isBusy() const noexcept {
    return code == SQLITE_BUSY || code == SQLITE_LOCKED;
  }
};

/// A prepared statement. Parameters are counted from 1, columns from 0; what is bound and read as a
/// view is not copied. One thread at a time.
class SqliteStatement {
 public:
  SqliteStatement() = default;
  SqliteStatement(sqlite3* database, std::string_view text);

  SqliteStatement& bind(int parameter, std::int64_t value);
  SqliteStatement& bind(int parameter, DataView value);

  /// The next row; false at the end. Throws `SqliteFailure`.
  bool step();
  /// Steps to the end.
  void run();
  void reset() noexcept;

  [[nodiscard]] std::int64_t integer(int column) const;
  [[nodiscard]] DataView bytes(int column) const;
  [[nodiscard]] bool isNull(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { ::sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// Resets a statement at the end of a scope; until then the statement holds its snapshot of the
/// database.
class SqliteReset {
 public:
  explicit SqliteReset(SqliteStatement& statement) : statement_(statement) {}
  ~SqliteReset() { statement_.reset(); }
  SqliteReset(const SqliteReset&) = delete;
  SqliteReset& operator=(const SqliteReset&) = delete;

 private:
  SqliteStatement& statement_;
};

/// A connection to a database file. One thread at a time; failures are `SqliteFailure`.
class SqliteConnection {
 public:
  /// Opens the file, making it where there is none. It never removes or writes files by their names
  /// when it closes: others may have put new ones there.
  SqliteConnection(const std::string& path, int busyMilliseconds);

  /// How long later statements wait for other connections.
  void setPatience(int milliseconds);

  void execute(const char* text);
  [[nodiscard]] std::int64_t integer(std::string_view query);
  [[nodiscard]] SqliteStatement prepare(std::string_view text) { return {database_.get(), text}; }
  /// Rows that the last statement has changed, without those of triggers.
  [[nodiscard]] int changes() const noexcept;

 private:
  struct Close {
    void operator()(sqlite3* database) const noexcept { ::sqlite3_close_v2(database); }
  };
  std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace ombrix::platform::detail
