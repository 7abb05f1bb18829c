#include "tools/server/database.h"

namespace korvane::server {

namespace {

constexpr int kBusyTimeoutMs = 5000;

[[noreturn]] void fail(sqlite3* handle, const std::string& what) {
  throw DatabaseError(std::string(handle != nullptr ? sqlite3_errmsg(handle) : "out of memory") +
                      ": " + what);
}

}  // namespace

Database::Database(const std::string& file) {
  sqlite3* handle = nullptr;
  const int status = sqlite3_open(file.c_str(), &handle);
  _handle.reset(handle);
  if (status != SQLITE_OK) fail(handle, "open " + file);
  sqlite3_busy_timeout(handle, kBusyTimeoutMs);
  execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA foreign_keys=OFF;");
}

void Database::execute(const std::string& sql) {
  if (sqlite3_exec(_handle.get(), sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
    fail(_handle.get(), sql);
}

Statement::Statement(Database& database, std::string_view sql) : _database(database) {
  sqlite3_stmt* handle = nullptr;
  const int status = sqlite3_prepare_v3(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                        SQLITE_PREPARE_PERSISTENT, &handle, nullptr);
  _handle.reset(handle);
  if (status != SQLITE_OK) fail(database.handle(), std::string(sql));
}

bool Statement::next() {
  const int status = sqlite3_step(_handle.get());
  if (status == SQLITE_ROW) return true;
  sqlite3_reset(_handle.get());
  if (status != SQLITE_DONE) check(status);
  return false;
}

std::string Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(_handle.get(), column));
  const int size = sqlite3_column_bytes(_handle.get(), column);
  return bytes != nullptr ? std::string(bytes, static_cast<size_t>(size)) : std::string();
}

void Statement::bind(int position, int64_t value) {
  check(sqlite3_bind_int64(_handle.get(), position, value));
}

// The bytes stay the caller's: they live until the statement has run.
void Statement::bind(int position, std::string_view value) {
  const char* bytes = value.data() != nullptr ? value.data() : "";
  check(sqlite3_bind_text64(_handle.get(), position, bytes, value.size(), SQLITE_STATIC,
                            SQLITE_UTF8));
}

void Statement::bind(int position, const Blob& value) {
  const char* bytes = value.bytes.data() != nullptr ? value.bytes.data() : "";
  check(sqlite3_bind_blob64(_handle.get(), position, bytes, value.bytes.size(), SQLITE_STATIC));
}

void Statement::bind(int position, std::nullptr_t) {
  check(sqlite3_bind_null(_handle.get(), position));
}

void Statement::bind(int position, std::optional<int64_t> value) {
  value ? bind(position, *value) : bind(position, nullptr);
}

void Statement::check(int status) const {
  if (status != SQLITE_OK) fail(_database.handle(), sqlite3_sql(_handle.get()));
}

Transaction::Transaction(Database& database) : _database(&database) {
  database.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (_database == nullptr) return;
  sqlite3_exec(_database->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  _database->execute("COMMIT");
  _database = nullptr;
}

}  // namespace korvane::server
