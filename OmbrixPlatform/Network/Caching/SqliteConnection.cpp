#include "OmbrixPlatform/Network/Caching/Detail/SqliteConnection.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr int kPrimaryMask = 0xFF;

void check(int code) {
  if (code != SQLITE_OK) throw SqliteFailure{code & kPrimaryMask};
}

}  // namespace

SqliteStatement::SqliteStatement(sqlite3* database, std::string_view text) {
  sqlite3_stmt* statement = nullptr;
  check(::sqlite3_prepare_v3(database, text.data(), static_cast<int>(text.size()),
                             SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
  statement_.reset(statement);
}

SqliteStatement& SqliteStatement::bind(int parameter, std::int64_t value) {
  check(::sqlite3_bind_int64(statement_.get(), parameter, value));
  return *this;
}

SqliteStatement& SqliteStatement::bind(int parameter, DataView value) {
  // An empty blob, too, needs an address: a null one would bind NULL.
  static constexpr std::byte kNothing{};
  check(::sqlite3_bind_blob64(statement_.get(), parameter, value.empty() ? &kNothing : value.data(),
                              value.size(), SQLITE_STATIC));
  return *this;
}

bool SqliteStatement::step() {
  const int code = ::sqlite3_step(statement_.get());
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) return false;
  throw SqliteFailure{code & kPrimaryMask};
}

void SqliteStatement::run() {
  const SqliteReset reset(*this);
  while (step()) {
  }
}

void SqliteStatement::reset() noexcept { ::sqlite3_reset(statement_.get()); }

std::int64_t SqliteStatement::integer(int column) const {
  return ::sqlite3_column_int64(statement_.get(), column);
}

DataView SqliteStatement::bytes(int column) const {
  const auto* bytes =
      static_cast<const std::byte*>(::sqlite3_column_blob(statement_.get(), column));
  const auto count = static_cast<std::size_t>(::sqlite3_column_bytes(statement_.get(), column));
  return bytes == nullptr ? DataView{} : DataView{bytes, count};
}

bool SqliteStatement::isNull(int column) const {
  return ::sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

SqliteConnection::SqliteConnection(const std::string& path, int busyMilliseconds) {
  sqlite3* database = nullptr;
  const int code =
      ::sqlite3_open_v2(path.c_str(), &database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  database_.reset(database);
  check(code);
  setPatience(busyMilliseconds);
  if (::sqlite3_db_readonly(database, "main") != 0) throw SqliteFailure{SQLITE_READONLY};
  int isOn = 1;
  check(::sqlite3_file_control(database, "main", SQLITE_FCNTL_PERSIST_WAL, &isOn));
  check(::sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr));
  check(::sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr));
}

void SqliteConnection::setPatience(int milliseconds) {
  check(::sqlite3_busy_timeout(database_.get(), milliseconds));
}

int SqliteConnection::changes() const noexcept { return ::sqlite3_changes(database_.get()); }

void SqliteConnection::execute(const char* text) {
  check(::sqlite3_exec(database_.get(), text, nullptr, nullptr, nullptr));
}

std::int64_t SqliteConnection::integer(std::string_view query) {
  SqliteStatement statement = prepare(query);
  return statement.step() ? statement.integer(0) : 0;
}

}  // namespace ombrix::platform::detail
